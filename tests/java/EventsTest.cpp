// What the library tells Java, also if there is no memory.

#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "Events.hpp"
#include "support/Allocations.hpp"

namespace {

using KestrinJava::Context;
using KestrinJava::EventKind;
using KestrinJava::Events;
using KestrinJava::Reader;
using KestrinJava::Writer;
using testing::ElementsAre;
using testing::ElementsAreArray;
using TestSupport::Failing;
using TestSupport::FailingAllocations;

/// Long enough that no text has room for it without an allocation.
const std::string filling(100, 'x');

Context* contextOf(std::int64_t id) {
    auto context = std::make_unique<Context>();
    context->id = id;
    return context.release();
}

bool add(Events& events, Context& context) {
    return events.add(context, EventKind::completed,
                      [](Writer& writer) { writer.text({filling.data(), filling.size()}); });
}

/// The events that are there, in one line each.
std::vector<std::string> taken(Events& events) {
    std::vector<std::string> all;
    Reader reader(events.next());
    while (reader.hasMore()) {
        const auto id = std::to_string(reader.number<std::int64_t>());
        const auto kind = static_cast<EventKind>(reader.number<std::int8_t>());
        static_cast<void>(reader.count());
        if (kind == EventKind::released)
            all.push_back(id + (reader.boolean() ? " released, lacked memory" : " released"));
        else
            all.push_back(id + (reader.text().length == filling.size() ? " completed" : " broken"));
    }
    events.forget();
    return all;
}

TEST(JavaEvents, AreTakenInTheirOrderAndAContextIsReleasedAfterItsOwn) {
    Events events;
    Context* const first = contextOf(1);
    Context* const second = contextOf(2);
    EXPECT_TRUE(add(events, *second));
    EXPECT_TRUE(add(events, *first));
    events.release(second);
    EXPECT_TRUE(add(events, *first));
    events.release(first);
    EXPECT_THAT(taken(events), ElementsAre("2 completed", "1 completed", "1 completed",
                                           "2 released", "1 released"));
}

TEST(JavaEvents, WakeTheThreadThatWaits) {
    Events events;
    std::vector<std::string> all;
    std::thread waiting([&] { all = taken(events); });
    events.release(contextOf(7));
    waiting.join();
    EXPECT_THAT(all, ElementsAre("7 released"));
}

TEST(JavaEvents, ForWhichThereIsNoMemoryAreToldOfByTheRelease) {
    Events events;
    Context* const context = contextOf(1);
    {
        const FailingAllocations none(Failing::allFrom, 1);
        EXPECT_FALSE(add(events, *context));
        events.release(context);
    }
    EXPECT_THAT(taken(events), ElementsAre("1 released, lacked memory"));
}

TEST(JavaEvents, AreNotLostIfThereIsNoMemoryToHandThemOver) {
    constexpr int contexts = 100;
    std::vector<std::string> all{"1 completed", "1 released"};
    for (int id = 2; id <= contexts; ++id)
        all.push_back(std::to_string(id) + " released");
    for (long at = 1;; ++at) {
        Events events;
        Context* const context = contextOf(1);
        ASSERT_TRUE(add(events, *context));
        events.release(context);
        for (int id = 2; id <= contexts; ++id)
            events.release(contextOf(id));
        const FailingAllocations failing(Failing::one, at);
        try {
            static_cast<void>(events.next());
        } catch (const std::bad_alloc&) {
        }
        failing.end();
        EXPECT_THAT(taken(events), ElementsAreArray(all)) << at;
        if (!failing.hasFailed()) {
            EXPECT_GT(at, 1);
            return;
        }
    }
}

}  // namespace
