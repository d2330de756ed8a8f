#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "nbbase/foundation/NotificationCenter.h"
#include "tests/foundation/DispatchTestSupport.h"

namespace nb {
namespace {

using test::kPatience;

// Writes "<tag>:<name>" to a shared log each time it is called.
struct Recorder {
    Recorder(std::vector<std::string>& log, std::string tag) : log(log), tag(std::move(tag)) {}
    void onNotification(const Notification& n) { log.push_back(tag + ":" + n.name); }
    std::vector<std::string>& log;
    std::string tag;
};

class NotificationCenterTest : public testing::Test {
protected:
    std::shared_ptr<Recorder> recorder(const std::string& tag, std::optional<std::string> name = std::nullopt,
                                       EventObject object = nullptr) {
        auto r = std::make_shared<Recorder>(log_, tag);
        center_.addObserver(r, &Recorder::onNotification, std::move(name), std::move(object));
        return r;
    }
    ObserverToken block(const std::string& tag, std::optional<std::string> name = std::nullopt) {
        return center_.addObserverForName(std::move(name), nullptr, nullptr,
                                          [this, tag](const Notification& n) { log_.push_back(tag + ":" + n.name); });
    }
    std::vector<std::string> take() { return std::exchange(log_, {}); }

    std::vector<std::string> log_;
    NotificationCenter center_;
};

TEST_F(NotificationCenterTest, MatchesByNameAndSenderIdentityInRegistrationOrder) {
    auto s1 = std::make_shared<int>(1);
    auto s1Alias = std::shared_ptr<void>(s1, s1.get());
    auto twin = std::make_shared<int>(1);  // equal value, different object
    [[maybe_unused]] auto keep = {recorder("any"), recorder("a", "a"), recorder("s1", std::nullopt, s1), recorder("a/s1", "a", s1)};
    [[maybe_unused]] const auto anyBlock = block("blk");
    const struct { std::string name; EventObject object; std::vector<std::string> expected; } cases[] = {
        {"a", s1, {"any:a", "a:a", "s1:a", "a/s1:a", "blk:a"}},
        {"a", s1Alias, {"any:a", "a:a", "s1:a", "a/s1:a", "blk:a"}},
        {"a", twin, {"any:a", "a:a", "blk:a"}},
        {"a", nullptr, {"any:a", "a:a", "blk:a"}},
        {"b", s1, {"any:b", "s1:b", "blk:b"}},
    };
    for (const auto& c : cases) {
        center_.postNotificationName(c.name, c.object);
        EXPECT_EQ(take(), c.expected) << c.name << " from " << c.object.get();
    }
    NotificationCenter other;
    other.postNotificationName("a", s1);
    EXPECT_TRUE(take().empty()) << "another centre's observers";
}

TEST_F(NotificationCenterTest, DestroyedSenderOrObserverNeverMatchesAgain) {
    auto sender = std::make_shared<int>(7);
    const void* oldAddress = sender.get();
    auto filtered = recorder("filtered", std::nullopt, sender);
    auto dropped = recorder("dropped");
    dropped.reset();  // gone without removing itself
    sender.reset();
    auto reborn = std::make_shared<int>(7);  // often at the old address; by identity it is someone else
    center_.postNotificationName("x", reborn);
    EXPECT_TRUE(take().empty()) << "new sender " << (reborn.get() == oldAddress ? "reused" : "did not reuse")
                                << " the address";
    auto later = recorder("later");  // a change prunes the dead registrations
    center_.postNotificationName("y", nullptr);
    EXPECT_EQ(take(), (std::vector<std::string>{"later:y"}));
}

TEST_F(NotificationCenterTest, RemovesByTokenAndByObserverNameAndSender) {
    auto s1 = std::make_shared<int>(1);
    auto r = std::make_shared<Recorder>(log_, "r");
    for (auto [name, object] : {std::pair<std::optional<std::string>, EventObject>{"a", s1}, {"a", nullptr},
                                {"b", s1}, {std::nullopt, nullptr}}) {
        center_.addObserver(r, &Recorder::onNotification, name, object);
    }
    const auto t1 = block("t1"), t2 = block("t2");
    center_.removeObserver(t1);
    center_.removeObserver(t1);
    center_.removeObserver(ObserverToken());
    center_.removeObserver(r.get(), "a", nullptr);  // both "a" registrations, not the one for every name
    center_.postNotificationName("a", s1);
    EXPECT_EQ(take(), (std::vector<std::string>{"r:a", "t2:a"}));
    center_.removeObserver(r.get(), std::nullopt, s1);  // "b" from s1
    center_.postNotificationName("b", s1);
    EXPECT_EQ(take(), (std::vector<std::string>{"r:b", "t2:b"}));
    center_.removeObserver(r.get());
    center_.removeObserver(t2);
    center_.postNotificationName("b", s1);
    EXPECT_TRUE(take().empty());
}

TEST_F(NotificationCenterTest, ChangesDuringDeliveryApplyFromTheirTurnAndNestedPostsDeliverAtOnce) {
    std::shared_ptr<Recorder> removedLater, addedDuring;
    ObserverToken removedToken;
    auto first = std::make_shared<int>(0);
    center_.addObserver(first, [&](int&, const Notification& n) {
        log_.push_back("first:" + n.name);
        if (n.name != "outer") return;
        center_.removeObserver(removedLater.get());
        center_.removeObserver(removedToken);
        if (!addedDuring) addedDuring = recorder("added");
        center_.postNotificationName("inner", nullptr);
        log_.push_back("first:end");
    }, std::nullopt, nullptr);
    removedLater = recorder("removed");
    removedToken = block("removedBlock");
    auto last = recorder("last");
    center_.postNotificationName("outer", nullptr);
    EXPECT_EQ(take(), (std::vector<std::string>{"first:outer", "first:inner", "last:inner", "added:inner",
                                                "first:end", "last:outer"}));
}

TEST_F(NotificationCenterTest, ThrowingObserverDoesNotStopTheOthers) {
    auto thrower = std::make_shared<int>(0);
    center_.addObserver(thrower, [](int&, const Notification&) { throw std::runtime_error("boom"); },
                        std::nullopt, nullptr);
    auto after = recorder("after");
    center_.postNotificationName("x", nullptr);
    EXPECT_EQ(take(), (std::vector<std::string>{"after:x"}));
}

TEST_F(NotificationCenterTest, BlockWithQueueRunsAsAnOperationOfThatQueue) {
    ThreadPool pool(2);
    auto queue = std::make_shared<OperationQueue>("test.observers", 1, pool);
    test::Gate gate;
    test::EventLog ran;
    std::thread::id ranOn;
    queue->addOperation([&] { gate.pass(); });  // holds the queue's only slot
    const auto token = center_.addObserverForName("x", nullptr, queue, [&](const Notification&) {
        ranOn = std::this_thread::get_id();
        ran.add(1);
    });
    center_.postNotificationName("x", nullptr);
    EXPECT_EQ(ran.size(), 0u) << "behind the queue's running operation, not on the posting thread";
    gate.open();
    ASSERT_TRUE(queue->waitUntilAllOperationsAreFinishedFor(kPatience));
    EXPECT_EQ(ran.size(), 1u);
    EXPECT_NE(ranOn, std::this_thread::get_id());
    center_.removeObserver(token);
}

}  // namespace
}  // namespace nb
