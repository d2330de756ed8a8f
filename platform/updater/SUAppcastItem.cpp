#include "nbbase/updater/SUAppcastItem.h"

#include <charconv>
#include <string_view>
#include <system_error>

namespace nb {
namespace {

constexpr std::string_view kXmlSpace = " \t\r\n";

std::string_view trimmed(std::string_view text) noexcept {
    const std::size_t first = text.find_first_not_of(kXmlSpace);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kXmlSpace) - first + 1);
}

// The trimmed text of a field, nullopt when the value has no text or only white space.
std::optional<std::string> identifier(const Value& value) {
    const std::optional<std::string> text = value.textValue();
    if (!text) return std::nullopt;
    const std::string_view core = trimmed(*text);
    if (core.empty()) return std::nullopt;
    return std::string(core);
}

// The enclosure's attribute first, the item's element second.
std::optional<std::string> enclosureThenItem(const Value& item, std::string_view key) {
    if (auto fromEnclosure = identifier(item["enclosure"][key])) return fromEnclosure;
    return identifier(item[key]);
}

std::optional<std::uint64_t> plainDecimal(const Value& value) {
    const std::optional<std::string> text = identifier(value);
    if (!text) return std::nullopt;
    const char* const end = text->data() + text->size();
    std::uint64_t number = 0;
    // from_chars for an unsigned type takes neither sign nor spaces, so only digits get this far.
    const auto [stop, error] = std::from_chars(text->data(), end, number);
    if (error != std::errc() || stop != end || number == 0) return std::nullopt;
    return number;
}

}  // namespace

std::shared_ptr<const SUAppcastItem> SUAppcastItem::initWithDictionary(const Value& dictionary,
                                                                       std::string* failureReason) {
    const auto fail = [failureReason](std::string reason) {
        if (failureReason != nullptr) *failureReason = std::move(reason);
        return nullptr;
    };
    if (!dictionary.isDictionary()) return fail(std::string("the item is a ") + dictionary.kindName() + ", not a dictionary");
    std::optional<std::string> version = enclosureThenItem(dictionary, "sparkle:version");
    if (!version) return fail("the item has no version (no sparkle:version on its enclosure or as an element)");

    std::shared_ptr<SUAppcastItem> item(new SUAppcastItem());
    const Value& enclosure = dictionary["enclosure"];
    item->title_ = dictionary["title"].textValue().value_or("");
    item->itemDescription_ = dictionary["description"].textValue().value_or("");
    item->displayVersionString_ = enclosureThenItem(dictionary, "sparkle:shortVersionString").value_or(*version);
    item->versionString_ = std::move(*version);
    item->fileURL_ = identifier(enclosure["url"]).value_or("");
    item->contentLength_ = plainDecimal(enclosure["length"]);
    item->edSignature_ = enclosure["sparkle:edSignature"].textValue();
    item->minimumSystemVersion_ = identifier(dictionary["sparkle:minimumSystemVersion"]);
    item->maximumSystemVersion_ = identifier(dictionary["sparkle:maximumSystemVersion"]);
    item->releaseNotesURL_ = identifier(dictionary["sparkle:releaseNotesLink"]);
    item->dateString_ = identifier(dictionary["pubDate"]);
    item->showFeatures_ = dictionary["showfeatures"].boolValue();
    item->propertiesDictionary_ = dictionary;
    return item;
}

}  // namespace nb
