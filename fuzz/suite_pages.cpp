// Any bytes as a damaged suite's database file. The reader must stay inside the input (ASan says so) and
// what it answers must hang together: rows come from pages that exist, a row's bytes are bytes of the
// input, and no page is counted both free and unreadable. Without a SQLite header the pages are 512
// bytes, so that short inputs still span several pages.
//
// Seed: any suite, e.g. ~/.config/<bundle id>.sqlite3, or one written by the UserDefaults tests.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "nbbase/foundation/SuitePageReader.h"

namespace {

void check(bool condition) {
    if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view file(reinterpret_cast<const char*>(data), size);
    const nb::SuitePageReader::Result result = nb::SuitePageReader::read(file, 512);
    check(result.pageSize >= 512 && result.pageSize <= 65536);
    const std::size_t filePages = (size + result.pageSize - 1) / result.pageSize;
    check(result.pageCount >= filePages);
    check(std::size_t{result.freePages} + result.unreadablePages <= result.pageCount);
    for (const auto& row : result.rows) {
        check(row.page >= 1 && std::size_t{row.page} * result.pageSize <= size);
        const std::string_view page = file.substr(std::size_t{row.page - 1} * result.pageSize, result.pageSize);
        check(page.find(row.key) != std::string_view::npos && page.find(row.value) != std::string_view::npos);
    }
    return 0;
}
