// Prints the library's translation of each argument, one per line, as a host would see it.
// Usage: nbtest_localization [--no-setlocale] TEXT...
// With --no-setlocale the program leaves the process in the "C" locale, which shows that the library
// does not switch locales by itself.
#include <clocale>
#include <cstdio>
#include <cstring>

#include "nbbase/foundation/Localization.h"

int main(int argc, char** argv) {
    int first = 1;
    if (argc > 1 && std::strcmp(argv[1], "--no-setlocale") == 0) {
        first = 2;
    } else if (std::setlocale(LC_ALL, "") == nullptr) {
        std::fprintf(stderr, "setlocale failed\n");
        return 2;
    }
    nb::Localization& localization = nb::Localization::sharedInstance();
    for (int i = first; i < argc; ++i) {
        std::printf("%s\n", localization.localizedString(argv[i]).c_str());
    }
    std::fprintf(stderr, "locale directory: %s\n", localization.localeDirectory().c_str());
    return 0;
}
