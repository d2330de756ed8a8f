// Any bytes as a full interests reply. First on a store that never learnt the base interests, then on one that
// holds the recorded ones, by the store's own parse and afterwards by the text parse on the same store. After
// each parse the sections that the reply carried, and only those, replace their lists, and every rule holds
// together at each property level (see InterestRulesChecks.h).
//
// Both parses read the text with InterestsReplyReader, never through a Value tree; each must build exactly
// what the Value path builds from Json::decode of the same text (parseInterest and the trial flags for the
// full parse, InterestsSnapshot::applyInterests in the text form for the other), record by record.
//
// Seeds: examples/replies/getUserFullInterests.json (README, "Fuzzing").
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "fuzz/InterestRulesChecks.h"
#include "nbbase/entitlements/InterestsInfo.h"
#include "nbbase/foundation/Json.h"
#include "tests/InterestsCollaborators.h"
#include "tests/SameInterests.h"

namespace {

using nbfuzz::check;

struct Fixture {
    nbtest::InterestsCollaborators collaborators;  // VipInfo stays empty: parse() flags for level 0
    std::string baseInterests = nbtest::recordedReply("queryUserPropertyInterests.json");
};

Fixture& fixture() {
    static Fixture fixture;  // destroyed at exit, which removes its temporary folder
    return fixture;
}

bool applies(const std::optional<nb::Value>& reply) {
    return reply && (*reply)["code"].longLongValue() == 0 && (*reply)["data"].isDictionary();
}

// A reply that applies replaces each section it carries (no_having only in the full parse) with one record
// per array element, and the server time; everything else is left as it was before.
void checkSections(const nb::InterestsSnapshot& before, const nb::InterestsSnapshot& after,
                   const std::optional<nb::Value>& reply, bool full) {
    static const nb::Value absent;
    const nb::Value& data = applies(reply) ? (*reply)["data"] : absent;
    check(after.currentTS == (applies(reply) ? data["timestamp"].longLongValue() : before.currentTS));
    const auto section = [&](const auto& old, const auto& now, std::string_view key, bool read) {
        if (!read || !data.contains(key)) return check(now == old);
        const nb::Value& elements = data[key];
        check(now && now != old && now->size() == (elements.isArray() ? elements.size() : 0));
    };
    section(before.havingInterests, after.havingInterests, "having", true);
    section(before.availableIntrests, after.availableIntrests, "available_present", true);
    section(before.noHavingInterests, after.noHavingInterests, "no_having", full);
    check(after.stableInterestDict == before.stableInterestDict);
}

// The reader against the Value path, on a store that holds the base interests, so the flags are computed.
void checkSameAsValuePath(Fixture& f, const std::string& text, const std::optional<nb::Value>& reply) {
    const auto streamed = f.collaborators.makeStore();
    const auto decoded = f.collaborators.makeStore();
    check(streamed->parseUserPropertyInterests(f.baseInterests) && decoded->parseUserPropertyInterests(f.baseInterests));
    (void)streamed->parse(text);
    if (reply) {
        decoded->parseInterest(*reply);
        (void)decoded->checkUserInterestsTriableInfo(false, false);  // level 0, as parse() flags here
    }
    auto want = *decoded->snapshot();
    want.stableInterestDict = streamed->snapshot()->stableInterestDict;  // the same levels, read twice
    check(nbtest::sameSnapshot(*streamed->snapshot(), want));

    const auto before = *streamed->snapshot();
    (void)streamed->parseUserInterests(text);
    auto textWant = before;
    if (applies(reply)) textWant.applyInterests((*reply)["data"], nb::InterestsSnapshot::ReplyForm::Text);
    check(nbtest::sameSnapshot(*streamed->snapshot(), textWant));
}

void checkEveryLevel(const std::shared_ptr<const nb::InterestsSnapshot>& snapshot) {
    for (const std::int64_t level : {0, 1, 2}) nbfuzz::checkRules(nb::InterestRules(snapshot, level));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto& f = fixture();
    const std::string text(reinterpret_cast<const char*>(data), size);
    const auto reply = nb::Json::decode(text, {.allowFragments = true});

    // Without base interests every level gives nothing, and no value is flagged.
    const auto bare = f.collaborators.makeStore();
    const auto empty = bare->snapshot();
    check(bare->parse(text) == reply.has_value());
    checkSections(*empty, *bare->snapshot(), reply, true);
    nbfuzz::checkFlags(*bare->snapshot(), 0);
    nbfuzz::checkRules(bare->rules());

    const auto store = f.collaborators.makeStore();
    check(store->parseUserPropertyInterests(f.baseInterests));
    const auto withBase = store->snapshot();
    check(store->parse(text) == reply.has_value());
    const auto parsed = store->snapshot();
    checkSections(*withBase, *parsed, reply, true);
    nbfuzz::checkFlags(*parsed, 0);
    check(store->getNextCheckInterestsInfoTimerElapse() ==
          nb::InterestRules(parsed, 0).getNextCheckInterestsInfoTimerElapse());
    checkEveryLevel(parsed);

    // The text parse over what the full parse left: it keeps the trial flags as they were.
    check(store->parseUserInterests(text) == applies(reply));
    const auto reparsed = store->snapshot();
    checkSections(*parsed, *reparsed, reply, false);
    check(reparsed->fpsTriableFlag == parsed->fpsTriableFlag && reparsed->frameTriableFlag == parsed->frameTriableFlag);
    check(reparsed->hangTriableFlag == parsed->hangTriableFlag);
    checkEveryLevel(reparsed);

    checkSameAsValuePath(f, text, reply);
    return 0;
}
