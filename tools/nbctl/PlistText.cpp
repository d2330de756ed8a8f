#include "PlistText.h"

#include <cmath>
#include <ctime>

#include <fmt/format.h>

namespace nb::nbctl {

namespace {

bool isPlainWord(const std::string& s) {
    if (s.empty()) return false;
    for (unsigned char c : s) {
        if (!(std::isalnum(c) || c == '_' || c == '.' || c == '-' || c == '/' || c == ':' || c >= 0x80)) return false;
    }
    return true;
}

std::string quoted(const std::string& s) {
    std::string out = "\"";
    for (char c : s) {
        switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\t': out += "\\t"; break;
            default: out += c;
        }
    }
    return out + "\"";
}

std::string key(const std::string& s) { return isPlainWord(s) ? s : quoted(s); }

void append(std::string& out, const Value& v, int depth) {
    const std::string pad(static_cast<std::size_t>(depth) * 4, ' ');
    const std::string inner(static_cast<std::size_t>(depth + 1) * 4, ' ');
    switch (v.kind()) {
        case Value::Kind::String: out += key(*v.asString()); break;
        case Value::Kind::Date: out += quoted(PlistText::isoDate(*v.asDate())); break;
        case Value::Kind::Array: {
            if (v.size() == 0) { out += "()"; break; }
            out += "(\n";
            for (std::size_t i = 0; i < v.size(); ++i) {
                out += inner;
                append(out, v[i], depth + 1);
                out += i + 1 < v.size() ? ",\n" : "\n";
            }
            out += pad + ")";
            break;
        }
        case Value::Kind::Dictionary: {
            if (v.size() == 0) { out += "{}"; break; }
            out += "{\n";
            for (const auto& [k, item] : *v.asDictionary()) {
                out += inner + key(k) + " = ";
                append(out, item, depth + 1);
                out += ";\n";
            }
            out += pad + "}";
            break;
        }
        default: out += v.description();
    }
}

}  // namespace

std::string PlistText::format(const Value& value) {
    std::string out;
    append(out, value, 0);
    return out;
}

std::string PlistText::isoDate(const Date& date) {
    const auto seconds = static_cast<std::time_t>(std::floor(date.secondsSince1970));
    std::tm tm{};
    gmtime_r(&seconds, &tm);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday,
                       tm.tm_hour, tm.tm_min, tm.tm_sec);
}

const char* PlistText::typeName(const Value& value) {
    switch (value.kind()) {
        case Value::Kind::String: return "string";
        case Value::Kind::Integer: return "integer";
        case Value::Kind::Real: return "float";
        case Value::Kind::Bool: return "boolean";
        case Value::Kind::Array: return "array";
        case Value::Kind::Dictionary: return "dictionary";
        case Value::Kind::Data: return "data";
        case Value::Kind::Date: return "date";
        case Value::Kind::Absent:
        case Value::Kind::Null: return nullptr;
    }
    return nullptr;
}

Value PlistText::jsonSafe(const Value& value) {
    switch (value.kind()) {
        case Value::Kind::Data: return Value(value.description());
        case Value::Kind::Date: return Value(isoDate(*value.asDate()));
        case Value::Kind::Array: {
            Value out(Value::Array{});
            for (const Value& item : *value.asArray()) out.append(jsonSafe(item));
            return out;
        }
        case Value::Kind::Dictionary: {
            Value out(Value::Dictionary{});
            for (const auto& [k, item] : *value.asDictionary()) out.set(k, jsonSafe(item));
            return out;
        }
        default: return value;
    }
}

}  // namespace nb::nbctl
