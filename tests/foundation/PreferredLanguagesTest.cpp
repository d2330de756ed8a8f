#include "nbbase/foundation/PreferredLanguages.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace {

using Env = std::map<std::string, std::string>;

std::vector<std::string> languagesFor(const Env& env) {
    return nb::PreferredLanguages::fromEnvironment([&env](const char* name) -> const char* {
        const auto it = env.find(name);
        return it == env.end() ? nullptr : it->second.c_str();
    });
}

TEST(PreferredLanguagesTest, OrderStrippingAndFallback) {
    const struct {
        Env env;
        std::vector<std::string> expected;
    } cases[] = {
        {{}, {"en"}},
        {{{"LANG", "C"}, {"LC_ALL", "POSIX"}, {"LANGUAGE", ""}}, {"en"}},
        {{{"LANG", "de_DE.UTF-8@euro"}}, {"de_DE"}},
        {{{"LANGUAGE", "zh_CN:fr::en"}, {"LC_ALL", "fr_FR.UTF-8"}, {"LC_MESSAGES", "zh_CN"}, {"LANG", "ja_JP"}},
         {"zh_CN", "fr", "en", "fr_FR", "ja_JP"}},
        {{{"LC_MESSAGES", "C.UTF-8"}, {"LANG", "it_IT@euro"}}, {"it_IT"}},
    };
    for (const auto& c : cases) EXPECT_EQ(languagesFor(c.env), c.expected);
}

}  // namespace
