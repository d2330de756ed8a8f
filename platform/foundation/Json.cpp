#include "nbbase/foundation/Json.h"

#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <cstdint>
#include <iterator>
#include <limits>
#include <utility>
#include <vector>

namespace nb {

namespace {

// Iterative: input depth never becomes stack depth. Numbers as strings: the reader checks their syntax and
// we convert them with from_chars, which rounds correctly (decoding what we encoded gives back the very same
// doubles) and, unlike RapidJSON 1.1's precise path, has no undefined behaviour on inputs such as "0e300".
constexpr unsigned kParseFlags =
    rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag | rapidjson::kParseNumbersAsStringsFlag;

enum class Refusal { None, Fragment, TooDeep, LoneSurrogate, NumberTooLarge };

// A JSON number (syntax already checked): int64 when it fits, else uint64, else a correctly rounded real.
// Empty when it lies beyond a double; a real too small for one becomes zero of its sign.
std::optional<Value> numberValue(const char* s, std::size_t length) {
    const char* end = s + length;
    if (std::find_if(s, end, [](char c) { return c == '.' || c == 'e' || c == 'E'; }) == end) {
        std::int64_t i = 0;
        if (std::from_chars(s, end, i).ec == std::errc()) return Value(static_cast<long long>(i));
        std::uint64_t u = 0;
        if (*s != '-' && std::from_chars(s, end, u).ec == std::errc()) return Value(static_cast<unsigned long long>(u));
    }
    double d = 0;
    const auto [ptr, ec] = std::from_chars(s, end, d);
    if (ec == std::errc::result_out_of_range) {
        // Value's own string conversion tells an overflow (infinity) from an underflow (zero).
        d = Value(std::string_view(s, length)).doubleValue();
        if (std::isinf(d)) return std::nullopt;
    } else if (ec != std::errc() || ptr != end) {
        return std::nullopt;
    }
    return Value(d);
}

// RapidJSON 1.1 validates the raw bytes but lets an escaped lone low surrogate ("\udc00") through, encoded
// as ED B0..BF xx, which is not UTF-8. Every other path to the handler is valid UTF-8, so looking for that
// one lead byte is enough, and memchr makes it nearly free.
bool hasEncodedSurrogate(const char* s, std::size_t length) noexcept {
    const char* end = s + length;
    while (const void* hit = std::memchr(s, 0xED, static_cast<std::size_t>(end - s))) {
        const char* p = static_cast<const char*>(hit);
        if (p + 1 < end && static_cast<unsigned char>(p[1]) >= 0xA0) return true;
        s = p + 1;
    }
    return false;
}

// Builds Values on explicit stacks as the reader reports them: finished elements wait on values_ (and
// object keys on keys_) until their container closes, then move into it in one go.
class ValueBuilder : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, ValueBuilder> {
public:
    explicit ValueBuilder(bool allowFragments) : allowFragments_(allowFragments) { values_.reserve(64); }

    bool Null() { return add(Value::null()); }
    bool Bool(bool b) { return add(Value(b)); }
    bool Int(int i) { return add(Value(i)); }
    bool Uint(unsigned u) { return add(Value(u)); }
    bool Int64(std::int64_t i) { return add(Value(static_cast<long long>(i))); }
    bool Uint64(std::uint64_t u) { return add(Value(static_cast<unsigned long long>(u))); }
    bool Double(double d) { return add(Value(d)); }
    bool RawNumber(const char* s, rapidjson::SizeType length, bool) {
        auto number = numberValue(s, length);
        return number ? add(std::move(*number)) : refuse(Refusal::NumberTooLarge);
    }
    bool String(const char* s, rapidjson::SizeType length, bool) {
        if (hasEncodedSurrogate(s, length)) return refuse(Refusal::LoneSurrogate);
        return add(Value(std::string(s, length)));
    }

