// nb::Value: the object model shared by every parser, the settings suite and the models.
//
// A Value is one of: absent (nil), null, bool, integer (int64, or uint64 above INT64_MAX), real, string
// (UTF-8), data (bytes), date, array or dictionary (string keys, insertion order kept). Absent and null
// differ: looking up a missing key answers absent; JSON null is the null value.
//
// The conversions (intValue, boolValue, stringValue, ...) follow the Foundation rules the servers' JSON
// was written against, so that "12abc" is 12 and "YES" is true wherever a model asks for a number or a
// flag. They never fail: a value of another kind converts to 0, false or "".
//
// Containers are shared copy-on-write: copying a Value is cheap, and mutating one copy never changes
// another. A Value is not synchronised; distinct Values may be used on distinct threads freely, even
// when they share a container, and one Value may be read from many threads at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

namespace nb {

using Data = std::vector<std::uint8_t>;

// A point in time, in seconds since 1970-01-01 UTC.
struct Date {
    double secondsSince1970 = 0;
    friend bool operator==(const Date&, const Date&) = default;
};

class Value {
public:
    enum class Kind : std::uint8_t { Absent, Null, Bool, Integer, Real, String, Data, Date, Array, Dictionary };

    using Array = std::vector<Value>;
    class Dictionary;

    Value() noexcept = default;  // absent
    static Value null();

    Value(bool b) noexcept;
    Value(int i) noexcept;
    Value(long i) noexcept;
    Value(long long i) noexcept;
    Value(unsigned i) noexcept;
    Value(unsigned long u) noexcept;       // stays unsigned only above INT64_MAX
    Value(unsigned long long u) noexcept;  // idem
    Value(double d) noexcept;
    Value(const char* s);  // a null pointer is absent
    Value(std::string_view s);
    Value(std::string s);
    Value(nb::Data d);
    Value(nb::Date d) noexcept;
    Value(Array a);
    Value(Dictionary d);
    Value(std::nullptr_t) = delete;  // ambiguous: say Value() for absent or Value::null()

    static Value array(std::initializer_list<Value> items);
    static Value dictionary(std::initializer_list<std::pair<std::string, Value>> entries);

    Kind kind() const noexcept;
    const char* kindName() const noexcept;  // for log lines and error messages

    bool isAbsent() const noexcept { return kind() == Kind::Absent; }
    bool isNull() const noexcept { return kind() == Kind::Null; }
    bool isBool() const noexcept { return kind() == Kind::Bool; }
    bool isInteger() const noexcept { return kind() == Kind::Integer; }
    bool isReal() const noexcept { return kind() == Kind::Real; }
    bool isNumber() const noexcept;  // bool, integer or real: what Foundation calls a number
    bool isString() const noexcept { return kind() == Kind::String; }
    bool isData() const noexcept { return kind() == Kind::Data; }
    bool isDate() const noexcept { return kind() == Kind::Date; }
    bool isArray() const noexcept { return kind() == Kind::Array; }
    bool isDictionary() const noexcept { return kind() == Kind::Dictionary; }
    bool isUnsigned() const noexcept;  // an integer above INT64_MAX

    // The value itself when it is of that kind, else nullptr. The pointer lives as long as this Value
    // is neither destroyed nor assigned.
    const std::string* asString() const noexcept;
    const nb::Data* asData() const noexcept;
    const nb::Date* asDate() const noexcept;
    const Array* asArray() const noexcept;
    const Dictionary* asDictionary() const noexcept;

    // Foundation conversions.
    std::int32_t intValue() const noexcept;
    std::int64_t longLongValue() const noexcept;
    std::int64_t integerValue() const noexcept { return longLongValue(); }
    std::uint64_t unsignedLongLongValue() const noexcept;
    bool boolValue() const noexcept;
    double doubleValue() const noexcept;
    float floatValue() const noexcept { return static_cast<float>(doubleValue()); }
    // A string as itself; a number in decimal (reals in the shortest form that reads back the same,
    // bools as 1 or 0); any other kind "".
    std::string stringValue() const;
    // How a reply's text field reads where nil and "" differ: a string as itself, a number as its string
    // value, nullopt for every other kind (absent, null, data, date, containers).
    std::optional<std::string> textValue() const;
    // What a "%@" prints: strings as themselves, numbers as their string value, absent as "(null)",
    // null as "<null>", data, dates and containers in a readable form.
    std::string description() const;

    // Lookups answer an absent Value when this is not a container or the key or index is missing, so
    // chains such as reply["data"]["list"][0] are safe.
    const Value& operator[](std::string_view key) const noexcept;
    const Value& operator[](std::size_t index) const noexcept;
    bool contains(std::string_view key) const noexcept;
    std::size_t size() const noexcept;  // elements of an array or dictionary, else 0

    // Mutation, copy-on-write. set() with an absent value removes the key; append() ignores an absent
    // value (as a Foundation array cannot hold nil). On a value that is not a dictionary (or array),
    // set (or append) turns it into an empty one first.
    void set(std::string key, Value value);
    bool remove(std::string_view key);
    void append(Value value);
    Array& mutableArray();            // makes this an array if it is not one
    Dictionary& mutableDictionary();  // makes this a dictionary if it is not one

    // Numbers compare by value (true equals 1, 2 equals 2.0); a number never equals a string;
    // containers compare deeply, dictionaries regardless of order.
    friend bool operator==(const Value& a, const Value& b) noexcept;

private:
    struct Null {
        friend bool operator==(Null, Null) = default;
    };
    using Storage = std::variant<std::monostate, Null, bool, std::int64_t, std::uint64_t, double, std::string,
                                 nb::Data, nb::Date, std::shared_ptr<Array>, std::shared_ptr<Dictionary>>;
    Storage storage_;
};

// String-keyed map that keeps insertion order. Setting an existing key replaces its value in place.
// Large dictionaries keep a hash index so lookups stay constant-time.
class Value::Dictionary {
public:
    using Entry = std::pair<std::string, Value>;
    using const_iterator = std::vector<Entry>::const_iterator;

    Dictionary() = default;
    Dictionary(std::initializer_list<Entry> entries);
    // Builds from entries in order; of a repeated key the last value wins, at the first key's place.
    static Dictionary fromEntries(std::vector<Entry> entries);

    std::size_t size() const noexcept { return entries_.size(); }
    bool empty() const noexcept { return entries_.empty(); }
    const_iterator begin() const noexcept { return entries_.begin(); }
    const_iterator end() const noexcept { return entries_.end(); }

    const Value* find(std::string_view key) const noexcept;  // nullptr when missing
    const Value& get(std::string_view key) const noexcept;   // absent when missing
    bool contains(std::string_view key) const noexcept { return find(key) != nullptr; }
    Value* findMutable(std::string_view key) noexcept;

    void set(std::string key, Value value);  // an absent value removes the key
    bool erase(std::string_view key);

    friend bool operator==(const Dictionary& a, const Dictionary& b) noexcept;

private:
    struct KeyHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view s) const noexcept { return std::hash<std::string_view>{}(s); }
    };
    static constexpr std::size_t kIndexThreshold = 16;
    std::ptrdiff_t indexOf(std::string_view key) const noexcept;
    void rebuildIndex();

    std::vector<Entry> entries_;
    std::unordered_map<std::string, std::size_t, KeyHash, std::equal_to<>> index_;  // only when large
};

}  // namespace nb
