#include "nbbase/core/NBEventCenter.h"

namespace nb {

NBEventCenter& NBEventCenter::sharedInstance() {
    static NBEventCenter* const instance = new NBEventCenter(MainQueue::sharedInstance());
    return *instance;
}

NBEventCenter::NBEventCenter(MainQueue& mainQueue)
    : mainQueue_(mainQueue), center_(std::make_shared<NotificationCenter>()) {}

NBEventCenter::~NBEventCenter() = default;

ObserverToken NBEventCenter::addEventListenerForName(std::optional<std::string> name, EventObject object,
                                                     std::shared_ptr<OperationQueue> queue,
                                                     NotificationCenter::Block usingBlock) {
    return center_->addObserverForName(std::move(name), std::move(object), std::move(queue),
                                       std::move(usingBlock));
}

void NBEventCenter::removeListener(const void* listener) { center_->removeObserver(listener); }

void NBEventCenter::removeListener(const ObserverToken& token) { center_->removeObserver(token); }

void NBEventCenter::removeListener(const void* listener, const std::optional<std::string>& name,
                                   const EventObject& object) {
    center_->removeObserver(listener, name, object);
}

void NBEventCenter::removeListener(const ObserverToken& token, const std::optional<std::string>& name,
                                   const EventObject& object) {
    center_->removeObserver(token, name, object);
}

void NBEventCenter::postEvent(Notification notification) {
    // Matching happens when the task runs, on the main thread. The task holds the centre weakly: queued
    // events of a destroyed event centre have nowhere to go.
    mainQueue_.async([weakCenter = std::weak_ptr<NotificationCenter>(center_),
                      notification = std::move(notification)] {
        if (auto center = weakCenter.lock()) {
            center->postNotification(notification);
        }
    });
}

void NBEventCenter::postEventName(std::string name, EventObject object) {
    postEvent(Notification{std::move(name), std::move(object), Value()});
}

void NBEventCenter::postEventName(std::string name, EventObject object, Value context) {
    postEvent(Notification{std::move(name), std::move(object), std::move(context)});
}

}  // namespace nb
