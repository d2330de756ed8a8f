#include "nbbase/foundation/PreferredLanguages.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

namespace nb {
namespace {

// "de_DE.UTF-8@euro" is "de_DE": the encoding and modifier say nothing about the language.
std::string_view languageOf(std::string_view locale) {
    return locale.substr(0, locale.find_first_of(".@"));
}

void add(std::vector<std::string>& languages, std::string_view locale) {
    const std::string_view language = languageOf(locale);
    if (language.empty() || language == "C" || language == "POSIX") return;
    if (std::find(languages.begin(), languages.end(), language) != languages.end()) return;
    languages.emplace_back(language);
}

}  // namespace

std::vector<std::string> PreferredLanguages::fromEnvironment(const EnvironmentLookup& lookup) {
    std::vector<std::string> languages;
    if (lookup) {
        if (const char* list = lookup("LANGUAGE")) {
            std::string_view rest(list);
            while (!rest.empty()) {
                const std::size_t colon = rest.find(':');
                add(languages, rest.substr(0, colon));
                rest = colon == std::string_view::npos ? std::string_view() : rest.substr(colon + 1);
            }
        }
        for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
            if (const char* value = lookup(name)) add(languages, value);
        }
    }
    if (languages.empty()) languages.emplace_back("en");
    return languages;
}

std::vector<std::string> PreferredLanguages::current() {
    return fromEnvironment([](const char* name) -> const char* { return std::getenv(name); });
}

}  // namespace nb
