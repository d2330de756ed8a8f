#include "nbbase/foundation/NotificationCenter.h"

#include <atomic>
#include <exception>

#include "nbbase/foundation/NBLog.h"

namespace nb {

namespace {

// Process-wide, so that a token of one centre can never remove a registration of another.
std::atomic<std::uint64_t> nextRegistrationId{1};

}  // namespace

struct NotificationCenter::Registration {
    Registration(std::uint64_t registrationId, const void* observerAddress, std::weak_ptr<const void> life,
                 std::optional<std::string> filterName, const EventObject& filterSender,
                 std::shared_ptr<OperationQueue> operationQueue, Block callback)
        : id(registrationId),
          observer(observerAddress),
          observerLife(std::move(life)),
          name(std::move(filterName)),
          sender(filterSender),
          filtersSender(filterSender != nullptr),
          queue(std::move(operationQueue)),
          block(std::move(callback)) {}

    bool matches(const Notification& notification) const {
        if (name && *name != notification.name) {
            return false;
        }
        if (!filtersSender) {
            return true;
        }
        // By owner, not address: the weak reference pins the control block, so a new object at the
        // address of a destroyed sender is a different owner.
        return notification.object != nullptr && !sender.owner_before(notification.object) &&
               !notification.object.owner_before(sender);
    }

    // Whether a removal for `filterName` (nullopt: any name) and `filterSender` (null: any sender) covers
    // this registration: a given name or sender removes only registrations made for that same one.
    bool coveredBy(const std::optional<std::string>& filterName, const EventObject& filterSender) const {
        if (filterName && name != filterName) {
            return false;
        }
        if (filterSender == nullptr) {
            return true;
        }
        return filtersSender && !sender.owner_before(filterSender) && !filterSender.owner_before(sender);
    }

    // Can never be called again: its observer or its sender filter is gone.
    bool stale() const {
        return (observer != nullptr && observerLife.expired()) || (filtersSender && sender.expired());
    }

    const std::uint64_t id;
    const void* const observer;  // null for block registrations
    const std::weak_ptr<const void> observerLife;
    const std::optional<std::string> name;
    const std::weak_ptr<void> sender;
    const bool filtersSender;
    const std::shared_ptr<OperationQueue> queue;
    const Block block;
    // Set under the centre's lock when the registration leaves the list; deliveries that took their
    // snapshot before then check it just before each call.
    std::atomic<bool> removed{false};
};

namespace {

void deliver(const NotificationCenter::Block& block, const Notification& notification) {
    try {
        block(notification);
    } catch (const std::exception& e) {
        NBLog::sharedInstance().log(4, "NotificationCenter: an observer of \"{}\" threw: {}", notification.name,
                                    e.what());
    } catch (...) {
        NBLog::sharedInstance().log(4, "NotificationCenter: an observer of \"{}\" threw", notification.name);
    }
}

}  // namespace

NotificationCenter& NotificationCenter::defaultCenter() {
    static NotificationCenter* const center = new NotificationCenter();
    return *center;
}

NotificationCenter::~NotificationCenter() = default;

void NotificationCenter::add(const void* observer, std::weak_ptr<const void> observerLife,
                             std::optional<std::string> name, EventObject object,
                             std::shared_ptr<OperationQueue> queue, Block block, std::uint64_t id) {
    if (id == 0) {
        id = nextRegistrationId.fetch_add(1, std::memory_order_relaxed);
    }
    auto registration = std::make_shared<Registration>(id, observer, std::move(observerLife), std::move(name),
                                                       object, std::move(queue), std::move(block));
    std::shared_ptr<const Registrations> previous;  // released after the lock: it may hold the last
                                                    // reference to a block whose captures call back in
    std::lock_guard lock(mutex_);
    auto next = std::make_shared<Registrations>();
    if (registrations_) {
        next->reserve(registrations_->size() + 1);
        for (const auto& existing : *registrations_) {
            if (existing->stale()) {
                existing->removed.store(true, std::memory_order_release);
            } else {
                next->push_back(existing);
            }
        }
    }
    next->push_back(std::move(registration));
    previous = std::exchange(registrations_, std::move(next));
}

ObserverToken NotificationCenter::addObserverForName(std::optional<std::string> name, EventObject object,
                                                     std::shared_ptr<OperationQueue> queue, Block block) {
    if (!block) {
        return ObserverToken();
    }
    const auto id = nextRegistrationId.fetch_add(1, std::memory_order_relaxed);
    add(nullptr, {}, std::move(name), std::move(object), std::move(queue), std::move(block), id);
    return ObserverToken(id);
}

template <typename Predicate>
void NotificationCenter::removeIf(Predicate remove) {
    std::shared_ptr<const Registrations> previous;  // released after the lock, as in add()
    std::lock_guard lock(mutex_);
    if (!registrations_) {
        return;
    }
    auto next = std::make_shared<Registrations>();
    next->reserve(registrations_->size());
    for (const auto& existing : *registrations_) {
        if (remove(*existing) || existing->stale()) {
            existing->removed.store(true, std::memory_order_release);
        } else {
            next->push_back(existing);
        }
    }
    if (next->size() != registrations_->size()) {
        previous = std::exchange(registrations_, std::move(next));
    }
}

void NotificationCenter::removeObserver(const void* observer) {
    if (observer == nullptr) {
        return;
    }
    removeIf([observer](const Registration& r) { return r.observer == observer; });
}

void NotificationCenter::removeObserver(const ObserverToken& token) {
    if (token.id_ == 0) {
        return;
    }
    removeIf([id = token.id_](const Registration& r) { return r.id == id && r.observer == nullptr; });
}

void NotificationCenter::removeObserver(const void* observer, const std::optional<std::string>& name,
                                        const EventObject& object) {
    if (observer == nullptr) {
        return;
    }
    removeIf([&](const Registration& r) { return r.observer == observer && r.coveredBy(name, object); });
}

void NotificationCenter::removeObserver(const ObserverToken& token, const std::optional<std::string>& name,
                                        const EventObject& object) {
    if (token.id_ == 0) {
        return;
    }
    removeIf([&](const Registration& r) {
        return r.id == token.id_ && r.observer == nullptr && r.coveredBy(name, object);
    });
}

void NotificationCenter::postNotification(const Notification& notification) {
    std::shared_ptr<const Registrations> snapshot;
    {
        std::lock_guard lock(mutex_);
        snapshot = registrations_;
    }
    if (!snapshot) {
        return;
    }
    for (const auto& registration : *snapshot) {
        if (registration->removed.load(std::memory_order_acquire) || !registration->matches(notification)) {
            continue;
        }
        if (!registration->queue) {
            deliver(registration->block, notification);
            continue;
        }
        registration->queue->addOperation([registration, notification] {
            if (!registration->removed.load(std::memory_order_acquire)) {
                deliver(registration->block, notification);
            }
        });
    }
}

void NotificationCenter::postNotificationName(std::string name, EventObject object, Value userInfo) {
    postNotification(Notification{std::move(name), std::move(object), std::move(userInfo)});
}

}  // namespace nb
