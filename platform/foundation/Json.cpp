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

#include "nbbase/foundation/JsonValueBuilder.h"

namespace nb {

namespace {

// Iterative: input depth never becomes stack depth. Numbers as strings: the reader checks their syntax and
// we convert them with from_chars, which rounds correctly (decoding what we encoded gives back the very same
// doubles) and, unlike RapidJSON 1.1's precise path, has no undefined behaviour on inputs such as "0e300".
constexpr unsigned kParseFlags =
    rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag | rapidjson::kParseNumbersAsStringsFlag;

enum class Refusal { None, Fragment, TooDeep, LoneSurrogate, NumberTooLarge, Stopped };

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

// Turns the reader's calls into JsonEvents after the checks every reader of JSON gets: the fragment rule, the
// depth limit, lone surrogates and number conversion. A template so that Json::decode, which knows its
// final handler, pays no virtual call per event.
template <typename Events>
class EventAdapter : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, EventAdapter<Events>> {
public:
    EventAdapter(Events& events, bool allowFragments) : events_(events), allowFragments_(allowFragments) {}

    bool Null() { return scalar() && report(events_.null()); }
    bool Bool(bool b) { return scalar() && report(events_.boolean(b)); }
    bool RawNumber(const char* s, rapidjson::SizeType length, bool) {
        auto number = numberValue(s, length);
        if (!number) return refuse(Refusal::NumberTooLarge);
        return scalar() && report(events_.number(std::move(*number)));
    }
    bool String(const char* s, rapidjson::SizeType length, bool) {
        if (hasEncodedSurrogate(s, length)) return refuse(Refusal::LoneSurrogate);
        return scalar() && report(events_.string(std::string_view(s, length)));
    }

    bool StartObject() { return open() && report(events_.startObject()); }
    bool Key(const char* s, rapidjson::SizeType length, bool) {
        if (hasEncodedSurrogate(s, length)) return refuse(Refusal::LoneSurrogate);
        return report(events_.key(std::string_view(s, length)));
    }
    bool EndObject(rapidjson::SizeType count) {
        --depth_;
        return report(events_.endObject(count));
    }

    bool StartArray() { return open() && report(events_.startArray()); }
    bool EndArray(rapidjson::SizeType count) {
        --depth_;
        return report(events_.endArray(count));
    }

    Refusal refusal() const noexcept { return refusal_; }

private:
    bool scalar() { return depth_ > 0 || allowFragments_ || refuse(Refusal::Fragment); }
    bool open() { return ++depth_ <= Json::kMaxDepth || refuse(Refusal::TooDeep); }
    bool report(bool carryOn) { return carryOn || refuse(Refusal::Stopped); }

    bool refuse(Refusal why) {
        refusal_ = why;
        return false;
    }

    Events& events_;
    const bool allowFragments_;
    std::size_t depth_ = 0;
    Refusal refusal_ = Refusal::None;
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

template <typename Events>
bool readWith(std::string_view text, Json::DecodeOptions options, Events& events, Json::Error* error) {
    std::size_t start = 0;
    if (text.substr(0, 3) == "\xEF\xBB\xBF") start = 3;
    // The reader counts string lengths in 32 bits.
    if (text.size() > std::numeric_limits<rapidjson::SizeType>::max()) {
        fail(error, 0, "input over 4 GiB");
        return false;
    }
    rapidjson::MemoryStream stream(text.data() + start, text.size() - start);
    EventAdapter<Events> adapter(events, options.allowFragments);
    rapidjson::Reader reader;
    const rapidjson::ParseResult result = reader.Parse<kParseFlags>(stream, adapter);
    if (result.IsError()) {
        const std::size_t offset = start + result.Offset();
        switch (adapter.refusal()) {
            case Refusal::Fragment:
                fail(error, offset, "a bare value at the top where an object or array was expected");
                break;
            case Refusal::TooDeep: fail(error, offset, "nesting deeper than 512"); break;
            case Refusal::LoneSurrogate: fail(error, offset, "an escaped UTF-16 surrogate without its pair"); break;
            case Refusal::NumberTooLarge: fail(error, offset, "a number too large for a double"); break;
            case Refusal::Stopped: fail(error, offset, "stopped by the reader"); break;
            case Refusal::None: fail(error, offset, rapidjson::GetParseError_En(result.Code())); break;
        }
        return false;
    }
    // The reader takes a NUL byte for the end of input: whatever follows one is trailing garbage too.
    if (start + stream.Tell() != text.size()) {
        fail(error, start + stream.Tell(), "unexpected data after the value");
        return false;
    }
    return true;
}

// Keeps the value of one member of the top-level object; a JsonValueBuilder builds it when it is a
// container. Everything else is only checked by the read.
class MemberReader final : public JsonEvents {
public:
    explicit MemberReader(std::string_view key) : key_(key) {}

