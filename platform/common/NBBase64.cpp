#include "nbbase/common/NBBase64.h"

#include <algorithm>
#include <cstdint>

#include <openssl/evp.h>

namespace nb {

namespace {

// OpenSSL counts in int: long inputs go through in slices of whole groups (3 bytes to 4 characters).
constexpr std::size_t kGroupsPerSlice = std::size_t{1} << 20;

bool inAlphabet(char c) noexcept {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
}

}  // namespace

std::string NBBase64::base64StringFromData(const Data& data) {
    const std::size_t length = 4 * ((data.size() + 2) / 3);
    // One more for the terminating zero that EVP_EncodeBlock writes.
    std::string text(length + 1, '\0');
    auto* output = reinterpret_cast<unsigned char*>(text.data());
    for (std::size_t offset = 0; offset < data.size(); offset += 3 * kGroupsPerSlice) {
        const std::size_t slice = std::min(3 * kGroupsPerSlice, data.size() - offset);
        output += EVP_EncodeBlock(output, data.data() + offset, static_cast<int>(slice));
    }
    text.resize(length);
    return text;
}

std::optional<Data> NBBase64::dataFromBase64String(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    // EVP_DecodeBlock is lenient: it trims white space and reads "=" as a zero digit wherever it stands,
    // so the shape is checked here first.
    std::size_t padding = 0;
    while (padding < 2 && padding < text.size() && text[text.size() - 1 - padding] == '=') ++padding;
    if (!std::all_of(text.begin(), text.end() - static_cast<std::ptrdiff_t>(padding), inAlphabet)) return std::nullopt;

    Data data(text.size() / 4 * 3);
    auto* output = data.data();
    for (std::size_t offset = 0; offset < text.size(); offset += 4 * kGroupsPerSlice) {
        const std::size_t slice = std::min(4 * kGroupsPerSlice, text.size() - offset);
        const int written = EVP_DecodeBlock(output, reinterpret_cast<const unsigned char*>(text.data() + offset),
                                            static_cast<int>(slice));
        if (written < 0) return std::nullopt;
        output += written;
    }
    // The padding decoded as zero bytes; they hold the last digit's unused bits, which must be zero for
    // the text to be the one encoding of its data.
    const auto tail = data.end() - static_cast<std::ptrdiff_t>(padding);
    if (std::any_of(tail, data.end(), [](std::uint8_t b) { return b != 0; })) return std::nullopt;
    data.erase(tail, data.end());
    return data;
}

}  // namespace nb
