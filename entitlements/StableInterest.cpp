#include "nbbase/entitlements/StableInterest.h"

#include <optional>
#include <utility>

#include "nbbase/foundation/Json.h"

namespace nb {
namespace {

// The servers send the attribute lists as arrays; anything else has no elements to copy.
Value elementsOf(const Value& value) {
    if (const auto* array = value.asArray()) return Value(*array);
    return Value(Value::Array{});
}

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
    // Only the one entry is kept: a parse reads thousands of these texts.
    auto entry = Json::decodeMember(extraData, key, {.allowFragments = true});
    if (!entry) return {};
    if (entry->isArray()) return std::move(*entry);
    if (entry->isNumber()) return Value(Value::Array{std::move(*entry)});
    return Value(Value::Array{});
}

std::optional<OnHookTimeMap> StableInterest::maxOnHookInfoFromExtraData(std::string_view extraData) {
    if (extraData.empty()) return std::nullopt;
    const auto decoded = Json::decode(extraData, {.allowFragments = true});
    if (!decoded) return std::nullopt;
    OnHookTimeMap limits;
    if (const auto* elements = decoded->asArray()) {
        for (const auto& element : *elements) {
            if (!element.contains("game_id") || !element.contains("max_on_hook_time")) continue;
            limits.set(element["game_id"], element["max_on_hook_time"]);
        }
    }
    return limits;
}

}  // namespace nb
