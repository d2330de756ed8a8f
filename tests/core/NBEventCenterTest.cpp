#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "nbbase/NBConstants.h"
#include "nbbase/core/NBEventCenter.h"
#include "tests/foundation/DispatchTestSupport.h"

namespace nb {
namespace {

using test::kPatience;
using Log = std::vector<std::string>;

struct Recorder {
    Recorder(Log& log, std::string tag) : log(log), tag(std::move(tag)) {}
    void onEvent(const Notification& n) { log.push_back(tag + ":" + n.name); }
    Log& log;
    std::string tag;
};

// The queue is bound to the test's thread, which drives it.
class NBEventCenterTest : public testing::Test {
protected:
    std::shared_ptr<Recorder> listen(NBEventCenter& center, const std::string& tag,
                                     std::optional<std::string> name = std::nullopt) {
        auto r = std::make_shared<Recorder>(log_, tag);
        center.addEventListener(r, &Recorder::onEvent, std::move(name), nullptr);
        return r;
    }
    Log take() { return std::exchange(log_, {}); }

    Log log_;
    MainQueue queue_;
    NBEventCenter center_{queue_};
};

TEST_F(NBEventCenterTest, PostReturnsUndeliveredAndMatchesWhenTheMainQueueRunsIt) {
    auto early = listen(center_, "early");
    center_.postEventName(NIMBO_EVENT_GAME_STARTED, nullptr);
    EXPECT_TRUE(log_.empty()) << "never inside the poster's stack, even on the main thread";
    auto late = listen(center_, "late");  // after the post, before delivery
    EXPECT_EQ(queue_.drain(), 1u);
    EXPECT_EQ(take(), (Log{"early:nimbo-event-game-started", "late:nimbo-event-game-started"}));
}

TEST_F(NBEventCenterTest, ReachesOnlyItsOwnListeners) {
    NBEventCenter other(queue_);
    auto mine = listen(center_, "mine"), theirs = listen(other, "theirs");
    const auto platform = NotificationCenter::defaultCenter().addObserverForName(
        NIMBO_EVENT_GAME_STARTED, nullptr, nullptr, [&](const Notification& n) { log_.push_back("default:" + n.name); });
    center_.postEventName(NIMBO_EVENT_GAME_STARTED, nullptr);
    queue_.drain();
    EXPECT_EQ(take(), (Log{"mine:nimbo-event-game-started"}));
    NotificationCenter::defaultCenter().postNotificationName(NIMBO_EVENT_GAME_STARTED, nullptr);
    EXPECT_EQ(take(), (Log{"default:nimbo-event-game-started"}));
    NotificationCenter::defaultCenter().removeObserver(platform);
}

TEST_F(NBEventCenterTest, ContextBecomesUserInfoAndNilStaysAbsent) {
    std::vector<Notification> got;
    const auto token = center_.addEventListenerForName(std::nullopt, nullptr, nullptr,
                                                       [&](const Notification& n) { got.push_back(n); });
    auto sender = std::make_shared<int>(1);
    const auto context = Value::dictionary({{"gameId", "g1"}});
    center_.postEventName("a", sender);
    center_.postEventName("b", nullptr, Value());
    center_.postEventName("c", nullptr, context);
    center_.postEvent(Notification{"d", sender, context});
    queue_.drain();
    ASSERT_EQ(got.size(), 4u);
    EXPECT_TRUE(got[0].userInfo.isAbsent() && got[1].userInfo.isAbsent());
    EXPECT_EQ(got[0].object, sender);
    EXPECT_EQ(got[2].userInfo, context);
    EXPECT_TRUE(got[3].object == sender && got[3].userInfo == context && got[3].name == "d");
    center_.removeListener(token);
}

// A token with a name and a sender removes its block only when the registration was made for that name and
// sender; a listener or another block with the same filters is never touched.
TEST_F(NBEventCenterTest, TokenRemovedByNameAndSenderOnlyWhenItsRegistrationMatches) {
    const auto s1 = std::make_shared<int>(1), s2 = std::make_shared<int>(2);
    using Name = std::optional<std::string>;
    const struct { Name name; EventObject sender; Name removeName; EventObject removeSender; bool stays; } cases[] = {
        {"a", s1, "a", s1, false},
        {"a", s1, "a", nullptr, false},
        {"a", s1, std::nullopt, nullptr, false},
        {"a", s1, "b", s1, true},
        {"a", s1, "a", s2, true},
        {"a", nullptr, "a", s1, true},
        {std::nullopt, s1, "a", s1, true},
    };
    for (const auto& c : cases) {
        const auto token = center_.addEventListenerForName(c.name, c.sender, nullptr,
                                                           [&](const Notification&) { log_.push_back("token"); });
        const auto other = center_.addEventListenerForName(c.name, c.sender, nullptr,
                                                           [&](const Notification&) { log_.push_back("other"); });
        auto target = std::make_shared<Recorder>(log_, "target");
        center_.addEventListener(target, &Recorder::onEvent, c.name, c.sender);
        center_.removeListener(token, c.removeName, c.removeSender);
        center_.postEventName("a", s1);
        queue_.drain();
        const Log expected = c.stays ? Log{"token", "other", "target:a"} : Log{"other", "target:a"};
        EXPECT_EQ(take(), expected) << c.name.value_or("*") << "/" << c.sender.get() << " removed by "
                                    << c.removeName.value_or("*") << "/" << c.removeSender.get();
        for (const auto& t : {token, other}) center_.removeListener(t);
        center_.removeListener(target.get());
    }
}

TEST_F(NBEventCenterTest, PostInsideListenerIsDeliveredAfterTheCurrentEvent) {
    auto poster = std::make_shared<int>(0);
    center_.addEventListener(poster, [&](int&, const Notification&) {
        log_.push_back("poster:a");
        center_.postEventName("b", nullptr);
        log_.push_back("poster:end");
    }, "a", nullptr);
    auto all = listen(center_, "all");
    center_.postEventName("a", nullptr);
    queue_.drain();
    EXPECT_EQ(take(), (Log{"poster:a", "poster:end", "all:a", "all:b"}));
}

TEST_F(NBEventCenterTest, DestroyedWithEventsQueuedThoseEventsGoNowhere) {
    auto center = std::make_unique<NBEventCenter>(queue_);
    auto listener = listen(*center, "gone");
    [[maybe_unused]] const auto token = center->addEventListenerForName(std::nullopt, nullptr, nullptr,
                                                       [&](const Notification&) { log_.push_back("block"); });
    for (const char* name : {"a", "b", "c"}) center->postEventName(name, std::make_shared<int>(0), Value(1));
    center.reset();
    EXPECT_EQ(queue_.drain(), 3u);
    EXPECT_TRUE(log_.empty());
}

// Listeners come and go on other threads meanwhile; the steady ones, one of each kind, must see every event
// once, each poster's in its order.
TEST_F(NBEventCenterTest, ConcurrentPostersReachSteadyListenersOnceEachInPostOrder) {
    constexpr int kPosters = 4, kPerPoster = 2000;
    struct Tally {  // touched only on the main thread, where events arrive
        std::vector<std::vector<int>> seen = std::vector<std::vector<int>>(kPosters);
        int total = 0;
        void onEvent(const Notification& n) {
            seen.at(n.userInfo["thread"].intValue()).push_back(n.userInfo["seq"].intValue());
            ++total;
        }
    };
    const auto member = std::make_shared<Tally>(), block = std::make_shared<Tally>();
    center_.addEventListener(member, &Tally::onEvent, "tick", nullptr);
    const auto token = center_.addEventListenerForName("tick", nullptr, nullptr,
                                                       [block](const Notification& n) { block->onEvent(n); });
    std::atomic<bool> posting{true};
    std::vector<std::thread> threads;
    for (int t = 0; t < kPosters; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kPerPoster; ++i)
                center_.postEventName("tick", nullptr, Value::dictionary({{"thread", t}, {"seq", i}}));
        });
    }
    for (int c = 0; c < 2; ++c) {
        threads.emplace_back([&, c] {
            for (int round = 0; posting; ++round) {
                auto transient = std::make_shared<Tally>();
                center_.addEventListener(transient, &Tally::onEvent, "tick", nullptr);
                const auto blockToken =
                    center_.addEventListenerForName("tick", nullptr, nullptr, [](const Notification&) {});
                std::this_thread::yield();
                center_.removeListener(blockToken);
                if ((round + c) % 2 == 0) center_.removeListener(transient.get());  // else dropped unremoved
            }
        });
    }
    const bool allDelivered = queue_.runUntil(
        [&] { return member->total >= kPosters * kPerPoster && block->total >= kPosters * kPerPoster; }, kPatience);
    posting = false;
    for (auto& thread : threads) thread.join();
    ASSERT_TRUE(allDelivered);
    queue_.drain();
    std::vector<int> inOrder(kPerPoster);
    std::iota(inOrder.begin(), inOrder.end(), 0);
    for (const auto& tally : {member, block})
        for (int t = 0; t < kPosters; ++t) EXPECT_EQ(tally->seen[t], inOrder) << "thread " << t;
    center_.removeListener(token);
}

}  // namespace
}  // namespace nb
