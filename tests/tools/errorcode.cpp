// Shows what a host would show for error codes, in the process locale.
// Usage: nbtest_errorcode [--table] [CODE SUBCODE MODULE]...
// --table prints every message of the catalogue, in the order it is built, one per line; each triple
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
    const nb::NBErrorCode& catalogue = nb::NBErrorCode::sharedInstance();
    int i = 1;
    if (i < argc && std::strcmp(argv[i], "--table") == 0) {
        for (const auto& entry : nb::NBErrorCode::englishErrorCodeTable()) {
            std::printf("%s\n", catalogue.errorCodeTable().at(std::string(entry.pattern)).c_str());
        }
        ++i;
    }
    for (; i + 2 < argc; i += 3) {
        const long long code = std::atoll(argv[i]), subCode = std::atoll(argv[i + 1]), module = std::atoll(argv[i + 2]);
        std::printf("%s\n%s\n", catalogue.queryErrorMessage(code, subCode).c_str(),
                    catalogue.formatErrorCode(code, subCode, module).c_str());
    }
    return 0;
}
