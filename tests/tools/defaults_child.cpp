// Child process for the UserDefaults tests: one suite operation per run, so tests can kill it, run
// several at once or run it as another user.
//
//   nbtest_defaults_child [--as-nobody] set <folder> <suite> <key> <string>   exit 0 when stored
//   nbtest_defaults_child [--as-nobody] get <folder> <suite> <key>            prints "value=<string>" or "value=(nil)"
//   nbtest_defaults_child loop <folder> <suite> <start>    stores k<n>=n for n = start, start+1, ... forever,
//                                                          writing "<n>\n" to stdout after each set returns
//   nbtest_defaults_child range <folder> <suite> <prefix> <count>   stores <prefix><i>=i for i < count
//
// --as-nobody drops root privileges first, so that file permissions bind as they do for a user.
#include <grp.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "nbbase/foundation/UserDefaults.h"

namespace {

constexpr uid_t kNobody = 65534;

bool dropPrivileges() {
    if (::geteuid() != 0) return true;  // not root: permissions already bind
    return ::setgroups(0, nullptr) == 0 && ::setgid(kNobody) == 0 && ::setuid(kNobody) == 0 && ::geteuid() == kNobody;
}

// Writes and flushes at once, so that the test sees each line as soon as its set has returned.
bool writeLine(const std::string& line) { return std::fputs(line.c_str(), stdout) >= 0 && std::fflush(stdout) == 0; }

}  // namespace

int main(int argc, char** argv) {
    int i = 1;
    if (i < argc && std::string_view(argv[i]) == "--as-nobody") {
        if (!dropPrivileges()) return 3;
        ++i;
    }
    if (argc - i < 4) return 64;
    const std::string_view mode = argv[i];
    nb::UserDefaults defaults(argv[i + 2], argv[i + 1]);
    const int rest = argc - i - 3;
    char** args = argv + i + 3;

    if (mode == "set" && rest == 2) return defaults.setString(args[1], args[0]) ? 0 : 1;
    if (mode == "get" && rest == 1) {
        auto value = defaults.stringForKey(args[0]);
        return writeLine("value=" + value.value_or("(nil)") + "\n") ? 0 : 1;
    }
    if (mode == "loop" && rest == 1) {
        for (long long n = std::atoll(args[0]);; ++n) {
            if (!defaults.setInteger(n, "k" + std::to_string(n))) return 2;
            if (!writeLine(std::to_string(n) + "\n")) return 1;
        }
    }
    if (mode == "range" && rest == 2) {
        const long long count = std::atoll(args[1]);
        for (long long n = 0; n < count; ++n) {
            if (!defaults.setInteger(n, args[0] + std::to_string(n))) return 2;
        }
        return 0;
    }
    return 64;
}
