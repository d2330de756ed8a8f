// Shows what a host would show for error codes, in the process locale.
// Usage: nbtest_errorcode [--table | --language LANG | --refresh | CODE SUBCODE MODULE]...
// Arguments are handled in order: --table prints every message of the catalogue, in the order it is built,
// one per line; --language switches the process to LANG the way a host would (LANGUAGE, then setlocale
// again) without touching the catalogue; --refresh rebuilds the shared catalogue's table; each triple
// prints the code's message, then the formatted code.
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "nbbase/support/NBErrorCode.h"

int main(int argc, char** argv) {
    if (std::setlocale(LC_ALL, "") == nullptr) {
        std::fprintf(stderr, "setlocale failed\n");
        return 2;
    }
    nb::NBErrorCode& catalogue = nb::NBErrorCode::sharedInstance();
    for (int i = 1; i < argc;) {
        if (std::strcmp(argv[i], "--table") == 0) {
            const auto table = catalogue.errorCodeTable();
            for (const auto& entry : nb::NBErrorCode::englishErrorCodeTable()) {
                std::printf("%s\n", table.at(std::string(entry.pattern)).c_str());
            }
            i += 1;
        } else if (std::strcmp(argv[i], "--language") == 0 && i + 1 < argc) {
            // Single-threaded here, so changing the environment and the locale is safe.
            if (setenv("LANGUAGE", argv[i + 1], 1) != 0 || std::setlocale(LC_ALL, "") == nullptr) {
                std::fprintf(stderr, "cannot switch to %s\n", argv[i + 1]);
                return 2;
            }
            i += 2;
        } else if (std::strcmp(argv[i], "--refresh") == 0) {
            catalogue.initializeErrorCodeTable();
            i += 1;
        } else if (i + 2 < argc) {
            const long long code = std::atoll(argv[i]), subCode = std::atoll(argv[i + 1]),
                            module = std::atoll(argv[i + 2]);
            std::printf("%s\n%s\n", catalogue.queryErrorMessage(code, subCode).c_str(),
                        catalogue.formatErrorCode(code, subCode, module).c_str());
            i += 3;
        } else {
            std::fprintf(stderr, "unexpected argument %s\n", argv[i]);
            return 2;
        }
    }
    return 0;
}
