// NotificationCenter: synchronous publish and subscribe by name and sender, the platform's notification
// centre. defaultCenter() is the process's centre; other centres are private to whoever builds them, and a
// notification posted on one never reaches observers of another.
//
// Matching: a registration with no name (nullopt) receives every name; one with no sender (null) receives
// every sender; one with a sender receives only notifications whose sender is the same owned object. The
// centre holds the sender filter weakly: a filtered sender that is destroyed stops matching anything,
// even a new object that happens to live at the same address.
//
// Delivery: postNotification() calls the matching observers on the calling thread, in registration order,
// before it returns, with no lock held, so an observer may post (delivered at once, nested), add or remove
// observers. The observers are those registered when the post began: one added during a delivery is not
// called for it, and one removed before its turn (by any thread, or by an earlier observer) is not called.
// A block registered with an OperationQueue runs as an operation of that queue instead; the poster does not
// wait for it, and it is skipped if its registration is removed before the operation starts. An observer
// that throws is logged (level 4) and the others are still called.
//
// Observers: a target registration holds its observer weakly. An observer destroyed without removing
// itself is never called again (its registrations are dropped on the next change), and one that is being
// called is kept alive until the call returns. Removal by observer uses its address, the same pointer as
// the shared_ptr it registered with: inside the observer, `this`.
//
// Threads: every function may be called on any thread, concurrently, from inside an observer too. A removal
// that returns on the delivering thread guarantees that observer is not called again; from another thread,
// a call already started may still be running.
//
// Lifetime: the centre must outlive the calls made on it. Destroying it releases its registrations and the
// blocks' captures, except those a delivery in progress or a queued operation still holds, released when
// that ends. defaultCenter() is never destroyed.
#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "nbbase/foundation/Notification.h"
#include "nbbase/foundation/OperationQueue.h"

namespace nb {

// The handle to a block registration, to pass back to removeObserver(). A default-constructed token names
// nothing; tokens are unique across all centres of the process, so one never removes another centre's
// registration.
class ObserverToken {
public:
    ObserverToken() noexcept = default;
    friend auto operator<=>(const ObserverToken&, const ObserverToken&) = default;

private:
    friend class NotificationCenter;
    explicit ObserverToken(std::uint64_t id) noexcept : id_(id) {}
    std::uint64_t id_ = 0;
};

class NotificationCenter {
public:
    using Block = std::function<void(const Notification&)>;

    // The process-wide centre, created on first use and never destroyed.
    static NotificationCenter& defaultCenter();

    NotificationCenter() = default;
    ~NotificationCenter();
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

    // Registers `selector`, called as std::invoke(selector, *observer, notification): a member function
    // of T or any callable taking (T&, const Notification&). A null observer registers nothing. Registering
    // the same observer twice calls it twice.
    template <typename T, typename F>
    void addObserver(const std::shared_ptr<T>& observer, F&& selector, std::optional<std::string> name,
                     EventObject object) {
        // Called as const: posts on several threads may call one registration at once.
        static_assert(std::is_invocable_v<const std::decay_t<F>&, T&, const Notification&>,
                      "the selector must be callable, as const, with (T&, const Notification&)");
        if (!observer) {
            return;
        }
        std::weak_ptr<T> weak = observer;
        auto call = [weak, selector = std::forward<F>(selector)](const Notification& notification) {
            if (auto strong = weak.lock()) {
                std::invoke(selector, *strong, notification);
            }
        };
        add(static_cast<const void*>(observer.get()), std::weak_ptr<const void>(observer), std::move(name),
            std::move(object), nullptr, Block(std::move(call)));
    }

    // Registers a block, run on `queue` when given, else on the posting thread. An empty block registers
    // nothing and answers an empty token. The centre keeps the block (and its captures) until removal.
    [[nodiscard]] ObserverToken addObserverForName(std::optional<std::string> name, EventObject object,
                                                   std::shared_ptr<OperationQueue> queue, Block block);

    // Every registration of the observer (target registrations only; blocks are removed by token).
    void removeObserver(const void* observer);
    void removeObserver(const ObserverToken& token);
    // The observer's registrations for exactly this name (nullopt: any name) and this sender (null: any
    // sender). A registration made for every name is not removed by a given name, nor one made for every
    // sender by a given sender.
    void removeObserver(const void* observer, const std::optional<std::string>& name, const EventObject& object);
    // The token's block registration under the same rule: removed only if it was made for this name and
    // this sender (or the removal gives nullopt / null for them); otherwise it stays registered.
    void removeObserver(const ObserverToken& token, const std::optional<std::string>& name,
                        const EventObject& object);

    void postNotification(const Notification& notification);
    void postNotificationName(std::string name, EventObject object, Value userInfo = {});

private:
    struct Registration;
    using Registrations = std::vector<std::shared_ptr<Registration>>;

    void add(const void* observer, std::weak_ptr<const void> observerLife, std::optional<std::string> name,
             EventObject object, std::shared_ptr<OperationQueue> queue, Block block, std::uint64_t id = 0);
    // Drops the registrations for which `remove` answers true, and those of destroyed observers.
    template <typename Predicate>
    void removeIf(Predicate remove);

    mutable std::mutex mutex_;
    // Copied on every change and never mutated once published, so a post reads it without the lock.
    std::shared_ptr<const Registrations> registrations_;  // guarded by mutex_
};

}  // namespace nb
