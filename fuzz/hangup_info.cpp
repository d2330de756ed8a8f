// Any bytes as the text of a hang-up reply, on a fresh record and a fixed clock: both parses must agree on
// what counts as a successful reply, and every reading must follow the stored status and times.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "nbbase/catalog/HangupInfo.h"
#include "nbbase/foundation/ManualClock.h"

namespace {

void check(bool condition) {
    if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static nb::NBLog* const log = [] {
        auto* silent = new nb::NBLog();
        silent->setLogHandler([](std::int32_t, const std::string&) {});
        return silent;
    }();
    static const nb::ManualClock* const clock = new nb::ManualClock(nb::Clock::fromSecondsSince1970(1795000000));
    nb::HangupInfo info(*clock, *log);
    const std::string text(reinterpret_cast<const char*>(data), size);

    const bool parsed = info.parse(text);
    check(parsed == info.parseHangUpResult(nb::Value(), text));
    check(info.isHangingUp() == (parsed && info.hangupStatus() == nb::HangupInfo::kStatusHangingUp));
    check(info.isHangUpEnd() == (info.hangupStatus() == nb::HangupInfo::kStatusEnded));
    if (!info.isHangUpEnd()) check(info.totalHangUpSeconds() == 0);
    const std::int64_t remaining = info.hangupRemainTimeInSec();
    if (!info.isHangingUp() || info.currentTS() == 0 || info.currentTS() > info.hangupEndTimeExpected()) {
        check(remaining == 0);
    }
    if (!parsed) {
        check(info.gameId().isAbsent() && info.instanceId().isAbsent() && info.hangupStatus() == 0);
        check(info.hangupBeginTime() == 0 && info.hangupEndTime() == 0 && info.hangupEndTimeExpected() == 0);
    }
    return 0;
}
