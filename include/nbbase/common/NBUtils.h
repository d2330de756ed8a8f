// NBUtils: small services of the companion library that describe the build.
//
// Threads: every function may be called on any thread. Nothing fails: a missing value answers the default.
#pragma once

#include <string>

namespace nb {

class MainBundle;

class NBUtils {
public:
    // The distribution pay channel of this build: the main bundle's information-dictionary string
    // "NIMBOPayChannel" when it is a non-empty string, else the channel the library was built with
    // (the CMake cache variable NBBASE_DEFAULT_PAY_CHANNEL, "" unless the packager set it).
    static std::string getPayChannel();
    static std::string getPayChannel(const MainBundle& bundle);

    // The application's version as users see it: the main bundle's "CFBundleShortVersionString", "" when
    // it has none.
    static std::string appVersion();
    static std::string appVersion(const MainBundle& bundle);
};

}  // namespace nb
