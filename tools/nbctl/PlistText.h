// Renders Values the way a `defaults` user expects to read them: an old-style property list, strings
// unquoted when they are plain words, nested containers indented by four spaces.
#pragma once

#include <string>

#include "nbbase/foundation/Value.h"

namespace nb::nbctl {

class PlistText {
public:
    static std::string format(const Value& value);

    // JSON cannot hold data or dates: data becomes its hex description ("<0a1b2c3d>"), dates ISO 8601 text.
    static Value jsonSafe(const Value& value);

    static std::string isoDate(const Date& date);

    // The word `defaults read-type` prints after "Type is ": string, integer, float, boolean, array,
    // dictionary, data or date. nullptr for absent and null, which no suite can hold.
    static const char* typeName(const Value& value);
};

}  // namespace nb::nbctl
