#include "nbbase/common/NBBase64.h"

#include <string>

#include <gtest/gtest.h>
#include <openssl/evp.h>

namespace {

using nb::Data;
using nb::NBBase64;

Data bytes(std::string_view text) { return Data(text.begin(), text.end()); }

TEST(NBBase64, Rfc4648VectorsBothWays) {
    const std::pair<std::string, std::string> vectors[] = {
        {"", ""},         {"f", "Zg=="},         {"fo", "Zm8="},         {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}, {"\xfb\xff", "+/8="},
    };
    for (const auto& [plain, encoded] : vectors) {
        EXPECT_EQ(NBBase64::base64StringFromData(bytes(plain)), encoded);
        EXPECT_EQ(NBBase64::dataFromBase64String(encoded), bytes(plain)) << encoded;
    }
}

// OpenSSL counts in int, so long texts go through in slices: the slices must join up seamlessly.
TEST(NBBase64, LongDataMatchesOneOpenSslCall) {
    Data data(3 * (1u << 20) + 2);
    for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<std::uint8_t>(i * 131 + (i >> 10));
    std::string whole(4 * ((data.size() + 2) / 3) + 1, '\0');
    whole.resize(static_cast<std::size_t>(
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(whole.data()), data.data(), static_cast<int>(data.size()))));

    const std::string encoded = NBBase64::base64StringFromData(data);
    EXPECT_EQ(encoded, whole);
    EXPECT_EQ(NBBase64::dataFromBase64String(encoded), data);
}

TEST(NBBase64, StrictDecoderRefuses) {
    const std::string_view refused[] = {
        "Zg", "Zg=", "Zm9vY", "Zg===", "====", "Z===", "Zg==Zg==", "Zm=v",  // shape and padding
        "Zh==", "Zm9=",                                                    // stray bits before the padding
        "Zm9v    ", "    Zm9v", "Zm9v\nYmE", "Zm 9vYmE",                   // white space
        "-_8=", std::string_view("Zm\0v", 4), "Zm9\xc3",                   // outside the alphabet
    };
    for (const std::string_view text : refused) {
        EXPECT_EQ(NBBase64::dataFromBase64String(text), std::nullopt) << text;
    }
}

}  // namespace
