// nb::JsonValueBuilder: the JsonEvents handler behind Json::decode, which turns the events into one Value.
//
// Values wait on explicit stacks until their container closes, so depth never becomes recursion. A builder
// may also be fed the events of one value in the middle of a longer read (a reader that keeps only some
// subtrees of a document): after the value's last event, take() hands it out and leaves the builder empty
// for the next one.
//
// Threads: not synchronised; use one builder on one thread at a time.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "nbbase/foundation/JsonEvents.h"
#include "nbbase/foundation/Value.h"

namespace nb {

class JsonValueBuilder final : public JsonEvents {
public:
    JsonValueBuilder();

    bool null() override;
    bool boolean(bool b) override;
    bool number(Value number) override;
    bool string(std::string_view s) override;
    bool key(std::string_view key) override;
    bool startObject() override;
    bool endObject(std::size_t memberCount) override;
    bool startArray() override;
    bool endArray(std::size_t elementCount) override;

    // The finished value (absent when none was built); the builder is empty afterwards.
    [[nodiscard]] Value take();

private:
    std::vector<Value> values_;
    std::vector<std::string> keys_;
};

}  // namespace nb
