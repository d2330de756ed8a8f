// SUAppcastItem: one update a feed offers, as the updater engine shows and downloads it.
//
// Made from an item dictionary: either what SUAppcast's reader makes of one RSS <item>, or what the update
// manager builds by hand. Keys are element names as written ("title", "description", "pubDate",
// "sparkle:version", "sparkle:shortVersionString", "sparkle:minimumSystemVersion",
// "sparkle:maximumSystemVersion", "sparkle:releaseNotesLink", ...) with the element's text, plus
// "enclosure", a dictionary of the enclosure's attributes by qualified name ("url", "length", "type",
// "sparkle:version", "sparkle:shortVersionString", "sparkle:edSignature"), and the update manager's own
// "showfeatures". Text fields read a value's text (Value::textValue: a string as itself, a number as its
// decimal text); any other kind counts as missing.
//
// Version, short version, URLs, system versions and length ignore white space around them, which a
// pretty-printed feed puts inside elements; title, description and signature are kept exactly as given.
//
// Immutable once made, and only ever handed out as shared_ptr<const>: every getter may be called on any
// thread, by any number of threads at once. Nothing throws.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "nbbase/foundation/Value.h"

namespace nb {

class SUAppcastItem {
public:
    // nullptr when `dictionary` is not a dictionary or carries no version; `failureReason`, when given, then
    // receives one line saying which (and is left alone on success).
    [[nodiscard]] static std::shared_ptr<const SUAppcastItem> initWithDictionary(const Value& dictionary,
                                                                                 std::string* failureReason = nullptr);

    const std::string& title() const noexcept { return title_; }
    // The release notes, HTML as the feed wrote them (a CDATA section arrives as its text).
    const std::string& itemDescription() const noexcept { return itemDescription_; }
    // The version the comparator judges: the enclosure's "sparkle:version", else the item's
    // "sparkle:version" element; an empty one counts as missing. Never empty.
    const std::string& versionString() const noexcept { return versionString_; }
    // "sparkle:shortVersionString" from the enclosure, else from the item, else versionString().
    const std::string& displayVersionString() const noexcept { return displayVersionString_; }
    // The enclosure's "url"; "" when the item has no enclosure or the enclosure no url.
    const std::string& fileURL() const noexcept { return fileURL_; }
    // The enclosure's "length" when it is a plain decimal number (digits only) above 0 that fits 64 bits;
    // nullopt otherwise, so that a "0" or "-1" never passes for a size.
    const std::optional<std::uint64_t>& contentLength() const noexcept { return contentLength_; }
    // The enclosure's "sparkle:edSignature", base64 text exactly as given. An empty attribute stays an empty
    // signature (which verifies nothing) rather than reading as an unsigned item.
    const std::optional<std::string>& edSignature() const noexcept { return edSignature_; }
    const std::optional<std::string>& minimumSystemVersion() const noexcept { return minimumSystemVersion_; }
    const std::optional<std::string>& maximumSystemVersion() const noexcept { return maximumSystemVersion_; }
    // "sparkle:releaseNotesLink".
    const std::optional<std::string>& releaseNotesURL() const noexcept { return releaseNotesURL_; }
    // "pubDate" as written (RFC 822 in a well-made feed); never parsed here.
    const std::optional<std::string>& dateString() const noexcept { return dateString_; }
    // The bool value of "showfeatures" (false when missing): show the release notes once installed.
    bool showFeatures() const noexcept { return showFeatures_; }
    // The dictionary the item was made from, unchanged.
    const Value& propertiesDictionary() const noexcept { return propertiesDictionary_; }

private:
    SUAppcastItem() = default;

    std::string title_;
    std::string itemDescription_;
    std::string versionString_;
    std::string displayVersionString_;
    std::string fileURL_;
    std::optional<std::uint64_t> contentLength_;
    std::optional<std::string> edSignature_;
    std::optional<std::string> minimumSystemVersion_;
    std::optional<std::string> maximumSystemVersion_;
    std::optional<std::string> releaseNotesURL_;
    std::optional<std::string> dateString_;
    bool showFeatures_ = false;
    Value propertiesDictionary_;
};

}  // namespace nb
