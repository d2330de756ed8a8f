#include "nbbase/foundation/SuitePageReader.h"

#include <algorithm>
#include <fstream>
#include <optional>
#include <system_error>
#include <utility>

namespace nb {
namespace {

constexpr std::string_view kMagic("SQLite format 3\0", 16);
constexpr std::size_t kFileHeaderSize = 100;

enum class PageKind : std::uint8_t { Unknown, Free, Overflow, Tree };

std::uint32_t byteAt(std::string_view b, std::size_t at) { return static_cast<std::uint8_t>(b[at]); }
std::uint32_t get2(std::string_view b, std::size_t at) { return byteAt(b, at) << 8 | byteAt(b, at + 1); }
std::uint32_t get4(std::string_view b, std::size_t at) { return get2(b, at) << 16 | get2(b, at + 2); }

bool validPageSize(std::uint32_t size) { return size >= 512 && size <= 65536 && (size & (size - 1)) == 0; }

// SQLite's variable-length integer: one to nine bytes, seven bits a byte, all eight bits of a ninth.
std::optional<std::uint64_t> varint(std::string_view b, std::size_t& at, std::size_t end) {
    std::uint64_t value = 0;
    for (int i = 0; i < 9; ++i) {
        if (at >= end) return std::nullopt;
        const std::uint32_t c = byteAt(b, at++);
        if (i == 8) return value << 8 | c;
        value = value << 7 | (c & 0x7F);
        if ((c & 0x80) == 0) return value;
    }
    return value;
}

// A record of exactly two columns, a text then a blob, filling the payload to its last byte.
std::optional<std::pair<std::string_view, std::string_view>> parseRow(std::string_view payload) {
    std::size_t at = 0;
    const auto headerSize = varint(payload, at, payload.size());
    if (!headerSize || *headerSize < at || *headerSize > payload.size()) return std::nullopt;
    const auto headerEnd = static_cast<std::size_t>(*headerSize);
    const auto keyType = varint(payload, at, headerEnd);
    const auto valueType = varint(payload, at, headerEnd);
    if (!keyType || !valueType || at != headerEnd) return std::nullopt;
    // Serial types: an odd N >= 13 is text of (N-13)/2 bytes, an even N >= 12 a blob of (N-12)/2.
    if (*keyType < 13 || *keyType % 2 == 0 || *valueType < 12 || *valueType % 2 != 0) return std::nullopt;
    const std::uint64_t keySize = (*keyType - 13) / 2, valueSize = (*valueType - 12) / 2;
    if (keySize > payload.size() || valueSize > payload.size() || headerEnd + keySize + valueSize != payload.size())
        return std::nullopt;
    return std::pair{payload.substr(headerEnd, keySize), payload.substr(headerEnd + keySize, valueSize)};
}

class Scan {
public:
    Scan(std::string_view file, std::uint32_t fallbackPageSize) : file_(file) {
        const bool header = file.size() >= kFileHeaderSize && file.substr(0, kMagic.size()) == kMagic;
        std::uint32_t pageSize = header ? get2(file, 16) : 0;
        if (pageSize == 1) pageSize = 65536;  // how the header spells the largest size
        const std::uint32_t reserved = header ? byteAt(file, 20) : 0;
        header_ = header && validPageSize(pageSize) && pageSize - reserved >= 480;
        if (!header_) pageSize = validPageSize(fallbackPageSize) ? fallbackPageSize : SuitePageReader::kDefaultPageSize;
        pageSize_ = pageSize;
        usable_ = header_ ? pageSize - reserved : pageSize;
        completePages_ = static_cast<std::uint32_t>(file.size() / pageSize);
        const std::uint32_t filePages = completePages_ + (file.size() % pageSize != 0 ? 1 : 0);
        // SQLite trusts the header's page count only while the change counter matches its version stamp.
        const std::uint32_t headerPages = header_ && get4(file, 24) == get4(file, 92) ? get4(file, 28) : 0;
        pageCount_ = std::max(filePages, headerPages);
        kinds_.assign(std::size_t{completePages_} + 1, PageKind::Unknown);
    }

    SuitePageReader::Result run() {
        SuitePageReader::Result result;
        result.pageSize = pageSize_;
        result.pageCount = pageCount_;
        if (header_) markFreelist();
        std::vector<std::uint32_t> overflowHeads;
        for (std::uint32_t p = 1; p <= completePages_; ++p) {
            if (kinds_[p] == PageKind::Unknown) readTreePage(p, result, overflowHeads);
        }
        for (std::uint32_t head : overflowHeads) markChain(head, PageKind::Overflow);
        for (std::uint32_t p = 1; p <= completePages_; ++p) {
            result.freePages += kinds_[p] == PageKind::Free;
            result.unreadablePages += kinds_[p] == PageKind::Unknown;
        }
        result.unreadablePages += pageCount_ - completePages_;
        return result;
    }

private:
    bool inFile(std::uint32_t page) const { return page >= 1 && page <= completePages_; }
    std::string_view page(std::uint32_t p) const {
        return file_.substr(std::size_t{p - 1} * pageSize_, usable_);
    }

