// Any bytes as a user-property reply, on a fresh store that holds the recorded full interests reply. Only a
// reply that decodes with code 0 and a "data" object replaces the base interests, with exactly the levels
// it holds; checkUserInterestsTriableInfo then finds a base interest for a level exactly when the reply gave
// one and rebuilds the trial flags from it, and every rule holds together at that level
// (see InterestRulesChecks.h).
//
// Seeds: examples/replies/queryUserPropertyInterests.json (README, "Fuzzing").
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "fuzz/InterestRulesChecks.h"
#include "nbbase/entitlements/InterestsInfo.h"
#include "nbbase/foundation/Json.h"
#include "tests/InterestsCollaborators.h"

namespace {

using nbfuzz::check;

// isVip, isSvip: every combination, SVIP winning over VIP.
constexpr std::pair<bool, bool> kFlagPairs[] = {{false, false}, {true, false}, {false, true}, {true, true}};

struct Fixture {
    nbtest::InterestsCollaborators collaborators;
    std::string interests = nbtest::recordedReply("getUserFullInterests.json");
};

Fixture& fixture() {
    static Fixture fixture;  // destroyed at exit, which removes its temporary folder
    return fixture;
}

// An attribute the level's entry carried is copied element for element; one it lacked stays absent.
void checkAttribute(const nb::Value& entry, const char* key, const nb::Value& attribute) {
    if (!entry.contains(key)) return check(attribute.isAbsent());
    check(attribute.isArray() && attribute.size() == (entry[key].isArray() ? entry[key].size() : 0));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto& f = fixture();
    const std::string text(reinterpret_cast<const char*>(data), size);
    const auto reply = nb::Json::decode(text, {.allowFragments = true});
    const bool applies = reply && (*reply)["code"].longLongValue() == 0 && (*reply)["data"].isDictionary();

    const auto store = f.collaborators.makeStore();
    check(store->parse(f.interests));
    const auto before = store->snapshot();
    check(store->parseUserPropertyInterests(text) == applies);
    const auto after = store->snapshot();
    check(after->havingInterests == before->havingInterests && after->currentTS == before->currentTS);
    if (!applies) {
        check(after->stableInterestDict == before->stableInterestDict);
    } else {
        const nb::Value& levels = (*reply)["data"];
        check(after->stableInterestDict != nullptr);
        std::size_t held = 0;
        for (const std::int64_t level : {0, 1, 2}) {
            const std::string key = nb::InterestRules::userProperty(level);
            const auto base = after->stableInterest(level);
            check((base != nullptr) == levels.contains(key));
            if (!base) continue;
            ++held;
            const nb::Value& entry = levels[key];
            checkAttribute(entry, "fps", base->fpsAttr());
            checkAttribute(entry, "frame", base->frameAttr());
            check(base->hangup() == entry["hang_up"].intValue() && base->type() == 0);
        }
        check(after->stableInterestDict->size() == held);
    }

    for (const auto& [isVip, isSvip] : kFlagPairs) {
        const std::int64_t level = isSvip ? 2 : isVip ? 1 : 0;
        const bool found = store->checkUserInterestsTriableInfo(isVip, isSvip);
        const auto snapshot = store->snapshot();
        check(found == (snapshot->stableInterest(level) != nullptr));
        nbfuzz::checkFlags(*snapshot, level);
        nbfuzz::checkRules(nb::InterestRules(snapshot, level));
    }
    return 0;
}
