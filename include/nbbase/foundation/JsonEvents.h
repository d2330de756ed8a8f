// nb::JsonEvents: what Json::read reports while it walks a JSON text, for readers that build their own
// result instead of a Value tree.
//
// Json::read has already applied every check of Json::decode when a call arrives: strings and keys are
// valid UTF-8, numbers are converted by the same rules (an int64, uint64 or real Value), nesting stays
// within Json::kMaxDepth and a bare scalar at the top only comes with allowFragments. A string or key is
// only valid during the call. endObject and endArray give the number of members or elements just closed.
// Answering false stops the read, which then fails with "stopped by the reader".
//
// Threads: a handler is called on the thread that called Json::read, and only during that call.
#pragma once

#include <cstddef>
#include <string_view>

#include "nbbase/foundation/Value.h"

namespace nb {

class JsonEvents {
public:
    virtual ~JsonEvents() = default;

    virtual bool null() = 0;
    virtual bool boolean(bool b) = 0;
    virtual bool number(Value number) = 0;
    virtual bool string(std::string_view s) = 0;
    virtual bool key(std::string_view key) = 0;
    virtual bool startObject() = 0;
    virtual bool endObject(std::size_t memberCount) = 0;
    virtual bool startArray() = 0;
    virtual bool endArray(std::size_t elementCount) = 0;

protected:
    JsonEvents() = default;
    JsonEvents(const JsonEvents&) = default;
    JsonEvents& operator=(const JsonEvents&) = default;
};

}  // namespace nb