    // A chain of pages each naming the next in its first four bytes (overflow pages do this); stops at
    // the end, at a page outside the file or at a page already classified, which also ends any cycle.
    void markChain(std::uint32_t p, PageKind kind) {
        while (inFile(p) && kinds_[p] == PageKind::Unknown) {
            kinds_[p] = kind;
            p = get4(page(p), 0);
        }
    }

    // Trunk pages name the next trunk, then how many leaves follow, then the leaves.
    void markFreelist() {
        const std::uint32_t maxLeaves = usable_ / 4 - 2;
        for (std::uint32_t trunk = get4(file_, 32); trunk != 1 && inFile(trunk) && kinds_[trunk] == PageKind::Unknown;) {
            kinds_[trunk] = PageKind::Free;
            const std::string_view bytes = page(trunk);
            const std::uint32_t leaves = get4(bytes, 4);
            if (leaves > maxLeaves) return;
            for (std::uint32_t i = 0; i < leaves; ++i) {
                const std::uint32_t leaf = get4(bytes, 8 + std::size_t{i} * 4);
                if (leaf != 1 && inFile(leaf) && kinds_[leaf] == PageKind::Unknown) kinds_[leaf] = PageKind::Free;
            }
            trunk = get4(bytes, 0);
        }
    }

    void readTreePage(std::uint32_t p, SuitePageReader::Result& result, std::vector<std::uint32_t>& overflowHeads) {
        const std::string_view bytes = page(p);
        const std::size_t top = p == 1 ? kFileHeaderSize : 0;
        const std::uint32_t type = byteAt(bytes, top);
        const bool interior = type == 0x02 || type == 0x05;
        if (type != 0x02 && type != 0x05 && type != 0x0A && type != 0x0D) return;
        const std::size_t pointers = top + (interior ? 12 : 8);
        const std::uint32_t cells = get2(bytes, top + 3);
        const std::size_t pointersEnd = pointers + std::size_t{cells} * 2;
        if (pointersEnd > usable_) return;
        kinds_[p] = PageKind::Tree;
        if (type == 0x05 || type == 0x0D) return;  // a table b-tree: the schema, never a suite's rows

        // How much of a payload an index page keeps before spilling the rest to overflow pages.
        const std::size_t maxLocal = (usable_ - 12) * 64 / 255 - 23, minLocal = (usable_ - 12) * 32 / 255 - 23;
        for (std::uint32_t i = 0; i < cells; ++i) {
            std::size_t at = get2(bytes, pointers + std::size_t{i} * 2);
            if (at < pointersEnd || at >= usable_ || (interior && (at += 4) >= usable_)) {
                ++result.skippedCells;
                continue;
            }
            const auto payloadSize = varint(bytes, at, usable_);
            if (!payloadSize) {
                ++result.skippedCells;
                continue;
            }
            if (*payloadSize > maxLocal) {
                const std::uint64_t spill = minLocal + (*payloadSize - minLocal) % (usable_ - 4);
                const std::size_t local = spill <= maxLocal ? static_cast<std::size_t>(spill) : minLocal;
                if (at + local + 4 <= usable_) overflowHeads.push_back(get4(bytes, at + local));
                ++result.skippedCells;
                continue;
            }
            const auto size = static_cast<std::size_t>(*payloadSize);
            const auto row = at + size <= usable_ ? parseRow(bytes.substr(at, size)) : std::nullopt;
            if (!row) {
                ++result.skippedCells;
                continue;
            }
            result.rows.push_back({std::string(row->first), std::string(row->second), p});
        }
    }

    std::string_view file_;
    bool header_ = false;
    std::uint32_t pageSize_ = 0, usable_ = 0, completePages_ = 0, pageCount_ = 0;
    std::vector<PageKind> kinds_;  // by page number; [0] unused
};

}  // namespace

SuitePageReader::Result SuitePageReader::read(std::string_view file, std::uint32_t fallbackPageSize) {
    return Scan(file, fallbackPageSize).run();
}

SuitePageReader::Result SuitePageReader::readFile(const std::filesystem::path& path, std::uint32_t fallbackPageSize) {
    std::error_code ec;
    const std::uintmax_t size = std::filesystem::file_size(path, ec);
    std::ifstream in(path, std::ios::binary);
    if (ec || !in) return {};
    std::string bytes(static_cast<std::size_t>(std::min<std::uintmax_t>(size, kMaxFileSize)), '\0');
    in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<std::size_t>(in.gcount()));
    return read(bytes, fallbackPageSize);
}

}  // namespace nb