    bool null() override { return building_ > 0 ? builder_.null() : scalar(Value::null()); }
    bool boolean(bool b) override { return building_ > 0 ? builder_.boolean(b) : scalar(Value(b)); }
    bool number(Value number) override {
        return building_ > 0 ? builder_.number(std::move(number)) : scalar(std::move(number));
    }
    bool string(std::string_view s) override {
        if (building_ > 0) return builder_.string(s);
        return scalar(wanted_ ? Value(std::string(s)) : Value());
    }
    bool key(std::string_view key) override {
        if (building_ > 0) return builder_.key(key);
        wanted_ = depth_ == 1 && topIsObject_ && key == key_;
        return true;
    }
    bool startObject() override { return start(true); }
    bool endObject(std::size_t count) override { return end(true, count); }
    bool startArray() override { return start(false); }
    bool endArray(std::size_t count) override { return end(false, count); }

    Value take() { return std::move(member_); }

private:
    bool scalar(Value value) {
        if (wanted_) member_ = std::move(value);
        wanted_ = false;
        return true;
    }
    bool start(bool object) {
        if (building_ == 0 && !wanted_) {
            if (depth_++ == 0) topIsObject_ = object;
            return true;
        }
        wanted_ = false;
        ++building_;
        return object ? builder_.startObject() : builder_.startArray();
    }
    bool end(bool object, std::size_t count) {
        if (building_ == 0) {
            --depth_;
            return true;
        }
        const bool carryOn = object ? builder_.endObject(count) : builder_.endArray(count);
        if (--building_ == 0) member_ = builder_.take();
        return carryOn;
    }

    const std::string_view key_;
    std::size_t depth_ = 0;     // containers open outside the member
    std::size_t building_ = 0;  // containers open inside the member
    bool topIsObject_ = false;
    bool wanted_ = false;  // the next value is the member's
    JsonValueBuilder builder_;
    Value member_;
};

}  // namespace

bool Json::read(std::string_view text, DecodeOptions options, JsonEvents& events, Error* error) {
    return readWith(text, options, events, error);
}

std::optional<Value> Json::decode(std::string_view text, DecodeOptions options, Error* error) {
    JsonValueBuilder builder;
    if (!readWith(text, options, builder, error)) return std::nullopt;
    return builder.take();
}

std::optional<Value> Json::decodeMember(std::string_view text, std::string_view key, DecodeOptions options,
                                       Error* error) {
    MemberReader reader(key);
    if (!readWith(text, options, reader, error)) return std::nullopt;
    return reader.take();
}

std::optional<Value> Json::decode(const nb::Data& bytes, DecodeOptions options, Error* error) {
    return decode(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()), options, error);
}

std::optional<std::string> Json::encode(const Value& value, Style style, Error* error) {
    if (style == Style::Pretty) return encodeWith<rapidjson::PrettyWriter<rapidjson::StringBuffer>>(value, error, true);
    return encodeWith<rapidjson::Writer<rapidjson::StringBuffer>>(value, error, false);
}

}  // namespace nb
