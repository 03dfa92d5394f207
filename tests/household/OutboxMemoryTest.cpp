// Lets the allocations of an outbox fail, one after the other and all from one on, on whatever
// thread. A program of its own, because it replaces the allocation functions.

#include <atomic>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <KestrinHousehold/playback/PlaybackReporter.hpp>

#include "OutboxSupport.hpp"
#include "support/Allocations.hpp"

using namespace HouseholdTest;
using testing::IsEmpty;
using TestSupport::Failing;
using TestSupport::FailingAllocations;
using TestSupport::SparedAllocations;

namespace {

bool isAny() noexcept {
    return true;
}

/// Notes what is sent without needing the memory that is lacking.
class SparedDelivery final : public KestrinHousehold::OutboxDelivery {
  public:
    explicit SparedDelivery(int refusals) : refusals_(refusals) {}

    [[nodiscard]] Observable<Response> send(const OutboxWrite& write) override {
        const SparedAllocations ours;
        return rxcpp::observable<>::create<Response>(
            [this, write](const rxcpp::subscriber<Response>& subscriber) {
                bool isRefused = false;
                {
                    const SparedAllocations ours;
                    const std::scoped_lock lock(mutex_);
                    sent_.push_back(write.itemID);
                    isRefused = refusals_-- > 0;
                }
                if (isRefused) return subscriber.on_error(networkIsAway());
                subscriber.on_next(reply(204));
                subscriber.on_completed();
            });
    }
    [[nodiscard]] Observable<Response> lookUp(const OutboxWrite& write) override {
        return send(write);
    }
    [[nodiscard]] std::vector<std::string> sent() const {
        const std::scoped_lock lock(mutex_);
        return sent_;
    }

  private:
    mutable std::mutex mutex_;
    std::vector<std::string> sent_;
    int refusals_;
};

/// How an addition has ended.
struct Addition {
    std::string item;
    std::atomic<int> values{0};
    std::atomic<int> ends{0};
    std::atomic<bool> wasThrown{false};
};

class OutboxMemory : public testing::TestWithParam<Failing> {
  protected:
    /// @return whether an allocation failed
    bool failAt(long at) {
        const auto scheduler = std::make_shared<FakeScheduler>();
        const auto store = std::make_shared<KestrinHousehold::MemoryOutboxStore>();
        const auto delivery = std::make_shared<SparedDelivery>(1);
        auto outbox = std::make_shared<Outbox>(store, delivery, scheduler);
        std::vector<std::unique_ptr<Addition>> additions;
        for (const char* const item : {"a long name of a first show", "another one", "a third"}) {
            additions.push_back(std::make_unique<Addition>());
            additions.back()->item = item;
        }

        const FailingAllocations failing(GetParam(), at, &isAny);
        for (const auto& addition : additions)
            add(*outbox, *addition);
        scheduler->advance(0s);
        awaitFailureOrEnds(failing, additions);
        scheduler->advance(0s);
        failing.end();

        settle(*outbox, *scheduler);
        const auto sent = delivery->sent();
        for (const auto& addition : additions) {
            EXPECT_EQ(addition->ends, addition->wasThrown ? 0 : 1) << addition->item;
            const bool isSent = std::ranges::count(sent, addition->item) > 0;
            EXPECT_EQ(isSent, addition->values == 1) << addition->item;
            wasLacking_ |= addition->values == 0;
        }
        EXPECT_THAT(store->entries(), IsEmpty());
        outbox.reset();
        return failing.hasFailed();
    }

    bool wasLacking_ = false;

  private:
    static void add(const Outbox& outbox, Addition& addition) {
        OutboxWrite made;
        {
            const SparedAllocations ours;
            made = write(Op::addVideoToWatchList, addition.item);
        }
        try {
            outbox.add(std::move(made))
                .subscribe([&](const OutboxEntry&) { ++addition.values; },
                           [&](const std::exception_ptr&) { ++addition.ends; },
                           [&] { ++addition.ends; });
        } catch (const std::bad_alloc&) {
            addition.wasThrown = true;
        }
    }

    static void awaitFailureOrEnds(const FailingAllocations& failing,
                                   const std::vector<std::unique_ptr<Addition>>& additions) {
        const SparedAllocations ours;
        EXPECT_TRUE(TestSupport::eventually([&] {
            return failing.hasFailed() || std::ranges::all_of(additions, [](const auto& one) {
                       return one->ends + (one->wasThrown ? 1 : 0) > 0;
                   });
        }));
    }

    static void settle(Outbox& outbox, FakeScheduler& scheduler) {
        EXPECT_TRUE(TestSupport::eventually([&] {
            outbox.networkIsBack();
            scheduler.advance(10s);
            const Observed opening(outbox.opening());
            const Observed settled(outbox.settled());
            return opening.endedAtOnce() && !opening.values().empty() && settled.endedAtOnce() &&
                   settled.values().front() == KestrinHousehold::OutboxState{0, 0};
        }));
    }
};

TEST_P(OutboxMemory, WhatWasAcceptedIsSentAndNothingElseWhateverLacksMemory) {
    bool hasFailed = true;
    for (long at = 1; hasFailed && !HasFailure(); ++at) {
        SCOPED_TRACE("allocation " + std::to_string(at));
        hasFailed = failAt(at);
    }
    EXPECT_TRUE(wasLacking_);
}

INSTANTIATE_TEST_SUITE_P(Fails, OutboxMemory, testing::Values(Failing::one, Failing::allFrom),
                         [](const auto& each) {
                             return each.param == Failing::one ? "One" : "AllFromOneOn";
                         });

TEST(PlaybackReporterMemory, APositionThatLackedMemoryIsWrittenLater) {
    bool hasFailed = true;
    for (long at = 1; hasFailed; ++at) {
        std::vector<std::int64_t> written;
        const auto sink = [&](const OutboxWrite& made, const std::function<void()>& taken,
                              const std::function<void(const std::exception_ptr&)>&) {
            const SparedAllocations ours;
            written.push_back(made.progress.value_or(-1));
            taken();
        };
        KestrinHousehold::PlaybackReporter reporter(
            {"a profile with a long name", "and a brand of one", "and a video of another one"},
            sink, std::make_shared<FakeScheduler>(), {});
        const FailingAllocations failing(Failing::one, at);
        try {
            reporter.positionIs(42s);
            reporter.paused();
        } catch (const std::bad_alloc&) {  // Said to the application.
        }
        failing.end();
        hasFailed = failing.hasFailed();
        reporter.paused();
        EXPECT_EQ(written, std::vector<std::int64_t>{42}) << at;
    }
}

}  // namespace
