// SUAppcast: the update items of one feed, in feed order, and the reader of RSS 2.0 feeds.
//
// Reading (parseAppcastData): <rss><channel> with one <item> per update. Each direct child element of an
// item becomes a key of the item dictionary (see SUAppcastItem.h) with the element's text content
// (descendants' text and CDATA included); <enclosure> becomes a dictionary of its attributes. Of a repeated
// element or attribute the first wins, so an item's main enclosure is its first. Names are matched by their
// qualified name as written in the document ("sparkle:version"), which is how every published feed writes
// them; a feed that binds the updater's namespace to another prefix is not recognised. An item that does not
// make an SUAppcastItem (no version) is skipped and the reason logged at level 2; the rest of the feed is
// still read. Only the first <channel> is read.
//
// Refused, with nullopt and a one-line reason in `error`: input above kMaxFeedBytes, XML that is not
// well-formed (the parser's first error and its line), a document that declares a DTD, a root element
// other than <rss>, and an <rss> without <channel>. A feed never needs a DTD, and refusing one before its
// internal subset is read shuts out entity-expansion bombs; entities are never substituted and nothing is
// ever fetched from the network. Nesting is bounded by the parser's default depth limit (256).
//
// Threads: parseAppcastData may be called on any thread, by several at once. The XML library is
// initialised once, thread-safely, on first use. Its diagnostics never reach standard error: the parser
// context carries its own structured error handler, and while a parse runs the calling thread's
// structured handler (per thread in the XML library) is replaced by one that drops the messages raised
// outside any context, then restored. An SUAppcast itself is a plain value, not synchronised: one object is
// read by many threads or written by one; the items it holds are immutable and may be shared freely.
// Nothing throws.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "nbbase/foundation/NBLog.h"
#include "nbbase/updater/SUAppcastItem.h"

namespace nb {

class SUAppcast {
public:
    using Items = std::vector<std::shared_ptr<const SUAppcastItem>>;

    static constexpr std::size_t kMaxFeedBytes = 16 * 1024 * 1024;

    // `error`, when given, is set only on failure. `log` receives the skipped items' lines and must not be
    // destroyed during the call.
    [[nodiscard]] static std::optional<SUAppcast> parseAppcastData(std::string_view xml, std::string* error = nullptr,
                                                                   NBLog& log = NBLog::sharedInstance());

    // Never holds null pointers when filled by the reader; setItems takes the list as given.
    const Items& items() const noexcept { return items_; }
    void setItems(Items items) { items_ = std::move(items); }

private:
    Items items_;
};

}  // namespace nb
