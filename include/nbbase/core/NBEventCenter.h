// NBEventCenter: the library's event bus. Events posted here reach only listeners registered here (not
// those of NotificationCenter::defaultCenter() nor of another event centre), always on the main queue.
//
// Delivery: every post returns at once and queues one task on the main queue; when that task runs, the
// event is matched against the listeners registered at that moment and they are called in registration
// order on the main thread (a block registered with an OperationQueue runs on that queue instead). So an
// event is never delivered inside the poster's stack, even on the main thread; a listener registered after
// the post but before the task runs receives it; a post made inside a listener is delivered after the
// current event has reached all its listeners. Events posted from one thread arrive in the order posted.
// Matching rules, listener lifetime and failure handling are NotificationCenter's.
//
// Threads: every function may be called on any thread. Registration and removal act at once, not through
// the main queue; a removal made on the main thread guarantees the listener is not called again.
//
// Lifetime: the main queue must outlive the event centre. Destroying the event centre (not from inside one
// of its listeners) drops its registrations; its events still queued then do nothing when they run.
// sharedInstance() delivers on MainQueue::sharedInstance() and is never destroyed.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "nbbase/foundation/MainQueue.h"
#include "nbbase/foundation/Notification.h"
#include "nbbase/foundation/NotificationCenter.h"
#include "nbbase/foundation/OperationQueue.h"
#include "nbbase/foundation/Value.h"

namespace nb {

class NBEventCenter {
public:
    // The process-wide event centre, created on first use and never destroyed.
    static NBEventCenter& sharedInstance();

    explicit NBEventCenter(MainQueue& mainQueue = MainQueue::sharedInstance());
    ~NBEventCenter();
    NBEventCenter(const NBEventCenter&) = delete;
    NBEventCenter& operator=(const NBEventCenter&) = delete;

    // Registers `selector` of `listener` (see NotificationCenter::addObserver) for `name` (nullopt: every
    // event) from `object` (null: any sender). The listener is held weakly.
    template <typename T, typename F>
    void addEventListener(const std::shared_ptr<T>& listener, F&& selector, std::optional<std::string> name,
                          EventObject object) {
        center_->addObserver(listener, std::forward<F>(selector), std::move(name), std::move(object));
    }

    // Registers a block, run on `queue` when given, else on the main thread. Keep the token: the block stays
    // registered until it is passed to removeListener().
    [[nodiscard]] ObserverToken addEventListenerForName(std::optional<std::string> name, EventObject object,
                                                        std::shared_ptr<OperationQueue> queue,
                                                        NotificationCenter::Block usingBlock);

    // Every registration of the listener (its address, `this` inside it), or the token's block.
    void removeListener(const void* listener);
    void removeListener(const ObserverToken& token);
    // Only the registrations made for exactly this name (nullopt: any name) and this sender (null: any
    // sender): one made for every name is not removed by a given name, nor one made for every sender by a
    // given sender. With a token, its block is removed when its registration matches and otherwise stays.
    void removeListener(const void* listener, const std::optional<std::string>& name, const EventObject& object);
    void removeListener(const ObserverToken& token, const std::optional<std::string>& name,
                        const EventObject& object);

    void postEvent(Notification notification);
    // An event without context: its userInfo is absent.
    void postEventName(std::string name, EventObject object);
    // An absent context gives an absent userInfo.
    void postEventName(std::string name, EventObject object, Value context);

private:
    MainQueue& mainQueue_;
    const std::shared_ptr<NotificationCenter> center_;
};

}  // namespace nb
