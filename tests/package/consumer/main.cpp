// A program built against the installed library with nothing but find_package(NBBase) or pkg-config.
#include <clocale>
#include <cstdio>

#include "nbbase/support/NBErrorCode.h"

int main() {
    std::setlocale(LC_ALL, "");  // translated texts need the user's locale
    std::puts(nb::NBErrorCode::sharedInstance().queryErrorMessage(20403, 22017).c_str());
}
