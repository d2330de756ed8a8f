// nb::PreferredLanguages: the user's preferred languages, most preferred first, as the platform lists them.
//
// On Linux the locale variables stand in for the platform's list: every entry of LANGUAGE (a colon-separated
// list), then LC_ALL, LC_MESSAGES and LANG, in that order. Each value loses its ".encoding" and "@modifier"
// parts ("de_DE.UTF-8@euro" is "de_DE"); empty values, "C" and "POSIX" are skipped and a language already
// listed is not listed again. When nothing is left the list is {"en"}, so it is never empty.
//
// Threads: both functions may be called on any thread. current() reads the process environment each time;
// call it where nothing changes the environment concurrently.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace nb {

class PreferredLanguages {
public:
    // Answers a variable's value, or nullptr when it is unset. The pointer need only live until the next call.
    using EnvironmentLookup = std::function<const char*(const char* name)>;

    static std::vector<std::string> fromEnvironment(const EnvironmentLookup& lookup);
    // fromEnvironment with getenv.
    static std::vector<std::string> current();
};

}  // namespace nb
