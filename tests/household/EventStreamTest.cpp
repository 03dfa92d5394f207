#include <memory>
#include <new>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <KestrinHousehold/outbox/internal/EventStream.hpp>

namespace {

using KestrinHousehold::internal::EventStream;

/// An event, of which each copy takes memory. There is none for a second copy of number 2: the one
/// that a sender takes of what waits.
struct Event {
    int number = 0;
    bool isLastCopy = false;

    explicit Event(int aNumber) : number(aNumber) {}
    Event(const Event& other) : number(other.number), isLastCopy(other.number == 2) {
        if (other.isLastCopy) throw std::bad_alloc();
    }
    Event& operator=(const Event&) = default;
    ~Event() = default;
};

TEST(EventStream, LosesOnlyTheEventForWhichThereIsNoMemory) {
    const auto stream = std::make_shared<EventStream<Event>>();
    std::vector<int> heard;
    stream->observable().subscribe([&](const Event& event) { heard.push_back(event.number); });
    std::vector<Event> events;
    events.reserve(3);
    for (const int number : {1, 2, 3})
        events.emplace_back(number);
    stream->queue(std::move(events));
    stream->send();
    EXPECT_EQ(heard, (std::vector{1, 3}));
    stream->queue({Event(4)});
    stream->send();
    EXPECT_EQ(heard, (std::vector{1, 3, 4})) << "it goes on sending";
}

TEST(EventStream, SendsInTheOrderOfQueueingWhicheverThreadSends) {
    const auto stream = std::make_shared<EventStream<int>>();
    std::vector<int> heard;
    stream->observable().subscribe([&](int number) {
        heard.push_back(number);
        // Another thread tells what came meanwhile, and so does not send it itself.
        if (number == 1) {
            std::thread([&] {
                stream->queue({3});
                stream->send();
            }).join();
            EXPECT_EQ(heard, (std::vector{1}));
        }
    });
    stream->queue({1});
    stream->queue({2});
    EXPECT_TRUE(heard.empty());
    stream->send();
    EXPECT_EQ(heard, (std::vector{1, 2, 3}));
}

TEST(EventStream, MayEndBeforeThoseWhoListen) {
    auto stream = std::make_shared<EventStream<int>>();
    const auto listens = std::make_shared<bool>(true);
    auto subscription = stream->observable().subscribe([listens](int) {});
    EXPECT_GT(listens.use_count(), 1);
    stream.reset();
    subscription.unsubscribe();
    EXPECT_EQ(listens.use_count(), 1);
}

}  // namespace
