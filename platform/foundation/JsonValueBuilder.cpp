#include "nbbase/foundation/JsonValueBuilder.h"

#include <iterator>
#include <utility>

namespace nb {

JsonValueBuilder::JsonValueBuilder() = default;

bool JsonValueBuilder::null() {
    values_.push_back(Value::null());
    return true;
}

bool JsonValueBuilder::boolean(bool b) {
    values_.emplace_back(b);
    return true;
}

bool JsonValueBuilder::number(Value number) {
    values_.push_back(std::move(number));
    return true;
}

bool JsonValueBuilder::string(std::string_view s) {
    values_.emplace_back(std::string(s));
    return true;
}

bool JsonValueBuilder::key(std::string_view key) {
    keys_.emplace_back(key);
    return true;
}

bool JsonValueBuilder::startObject() { return true; }

// Finished members wait on values_ (and their keys on keys_) and move into their container in one go.
bool JsonValueBuilder::endObject(std::size_t memberCount) {
    const auto count = static_cast<std::ptrdiff_t>(memberCount);
    std::vector<Value::Dictionary::Entry> entries;
    entries.reserve(memberCount);
    const auto firstKey = keys_.end() - count;
    const auto firstValue = values_.end() - count;
    for (std::ptrdiff_t i = 0; i < count; ++i) entries.emplace_back(std::move(firstKey[i]), std::move(firstValue[i]));
    keys_.erase(firstKey, keys_.end());
    values_.erase(firstValue, values_.end());
    values_.emplace_back(Value::Dictionary::fromEntries(std::move(entries)));
    return true;
}

bool JsonValueBuilder::startArray() { return true; }

bool JsonValueBuilder::endArray(std::size_t elementCount) {
    const auto first = values_.end() - static_cast<std::ptrdiff_t>(elementCount);
    Value::Array items(std::make_move_iterator(first), std::make_move_iterator(values_.end()));
    values_.erase(first, values_.end());
    values_.emplace_back(std::move(items));
    return true;
}

Value JsonValueBuilder::take() {
    if (values_.empty()) return {};
    Value value = std::move(values_.back());
    values_.clear();
    keys_.clear();
    return value;
}

}  // namespace nb
