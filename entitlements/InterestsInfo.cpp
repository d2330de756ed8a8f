#include "nbbase/entitlements/InterestsInfo.h"

#include <utility>

#include "nbbase/entitlements/InterestsReplyReader.h"
#include "nbbase/foundation/Json.h"

namespace nb {
namespace {

std::optional<Value> decodeReply(const std::optional<std::string>& text) {
    if (!text) return std::nullopt;
    return Json::decode(*text, {.allowFragments = true});
}

bool readReply(const std::optional<std::string>& text, InterestsReplyReader& reader) {
    return text && Json::read(*text, {.allowFragments = true}, reader);
}

std::optional<std::string> textOf(const Value& reply) {
    if (const auto* text = reply.asString()) return *text;
    return std::nullopt;
}

std::int64_t levelOf(bool isVip, bool isSvip) {
    if (isSvip) return StableInterest::kPropertySvip;
    return isVip ? StableInterest::kPropertyVip : StableInterest::kPropertyOrdinary;
}

}  // namespace

InterestsInfo& InterestsInfo::sharedInstance() {
    // Owned by a shared_ptr that is never destroyed: replies hold the store weakly.
    static const auto* const owner = new std::shared_ptr<InterestsInfo>(create());
    return **owner;
}

std::shared_ptr<InterestsInfo> InterestsInfo::create(NimboSdkManager& sdkManager, NBConfiguration& configuration,
                                                     VipInfo& vipInfo, NBLog& log, DispatchQueue& background) {
    return std::make_shared<InterestsInfo>(Passkey{}, sdkManager, configuration, vipInfo, log, background);
}

InterestsInfo::InterestsInfo(Passkey, NimboSdkManager& sdkManager, NBConfiguration& configuration, VipInfo& vipInfo,
                             NBLog& log, DispatchQueue& background)
    : sdkManager_(sdkManager),
      configuration_(configuration),
      vipInfo_(vipInfo),
      log_(log),
      background_(background),
      snapshot_(std::make_shared<const InterestsSnapshot>()) {}

// ---- Fetching and parsing --------------------------------------------------------------------------------

void InterestsInfo::fetchInterests(const Value& gameIds, const std::optional<std::string>& instanceId,
                                   InterestResult interestResult) {
    checkStableInterest();
    background_.async([weak = weak_from_this(), gameIds, instanceId = instanceId.value_or(""),
                       interestResult = std::move(interestResult)] {
        const auto self = weak.lock();
        if (!self) return;
        std::string gameIdText = "[]";
        if (!gameIds.isAbsent()) {
            if (auto encoded = Json::encode(gameIds)) {
                gameIdText = std::move(*encoded);
            } else {
                self->log_.log(4, "[interests] game ids are not JSON, asking for none: {}", gameIds);
            }
        }
        self->sdkManager_.getUserFullInterests(
            self->configuration_.nimboToken().value_or(""), gameIdText, instanceId, std::string(kInterestFilters),
            [weak, interestResult](const Value& reply) {
                const auto self = weak.lock();
                if (!self) return;
                (void)self->parse(textOf(reply));
                if (interestResult) interestResult(0);
            },
            [weak, interestResult](std::int32_t a, std::int32_t b, std::int32_t c) {
                const auto self = weak.lock();
                if (!self) return;
                self->log_.log(4, "[interests] getUserFullInterests failed. {}-{}-{}", a, b, c);
                if (interestResult) interestResult(-1);
            });
    });
}

bool InterestsInfo::applyInterestsReply(const Value& reply, InterestsSnapshot::ReplyForm form,
                                        InterestsSnapshot& next) const {
    // Both parsers of the full reply log with the same words.
    if (const std::int64_t code = reply["code"].longLongValue(); code != 0) {
        log_.log(4, "parseUserInterests error[{},{}]", code, reply["message"]);
        return false;
    }
    const Value& data = reply["data"];
    if (!data.isDictionary()) return false;
    next.applyInterests(data, form);
    return true;
}

bool InterestsInfo::applyReadReply(const InterestsReplyReader& reader, InterestsSnapshot& next) const {
    if (const std::int64_t code = reader.code().longLongValue(); code != 0) {
        log_.log(4, "parseUserInterests error[{},{}]", code, reader.message());
        return false;
    }
    if (!reader.hasData()) return false;
    reader.applyTo(next);
    return true;
}

bool InterestsInfo::parse(const std::optional<std::string>& text) {
    // Read straight into records: a Value tree of a big reply costs more than the records built from it.
    InterestsReplyReader reader(InterestsSnapshot::ReplyForm::Full);
    if (!readReply(text, reader)) return false;
    const std::int64_t level = vipInfo_.propertyLevel();
    std::lock_guard lock(storeLock_);
    InterestsSnapshot next = *snapshot();
    (void)applyReadReply(reader, next);
    next.applyTriableFlags(level);
    publish(std::move(next));
    return true;
}

void InterestsInfo::parseInterest(const Value& reply) {
    std::lock_guard lock(storeLock_);
    InterestsSnapshot next = *snapshot();
    if (applyInterestsReply(reply, InterestsSnapshot::ReplyForm::Full, next)) publish(std::move(next));
}

bool InterestsInfo::parseUserInterests(const std::optional<std::string>& text) {
    InterestsReplyReader reader(InterestsSnapshot::ReplyForm::Text);
    if (!readReply(text, reader)) return false;
    std::lock_guard lock(storeLock_);
    InterestsSnapshot next = *snapshot();
    if (!applyReadReply(reader, next)) return false;
    publish(std::move(next));
    return true;
}

void InterestsInfo::queryUserProperty() {
    background_.async([weak = weak_from_this()] {
        const auto self = weak.lock();
        if (!self) return;
        const auto sdk = self->sdkManager_.sdkInstance();
        if (!sdk) return;
        sdk->queryUserPropertyInterests(
            [weak](const Value& reply) {
                const auto self = weak.lock();
                if (!self) return;
                const std::int64_t level = self->vipInfo_.propertyLevel();
                std::lock_guard lock(self->storeLock_);
                InterestsSnapshot next = *self->snapshot();
                (void)self->applyPropertyReply(textOf(reply), next);
                next.applyTriableFlags(level);
                self->publish(std::move(next));
            },
            [weak](std::int32_t a, std::int32_t b, std::int32_t c) {
                if (const auto self = weak.lock()) self->log_.log(4, "queryUserProperty failed:[{}-{}-{}]", a, b, c);
            });
    });
}

void InterestsInfo::checkStableInterest() {
    const auto levels = stableInterestDict();
    if (!levels || levels->empty()) queryUserProperty();
}

bool InterestsInfo::applyPropertyReply(const std::optional<std::string>& text, InterestsSnapshot& next) const {
    const auto reply = decodeReply(text);
    if (!reply) return false;
    if (const std::int64_t code = (*reply)["code"].longLongValue(); code != 0) {
        log_.log(4, "parseUserPropertyInterests error[{},{}]", code, (*reply)["message"]);
        return false;
    }
    const Value& data = (*reply)["data"];
    if (!data.isDictionary()) return false;
    next.applyStableInterests(data);
    return true;
}

bool InterestsInfo::parseUserPropertyInterests(const std::optional<std::string>& text) {
    std::lock_guard lock(storeLock_);
    InterestsSnapshot next = *snapshot();
    if (!applyPropertyReply(text, next)) return false;
    publish(std::move(next));
    return true;
}

bool InterestsInfo::checkUserInterestsTriableInfo(bool isVip, bool isSvip) {
    std::lock_guard lock(storeLock_);
    InterestsSnapshot next = *snapshot();
    const bool found = next.applyTriableFlags(levelOf(isVip, isSvip));
    publish(std::move(next));
    return found;
}

std::shared_ptr<const StableInterest> InterestsInfo::parseStableInterest(const Value& dictionary) {
    return StableInterest::fromDictionary(dictionary);
}

Value InterestsInfo::getArrayFromExtraData(std::string_view extraData, std::string_view key) {
    return StableInterest::arrayFromExtraData(extraData, key);
}

std::optional<OnHookTimeMap> InterestsInfo::getMaxHookOnTimeFromExtraData(std::string_view extraData) {
    return StableInterest::maxOnHookInfoFromExtraData(extraData);
}

// ---- The stored state ------------------------------------------------------------------------------------

std::shared_ptr<const InterestsSnapshot> InterestsInfo::snapshot() const {
    std::lock_guard lock(snapshotMutex_);
    return snapshot_;
}

void InterestsInfo::publish(InterestsSnapshot next) {
    auto published = std::make_shared<const InterestsSnapshot>(std::move(next));
    std::lock_guard lock(snapshotMutex_);
    snapshot_.swap(published);
    // The replaced snapshot is released after the lock, should it hold the last reference to big lists.
}

InterestRules InterestsInfo::rules() const { return InterestRules(snapshot(), vipInfo_.propertyLevel()); }

// ---- Rules -------------------------------------------------------------------------------------------------

std::shared_ptr<const HavingInterest> InterestsInfo::getHavingInterest(std::int32_t type) const {
    return rules().getHavingInterest(type);
}
std::shared_ptr<const TriableInterest> InterestsInfo::getTriableInterest(std::int32_t type) const {
    return rules().getTriableInterest(type);
}
std::int64_t InterestsInfo::getPropertyByFps(std::int32_t fps) const { return rules().getPropertyByFps(fps); }
std::int64_t InterestsInfo::getPropertyByFrame(std::int32_t frame) const { return rules().getPropertyByFrame(frame); }
std::int64_t InterestsInfo::getPropertyByInterest(const StableInterest& interest) const {
    return rules().getPropertyByInterest(interest);
}
bool InterestsInfo::hasPictureQualityFrameInterest(std::int32_t frame) const {
    return rules().hasPictureQualityFrameInterest(frame);
}
bool InterestsInfo::hasFpsInterest(std::int32_t fps) const { return rules().hasFpsInterest(fps); }
InterestsSnapshot::TriableList InterestsInfo::pictureQualityAvailableInterests() const {
    return rules().pictureQualityAvailableInterests();
}
Value InterestsInfo::fpsAvailableInterests(const Value& rates) const { return rules().fpsAvailableInterests(rates); }
std::shared_ptr<const TriableInterest> InterestsInfo::getTriableInterestByFps(std::int32_t fps) const {
    return rules().getTriableInterestByFps(fps);
}
Value InterestsInfo::pictureQualityAndFpsInterestExpiredTime() const {
    return rules().pictureQualityAndFpsInterestExpiredTime();
}
bool InterestsInfo::pictureQualityTriableInterestEnd() const { return rules().pictureQualityTriableInterestEnd(); }
Value InterestsInfo::getNextCheckInterestsInfoTimerElapse() const {
    std::lock_guard lock(storeLock_);
    return rules().getNextCheckInterestsInfoTimerElapse();
}
std::int64_t InterestsInfo::maxHangupTimeInSec(const Value& gameId, bool haveInterest) const {
    return rules().maxHangupTimeInSec(gameId, haveInterest);
}
Value InterestsInfo::isInterestsTriable(const StableInterest& interest) const {
    return rules().isInterestsTriable(interest);
}
bool InterestsInfo::isCurrentHangupInterestTriable() const { return rules().isCurrentHangupInterestTriable(); }
bool InterestsInfo::haveHavingInterests(std::int32_t type) const { return rules().haveHavingInterests(type); }
bool InterestsInfo::haveTriableInterests(std::int32_t type) const { return rules().haveTriableInterests(type); }
bool InterestsInfo::haveInterests(std::int32_t type) const { return rules().haveInterests(type); }

}  // namespace nb
