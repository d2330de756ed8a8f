// InterestFields: the keys of one interest element (an element of "having", "available_present" or
// "no_having") that the records read, each nullptr when the element lacks it.
//
// The records are built from these fields alone, so a decoded element (of()) and a reader that captures
// the keys as it streams a reply build the very same record by one set of rules. The pointers borrow:
// the Values they point to must outlive the build.
//
// Threads: a plain value; no synchronisation.
#pragma once

#include <string>
#include <string_view>

#include "nbbase/foundation/Value.h"

namespace nb {

struct InterestFields {
    const Value* type = nullptr;
    const Value* endTime = nullptr;
    const Value* extraData = nullptr;
    const Value* productId = nullptr;
    const Value* productName = nullptr;
    const Value* property = nullptr;
    const Value* expireTime = nullptr;

    // The fields of a decoded element; an element that is not a dictionary has none.
    static InterestFields of(const Value& element) noexcept;

    // The field's value, absent when missing.
    static const Value& value(const Value* field) noexcept;
    // "extra_data" as text by Value's conversion ("" when missing). A string is borrowed, anything else
    // converted into `holder`.
    std::string_view extraDataText(std::string& holder) const;
};

}  // namespace nb
