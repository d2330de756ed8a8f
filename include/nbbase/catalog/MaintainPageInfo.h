// MaintainPageInfo: the address of the page the client shows while the service is under maintenance, as
// the server last gave it, and whether it is a usable URL.
//
// fetchConfig() asks the SDK; fetched() then says whether it answered, and pageUrl() is the answer's
// "maintain_page". Every fetch replaces both: a failed one makes fetched() false and pageUrl() nil. parse()
// sets pageUrl() alone: nil for an absent reply or one without the key (or with null), else the value's
// string value (a number becomes its decimal text).
//
// valid() is false for a nil or empty address and for one that strict URL parsing (nb::Url: nothing is
// percent-encoded or guessed) refuses or that lacks a scheme or a host; true otherwise.
//
// Threads: every function may be called on any thread; the fields are guarded by a lock, and a fetch sets
// both together. fetchConfig() returns at once: the SDK is asked on the background queue given to the
// constructor, whose thread it blocks for the round trip, and the completion (which may be empty) is
// called there, with the validity of the address that fetch stored. Without an SDK instance at the call,
// the fetch counts as failed.
//
// Lifetime: a fetch in flight holds the model's state, not the object, so the object may go first; the
// completion is still called. sharedInstance() is created once, thread-safely, and never destroyed.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "nbbase/core/NimboSdkManager.h"
#include "nbbase/foundation/ConcurrentQueue.h"
#include "nbbase/foundation/DispatchQueue.h"
#include "nbbase/foundation/Value.h"

namespace nb {

class MaintainPageInfo {
public:
    static MaintainPageInfo& sharedInstance();

    explicit MaintainPageInfo(NimboSdkManager& sdkManager = NimboSdkManager::sharedInstance(),
                              DispatchQueue& background = ConcurrentQueue::global());
    MaintainPageInfo(const MaintainPageInfo&) = delete;
    MaintainPageInfo& operator=(const MaintainPageInfo&) = delete;

    // getMaintainPageConfig, then parse(), then the completion with valid().
    void fetchConfig(std::function<void(bool valid)> completion);
    void parse(const Value& reply);

    [[nodiscard]] std::optional<std::string> pageUrl() const;
    [[nodiscard]] bool valid() const;
    [[nodiscard]] bool fetched() const;

    // Shared with fetches in flight.
    struct State;

private:
    NimboSdkManager& sdkManager_;
    DispatchQueue& background_;
    const std::shared_ptr<State> state_;
};

}  // namespace nb
