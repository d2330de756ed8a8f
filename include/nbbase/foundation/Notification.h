// Notification: what a NotificationCenter delivers and what NBEventCenter calls an event.
//
// A plain value: copy it freely and read it on any thread. The sender is shared, so a notification keeps
// its sender alive for as long as the notification (or a queued copy of it) exists.
#pragma once

#include <memory>
#include <string>

#include "nbbase/foundation/Value.h"

namespace nb {

// The sender of a notification, and the sender an observer filters by. Observers match senders by the
// identity of the owned object (not by address alone), so any shared_ptr to one object, including an
// aliasing one, names the same sender. Null is no sender.
using EventObject = std::shared_ptr<void>;

struct Notification {
    std::string name;
    EventObject object;
    // The context dictionary; absent when the poster gave none (nil), which differs from an empty one.
    Value userInfo;
};

}  // namespace nb
