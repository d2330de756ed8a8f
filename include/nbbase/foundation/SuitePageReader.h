// nb::SuitePageReader: the rows a settings suite's database file still holds, read straight from its bytes
// page by page, without SQLite. UserDefaults uses it to recover a damaged suite after SQLite's own scan
// has stopped at a bad page; it knows nothing else of UserDefaults.
//
// What it reads: a suite's table is WITHOUT ROWID, so its rows live whole in the cells of index b-tree
// pages, interior (0x02) and leaf (0x0A) alike. Every such cell whose record has exactly two columns, a
// text and then a blob, is a row. The page size and the freelist come from the file's header; when the
// header is not a SQLite header the page size is the caller's fallback and no page is known to be free.
//
// What it skips, and why: pages on the freelist (as far as the list can be followed), because their cells
// are stale rows a later write replaced or deleted; cells whose payload spills to overflow pages, or that
// do not parse, or that point outside their page. Bytes outside a page's cell pointers (freeblocks,
// unallocated space) are never read, so deleted rows are not brought back. The WAL is not read: what it
// holds is SQLite's to read. A file holding stale copies of a row outside the freelist can yield a key
// more than once; rows come in page order, then cell order, and the caller chooses.
//
// Threads: static functions without state; any thread, at once. Failure: never throws and never reads
// outside the bytes given, whatever they hold; unreadable input gives no rows and counts its pages as
// unreadable.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace nb {

class SuitePageReader {
public:
    static constexpr std::uint32_t kDefaultPageSize = 4096;  // SQLite's default, and every suite's
    static constexpr std::size_t kMaxFileSize = std::size_t{64} << 20;  // readFile reads no more

    struct Row {
        std::string key;    // the text column's bytes as stored (UTF-8 in a suite)
        std::string value;  // the blob column's bytes
        std::uint32_t page = 0;  // 1-based, as SQLite numbers pages
    };
    struct Result {
        std::vector<Row> rows;
        std::uint32_t pageSize = 0;
        // Pages the database should have: the header's count when SQLite would trust it, or the file's
        // size in pages, whichever is larger (a truncated file keeps its header's count).
        std::uint32_t pageCount = 0;
        // Pages missing from the file, cut short, or holding nothing this reader recognises (not a b-tree
        // page, not on the freelist, not an overflow page a cell or chain points to).
        std::uint32_t unreadablePages = 0;
        std::uint32_t freePages = 0;     // skipped as stale
        std::uint32_t skippedCells = 0;  // cells of index pages that overflow or do not parse
    };

    // `file` is a whole database file. fallbackPageSize is used when the header does not give one (a
    // power of two from 512 to 65536; anything else means kDefaultPageSize).
    static Result read(std::string_view file, std::uint32_t fallbackPageSize = kDefaultPageSize);
    // The first kMaxFileSize bytes of the file at path; a file that cannot be read gives an empty Result.
    static Result readFile(const std::filesystem::path& path, std::uint32_t fallbackPageSize = kDefaultPageSize);
};

}  // namespace nb
