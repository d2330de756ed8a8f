// nb::Size: a width and a height in points, as the settings and the host's windows exchange them.
#pragma once

namespace nb {

struct Size {
    double width = 0;
    double height = 0;
    friend bool operator==(const Size&, const Size&) = default;
};

}  // namespace nb
