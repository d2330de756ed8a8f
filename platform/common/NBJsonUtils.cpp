#include "nbbase/common/NBJsonUtils.h"

#include <curl/curl.h>
#include <rapidjson/encodings.h>
#include <rapidjson/memorystream.h>

#include <climits>
#include <string_view>
#include <utility>
#include <vector>

#include "nbbase/foundation/Json.h"
#include "nbbase/foundation/Url.h"

namespace nb {

namespace {

struct DiscardStream {
    void Put(char) noexcept {}
};

bool isValidUtf8(std::string_view s) noexcept {
    rapidjson::MemoryStream in(s.data(), s.size());
    DiscardStream discard;
    while (in.Tell() < s.size()) {
        if (!rapidjson::UTF8<>::Validate(in, discard)) return false;
    }
    return true;
}

// The decoded text, or the text as written when its decoding is not UTF-8 without NUL (or cannot be made).
std::string decodeComponent(std::string_view written) {
    if (written.find('%') == std::string_view::npos) return std::string(written);
    if (written.size() > static_cast<std::size_t>(INT_MAX)) return std::string(written);
    int length = 0;
    // The handle argument has been ignored since libcurl 7.82.
    char* decoded = curl_easy_unescape(nullptr, written.data(), static_cast<int>(written.size()), &length);
    if (decoded == nullptr) return std::string(written);
    std::string result(decoded, static_cast<std::size_t>(length));
    curl_free(decoded);
    if (result.find('\0') != std::string::npos || !isValidUtf8(result)) return std::string(written);
    return result;
}

}  // namespace

Value NBJsonUtils::dictionaryWithJsonString(const std::optional<std::string>& json) {
    if (!json || json->empty()) return Value();
    auto decoded = Json::decode(*json);
    if (!decoded || !decoded->isDictionary()) return Value();
    return std::move(*decoded);
}

Value NBJsonUtils::dictionaryWithURL(const std::optional<std::string>& url) {
    std::vector<Value::Dictionary::Entry> entries;
    const auto parsed = url ? Url::parse(*url) : std::nullopt;
    if (parsed && parsed->query()) {
        const std::string_view query = *parsed->query();
        std::size_t start = 0;
        while (start <= query.size()) {
            std::size_t end = query.find('&', start);
            if (end == std::string_view::npos) end = query.size();
            const std::string_view piece = query.substr(start, end - start);
            start = end + 1;
            if (piece.empty()) continue;
            const std::size_t equals = piece.find('=');
            const std::string_view name = piece.substr(0, equals);
            const std::string_view value =
                equals == std::string_view::npos ? std::string_view() : piece.substr(equals + 1);
            entries.emplace_back(decodeComponent(name), Value(decodeComponent(value)));
        }
    }
    return Value(Value::Dictionary::fromEntries(std::move(entries)));
}

}  // namespace nb