    bool StartObject() { return open(); }
    bool Key(const char* s, rapidjson::SizeType length, bool) {
        if (hasEncodedSurrogate(s, length)) return refuse(Refusal::LoneSurrogate);
        keys_.emplace_back(s, length);
        return true;
    }
    bool EndObject(rapidjson::SizeType count) {
        std::vector<Value::Dictionary::Entry> entries;
        entries.reserve(count);
        const auto firstKey = keys_.end() - count;
        const auto firstValue = values_.end() - count;
        for (rapidjson::SizeType i = 0; i < count; ++i) {
            entries.emplace_back(std::move(firstKey[i]), std::move(firstValue[i]));
        }
        keys_.erase(firstKey, keys_.end());
        values_.erase(firstValue, values_.end());
        --depth_;
        values_.emplace_back(Value::Dictionary::fromEntries(std::move(entries)));
        return true;
    }

    bool StartArray() { return open(); }
    bool EndArray(rapidjson::SizeType count) {
        const auto first = values_.end() - count;
        Value::Array items(std::make_move_iterator(first), std::make_move_iterator(values_.end()));
        values_.erase(first, values_.end());
        --depth_;
        values_.emplace_back(std::move(items));
        return true;
    }

    Refusal refusal() const noexcept { return refusal_; }
    Value take() { return std::move(values_.back()); }

private:
    bool add(Value v) {
        if (depth_ == 0 && !allowFragments_) return refuse(Refusal::Fragment);
        values_.push_back(std::move(v));
        return true;
    }

    bool open() { return ++depth_ <= Json::kMaxDepth || refuse(Refusal::TooDeep); }

    bool refuse(Refusal why) {
        refusal_ = why;
        return false;
    }

    const bool allowFragments_;
    std::size_t depth_ = 0;
    Refusal refusal_ = Refusal::None;
    std::vector<Value> values_;
    std::vector<std::string> keys_;
};

void fail(Json::Error* error, std::size_t offset, std::string_view reason) {
    if (error == nullptr) return;
    error->offset = offset;
    error->message = "invalid JSON at offset " + std::to_string(offset) + ": " + std::string(reason);
}

// --- encoding ---------------------------------------------------------------------------------------

// The writers' own check (kWriteValidateEncodingFlag) cannot be used: the pretty writer of RapidJSON 1.1
// does not compile with write flags.
struct DiscardStream {
    void Put(char) noexcept {}
};

bool isValidUtf8(std::string_view s) noexcept {
    bool ascii = true;
    for (const char c : s) ascii &= static_cast<unsigned char>(c) < 0x80;
    if (ascii) return true;
    DiscardStream discard;
    rapidjson::MemoryStream in(s.data(), s.size());
    while (in.Tell() < s.size()) {
        if (!rapidjson::UTF8<>::Validate(in, discard)) return false;
    }
    return true;
}

template <typename Writer>
class Encoder {
public:
    explicit Encoder(Writer& writer) : writer_(writer) {}

    // On refusal, problem_ says what was refused and path_ where, built from the innermost level out.
    bool write(const Value& v, std::size_t depth) {
        switch (v.kind()) {
            case Value::Kind::Null: return writer_.Null();
            case Value::Kind::Bool: return writer_.Bool(v.boolValue());
            case Value::Kind::Integer:
                return v.isUnsigned() ? writer_.Uint64(v.unsignedLongLongValue()) : writer_.Int64(v.longLongValue());
            case Value::Kind::Real: {
                const double d = v.doubleValue();
                if (!std::isfinite(d)) return refuse("a non-finite real");
                return writer_.Double(d);
            }
            case Value::Kind::String: return writeString(*v.asString(), "a string that is not UTF-8");
            case Value::Kind::Array: {
                if (depth >= Json::kMaxDepth) return refuse("nesting deeper than 512");
                writer_.StartArray();
                std::size_t index = 0;
                for (const Value& item : *v.asArray()) {
                    if (!write(item, depth + 1)) {
                        path_.insert(0, "[" + std::to_string(index) + "]");
                        return false;
                    }
                    ++index;
                }
                return writer_.EndArray();
            }
            case Value::Kind::Dictionary: {
                if (depth >= Json::kMaxDepth) return refuse("nesting deeper than 512");
                writer_.StartObject();
                for (const auto& [key, item] : *v.asDictionary()) {
                    if (!writeString(key, "a key that is not UTF-8") || !write(item, depth + 1)) {
                        path_.insert(0, (depth == 0 ? "" : ".") + key);
                        return false;
                    }
                }
                return writer_.EndObject();
            }
            case Value::Kind::Absent:
            case Value::Kind::Data:
            case Value::Kind::Date: return refuse(std::string(v.isAbsent() ? "an " : "a ") + v.kindName());
        }
        return refuse("an unknown kind");
    }

