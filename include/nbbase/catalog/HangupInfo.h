// HangupInfo: the current idle-play (hang-up) state as the server last reported it: which game instance
// is left running, its status, when the idle period began and ended or is forecast to end, and the
// server's clock when it answered. The client hands it the JSON text of the replies; it fetches nothing.
//
// Replies are decoded with bare top-level values allowed, but only an object is a reply: nil text, text
// that is not JSON and a top-level value that is not an object answer false and change nothing. So does
// a reply whose "code" (int value; 0 when missing) is not 0, which is logged at level 4 with the server's
// "message". Otherwise parse() stores every key the reply carries (converted by Value's Foundation rules),
// keeps the fields whose keys it lacks, and recomputes isHangingUp() from the status, kept or new.
//
// Remaining time is measured against the local clock given to the constructor; the server's clock is
// recorded but never used to correct it.
//
// Threads: every function may be called on any thread. One mutex guards the fields; a parse applies a
// whole reply under it (decoded before the lock is taken) and logs after releasing it.
//
// Lifetime: the clock and log given to the constructor must outlive the instance. sharedInstance() is
// created once, thread-safely, on first use and never destroyed.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "nbbase/foundation/Clock.h"
#include "nbbase/foundation/NBLog.h"
#include "nbbase/foundation/Value.h"

namespace nb {

class HangupInfo {
public:
    static constexpr std::int32_t kStatusHangingUp = 2;
    static constexpr std::int32_t kStatusEnded = 3;

    static HangupInfo& sharedInstance();

    explicit HangupInfo(const Clock& clock = Clock::system(), NBLog& log = NBLog::sharedInstance());
    HangupInfo(const HangupInfo&) = delete;
    HangupInfo& operator=(const HangupInfo&) = delete;

    // A hang-up status reply: "game_id", "instance_id", "game_status", "onhook_begin_time",
    // "onhook_end_time", "forecast_end_time" and "server_time", all at the top level. Logs
    // "parse hangup info error[code,message]" for a non-zero code.
    bool parse(const std::optional<std::string>& text);
    // The reply to a hang-up request: true unless the text is no reply or its "code" is not 0 (logged as
    // "parseHangUpResult error[code,message]"). Changes nothing; the first argument is not read.
    bool parseHangUpResult(const Value& ignored, const std::optional<std::string>& text);

    bool isHangingUp() const;
    // Seconds from the local clock to the forecast end, truncated toward zero and negative once the clock
    // has passed it (saturating at the int64 limits); 0 unless hanging up with a server time and a
    // forecast end set and the server time not past the forecast end.
    std::int64_t hangupRemainTimeInSec() const;
    bool isHangUpEnd() const;
    // End minus begin in 32-bit arithmetic (on the low 32 bits, wrapping) once the hang-up has ended; else 0.
    std::int32_t totalHangUpSeconds() const;

    // ---- The reply's fields, as last stored ----
    Value gameId() const;      // as sent, any kind; absent until a reply carried it
    Value instanceId() const;  // idem
    std::int32_t hangupStatus() const;
    std::int64_t hangupBeginTime() const;
    std::int64_t hangupEndTime() const;
    std::int64_t hangupEndTimeExpected() const;
    std::int64_t currentTS() const;

private:
    struct Fields {
        Value gameId;
        Value instanceId;
        std::int32_t hangupStatus = 0;
        std::int64_t hangupBeginTime = 0;
        std::int64_t hangupEndTime = 0;
        std::int64_t hangupEndTimeExpected = 0;
        std::int64_t currentTS = 0;
        bool hangUp = false;
    };

    template <typename T>
    T read(T Fields::*field) const {
        std::lock_guard lock(mutex_);
        return fields_.*field;
    }

    const Clock& clock_;
    NBLog& log_;

    mutable std::mutex mutex_;
    Fields fields_;  // guarded by mutex_
};

}  // namespace nb
