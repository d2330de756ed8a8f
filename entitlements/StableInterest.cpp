#include "nbbase/entitlements/StableInterest.h"

#include <optional>
#include <string>
#include <utility>

#include "nbbase/foundation/Json.h"
#include "nbbase/foundation/JsonEvents.h"
#include "nbbase/foundation/JsonValueBuilder.h"

namespace nb {
namespace {

// The servers send the attribute lists as arrays; anything else has no elements to copy.
Value elementsOf(const Value& value) {
    if (const auto* array = value.asArray()) return Value(*array);
    return Value(Value::Array{});
}

// The extra-data readers below keep only what their answer needs of the text, yet Json::read checks all of
// it, so a text that Json::decode refuses still gives no answer. A container value they keep is built by a
// JsonValueBuilder, whatever its depth.

// The value under one key of a top-level object; absent when the top is not an object or lacks the key.
class EntryReader final : public JsonEvents {
public:
    explicit EntryReader(std::string_view key) : key_(key) {}

    bool null() override { return scalar(Value::null()); }
    bool boolean(bool b) override { return scalar(Value(b)); }
    bool number(Value number) override { return scalar(std::move(number)); }
    bool string(std::string_view s) override {
        if (captureDepth_ > 0) return builder_.string(s);
        return scalar(wanted_ ? Value(std::string(s)) : Value());
    }
    bool key(std::string_view key) override {
        if (captureDepth_ > 0) return builder_.key(key);
        if (depth_ == 1) wanted_ = key == key_;
        return true;
    }
    bool startObject() override { return start(true); }
    bool endObject(std::size_t count) override { return end(true, count); }
    bool startArray() override { return start(false); }
    bool endArray(std::size_t count) override { return end(false, count); }

    Value& entry() noexcept { return entry_; }

private:
    bool scalar(Value value) {
        if (captureDepth_ > 0) return builder_.number(std::move(value));
        if (wanted_) entry_ = std::move(value);
        wanted_ = false;
        return true;
    }
    bool start(bool object) {
        if (captureDepth_ == 0 && !wanted_) {
            ++depth_;
            return true;
        }
        wanted_ = false;
        ++captureDepth_;
        return object ? builder_.startObject() : builder_.startArray();
    }
    bool end(bool object, std::size_t count) {
        if (captureDepth_ == 0) {
            --depth_;
            return true;
        }
        const bool carryOn = object ? builder_.endObject(count) : builder_.endArray(count);
        if (--captureDepth_ == 0) entry_ = builder_.take();
        return carryOn;
    }

    const std::string_view key_;
    std::size_t depth_ = 0;
    std::size_t captureDepth_ = 0;
    bool wanted_ = false;  // the next value is the entry's (only ever set inside the top object)
    JsonValueBuilder builder_;
    Value entry_;
};

// The idle limits of a top-level array of {"game_id", "max_on_hook_time"} objects, straight into the map.
class LimitsReader final : public JsonEvents {
public:
    bool null() override { return scalar(Value::null()); }
    bool boolean(bool b) override { return scalar(Value(b)); }
    bool number(Value number) override { return scalar(std::move(number)); }
    bool string(std::string_view s) override {
        if (captureDepth_ > 0) return builder_.string(s);
        return scalar(target_ != nullptr ? Value(std::string(s)) : Value());
    }
    bool key(std::string_view key) override {
        if (captureDepth_ > 0) return builder_.key(key);
        if (depth_ != 2 || !inElement_) return true;
        target_ = nullptr;
        if (key == "game_id") {
            hasGame_ = true;
            target_ = &gameId_;
        } else if (key == "max_on_hook_time") {
            hasSeconds_ = true;
            target_ = &seconds_;
        }
        return true;
    }
    bool startObject() override { return start(true); }
    bool endObject(std::size_t count) override { return end(true, count); }
    bool startArray() override { return start(false); }
    bool endArray(std::size_t count) override { return end(false, count); }

    OnHookTimeMap& limits() noexcept { return limits_; }

private:
    bool scalar(Value value) {
        if (captureDepth_ > 0) return builder_.number(std::move(value));
        if (target_ != nullptr) *target_ = std::move(value);
        target_ = nullptr;
        return true;
    }
    bool start(bool object) {
        if (captureDepth_ > 0 || target_ != nullptr) {
            ++captureDepth_;
            return object ? builder_.startObject() : builder_.startArray();
        }
        ++depth_;
        if (depth_ == 1) topArray_ = !object;
        if (depth_ == 2 && topArray_ && object) {
            inElement_ = true;
            hasGame_ = hasSeconds_ = false;
        }
        return true;
    }
    bool end(bool object, std::size_t count) {
        if (captureDepth_ > 0) {
            const bool carryOn = object ? builder_.endObject(count) : builder_.endArray(count);
            if (--captureDepth_ == 0) {
                *target_ = builder_.take();
                target_ = nullptr;
            }
            return carryOn;
        }
        if (depth_ == 2 && inElement_) {
            if (hasGame_ && hasSeconds_) limits_.set(std::move(gameId_), std::move(seconds_));
            inElement_ = false;
        }
        --depth_;
        return true;
    }

    std::size_t depth_ = 0;
    std::size_t captureDepth_ = 0;
    bool topArray_ = false;
    bool inElement_ = false;  // inside an object element of the top array
    bool hasGame_ = false;
    bool hasSeconds_ = false;
    Value* target_ = nullptr;  // where the next value goes, when it is one of the two keys
    Value gameId_;
    Value seconds_;
    JsonValueBuilder builder_;
    OnHookTimeMap limits_;
};

constexpr Json::DecodeOptions kExtraDataOptions{.allowFragments = true};

}  // namespace

std::shared_ptr<const StableInterest> StableInterest::fromDictionary(const Value& dictionary) {
    auto interest = std::make_shared<StableInterest>();
    if (dictionary.contains("fps")) interest->setFpsAttr(elementsOf(dictionary["fps"]));
    if (dictionary.contains("frame")) interest->setFrameAttr(elementsOf(dictionary["frame"]));
    if (dictionary.contains("hang_up")) interest->setHangup(dictionary["hang_up"].intValue());
    return interest;
}

bool StableInterest::isMonitoredType(std::int32_t type) noexcept {
    return type == kTypeFrame || type == kTypeHangup || type == kTypeFps;
}

void StableInterest::setAttrsFromExtraData(std::string_view extraData) {
    if (type_ == kTypeFrame) setFrameAttr(arrayFromExtraData(extraData, "frame"));
    if (type_ == kTypeFps) setFpsAttr(arrayFromExtraData(extraData, "fps"));
}

Value StableInterest::arrayFromExtraData(std::string_view extraData, std::string_view key) {
    if (extraData.empty()) return {};
    EntryReader reader(key);
    if (!Json::read(extraData, kExtraDataOptions, reader)) return {};
    Value& entry = reader.entry();
    if (entry.isArray()) return std::move(entry);
    if (entry.isNumber()) return Value(Value::Array{entry});
    return Value(Value::Array{});
}

std::optional<OnHookTimeMap> StableInterest::maxOnHookInfoFromExtraData(std::string_view extraData) {
    if (extraData.empty()) return std::nullopt;
    LimitsReader reader;
    if (!Json::read(extraData, kExtraDataOptions, reader)) return std::nullopt;
    return std::move(reader.limits());
}

}  // namespace nb
