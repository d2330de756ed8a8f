// Feeds arbitrary bytes to the property-list reader (XML and binary are told apart by the first bytes,
// so one target covers both). Whatever parses must also write back and read again without failing,
// except where the value holds something write() documents as refused.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "nbbase/foundation/PropertyList.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view bytes(reinterpret_cast<const char*>(data), size);
    nb::Value value = nb::PropertyList::read(bytes);
    if (value.isAbsent()) return 0;
    for (auto format : {nb::PropertyList::Format::Binary, nb::PropertyList::Format::Xml}) {
        auto written = nb::PropertyList::write(value, format);
        if (!written) continue;  // e.g. a date outside libplist's 32-bit range, or an embedded NUL
        nb::Value again = nb::PropertyList::read(*written);
        if (again.isAbsent()) std::abort();  // our own output must always read back
    }
    return 0;
}
