// What the RSA and key code reports when OpenSSL refuses: the last error it queued, in its own words.
// Internal to the library.
#pragma once

#include <openssl/err.h>

#include <string>

#include <fmt/format.h>

namespace nb::openssl {

// Also empties the thread's error queue, so that whoever calls OpenSSL next on it starts clean.
inline std::string lastErrorReason() {
    const char* detail = nullptr;
    int flags = 0;
    const unsigned long code = ERR_peek_last_error_data(&detail, &flags);
    std::string reason = "no reason given";
    if (code != 0) {
        char text[256];
        ERR_error_string_n(code, text, sizeof text);
        reason = text;
        if ((flags & ERR_TXT_STRING) != 0 && detail != nullptr && *detail != '\0') reason += fmt::format(" ({})", detail);
    }
    ERR_clear_error();
    return reason;
}

}  // namespace nb::openssl