    const std::string& problem() const noexcept { return problem_; }
    const std::string& path() const noexcept { return path_; }

private:
    bool writeString(const std::string& s, const char* problem) {
        if (s.size() > std::numeric_limits<rapidjson::SizeType>::max()) return refuse("a string over 4 GiB");
        if (!isValidUtf8(s)) return refuse(problem);
        return writer_.String(s.data(), static_cast<rapidjson::SizeType>(s.size()));
    }

    bool refuse(std::string problem) {
        if (problem_.empty()) problem_ = std::move(problem);
        return false;
    }

    Writer& writer_;
    std::string problem_;
    std::string path_;
};

template <typename Writer>
std::optional<std::string> encodeWith(const Value& value, Json::Error* error, bool pretty) {
    rapidjson::StringBuffer buffer;
    Writer writer(buffer);
    if constexpr (requires { writer.SetIndent(' ', 2); }) {
        if (pretty) writer.SetIndent(' ', 2);
    }
    Encoder<Writer> encoder(writer);
    if (!encoder.write(value, 0)) {
        if (error != nullptr) {
            error->offset = 0;
            error->message = "cannot write as JSON: " + encoder.problem() +
                             (encoder.path().empty() ? std::string() : " at " + encoder.path());
        }
        return std::nullopt;
    }
    return std::string(buffer.GetString(), buffer.GetSize());
}

}  // namespace

std::optional<Value> Json::decode(std::string_view text, DecodeOptions options, Error* error) {
    std::size_t start = 0;
    if (text.substr(0, 3) == "\xEF\xBB\xBF") start = 3;
    // The reader counts string lengths in 32 bits.
    if (text.size() > std::numeric_limits<rapidjson::SizeType>::max()) {
        fail(error, 0, "input over 4 GiB");
        return std::nullopt;
    }
    rapidjson::MemoryStream stream(text.data() + start, text.size() - start);
    ValueBuilder builder(options.allowFragments);
    rapidjson::Reader reader;
    const rapidjson::ParseResult result = reader.Parse<kParseFlags>(stream, builder);
    if (result.IsError()) {
        const std::size_t offset = start + result.Offset();
        switch (builder.refusal()) {
            case Refusal::Fragment:
                fail(error, offset, "a bare value at the top where an object or array was expected");
                break;
            case Refusal::TooDeep: fail(error, offset, "nesting deeper than 512"); break;
            case Refusal::LoneSurrogate: fail(error, offset, "an escaped UTF-16 surrogate without its pair"); break;
            case Refusal::NumberTooLarge: fail(error, offset, "a number too large for a double"); break;
            case Refusal::None: fail(error, offset, rapidjson::GetParseError_En(result.Code())); break;
        }
        return std::nullopt;
    }
    // The reader takes a NUL byte for the end of input: whatever follows one is trailing garbage too.
    if (start + stream.Tell() != text.size()) {
        fail(error, start + stream.Tell(), "unexpected data after the value");
        return std::nullopt;
    }
    return builder.take();
}

std::optional<Value> Json::decode(const nb::Data& bytes, DecodeOptions options, Error* error) {
    return decode(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()), options, error);
}

std::optional<std::string> Json::encode(const Value& value, Style style, Error* error) {
    if (style == Style::Pretty) return encodeWith<rapidjson::PrettyWriter<rapidjson::StringBuffer>>(value, error, true);
    return encodeWith<rapidjson::Writer<rapidjson::StringBuffer>>(value, error, false);
}

}  // namespace nb
