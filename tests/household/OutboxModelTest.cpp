#include <array>
#include <mutex>
#include <random>
#include <support/Rounds.hpp>

#include <KestrinHousehold/outbox/MemoryOutboxStore.hpp>

#include "OutboxSupport.hpp"

using namespace HouseholdTest;
using KestrinHousehold::MemoryOutboxStore;
using KestrinHousehold::OutboxOptions;

namespace {

/// Random writes of few items, so that they meet.
class Writes {
  public:
    explicit Writes(unsigned seed) : random_(seed) {}

    OutboxWrite next() {
        constexpr std::array operations{
            Op::addVideoToHistory,  Op::addVideoToHistory,   Op::removeVideoFromHistory,
            Op::clearHistory,       Op::addFavoriteShow,     Op::addFavoriteShows,
            Op::removeFavoriteShow, Op::clearFavorites,      Op::addVideoToWatchList,
            Op::addSearchHistory,   Op::removeFromWatchList, Op::clearWatchList,
            Op::deleteSearchHistory};
        auto made = write(operations.at(pick(operations.size())), item(), pick(3) == 0 ? "q" : "p");
        const bool isClear =
            made.operation == Op::clearHistory || made.operation == Op::clearFavorites ||
            made.operation == Op::clearWatchList || made.operation == Op::deleteSearchHistory;
        if (isClear || made.operation == Op::addFavoriteShows) made.itemID.clear();
        if (made.operation == Op::addVideoToHistory) {
            made.progress = pick(100);
            if (pick(2) == 0) made.isComplete = pick(2) == 0;
        }
        if (made.operation == Op::addFavoriteShows)
            for (auto count = 1 + pick(3); count > 0; --count)
                made.shows.emplace_back(item(),
                                        pick(2) == 0 ? std::optional(Types::game) : std::nullopt);
        return made;
    }

    std::uint32_t pick(std::size_t below) { return static_cast<std::uint32_t>(random_() % below); }

  private:
    std::string item() { return std::string(1, static_cast<char>('a' + pick(3))); }

    std::mt19937 random_;
};

}  // namespace

TEST(OutboxModel, LeavesTheServiceAsAllWritesInOrderWould) {
    std::size_t sent = 0;
    std::size_t accepted = 0;
    for (unsigned seed = 1; seed <= TestSupport::roundsOf(60); ++seed) {
        Writes writes(seed);
        ModelService expected;
        ModelService service;
        const auto scheduler = std::make_shared<FakeScheduler>();
        const auto store = std::make_shared<MemoryOutboxStore>();
        const auto delivery = std::make_shared<FakeDelivery>();
        std::mutex mutex;
        Writes fates(seed);
        const auto asItHappens = [&](const OutboxWrite& write, const auto& subscriber) {
            const std::uint32_t fate = [&] {
                const std::scoped_lock lock(mutex);
                ++sent;
                const auto picked = fates.pick(10);
                if (picked != 0) service.apply(write);
                return picked;
            }();
            if (fate == 0) return subscriber.on_error(networkIsAway());
            if (fate == 1)  // applied, but the reply is lost
                return subscriber.on_error(
                    std::make_exception_ptr(SlingError(SlingErrorKind::connectionLost, "lost")));
            if (fate == 2) return subscriber.on_error(status(503));
            FakeDelivery::accept(write, subscriber);
        };
        delivery->onSend(asItHappens);
        OutboxOptions options;
        options.compareAfter = std::chrono::hours(24);
        options.removalDelay = 0s;
        std::optional<Outbox> outbox;
        const auto settle = [&] {
            const Observed settled(outbox->settled());
            ASSERT_TRUE(TestSupport::eventually([&] {
                scheduler->advance(0s);
                return settled.endedAtOnce();
            }));
        };
        for (int step = 0; step < 60; ++step) {
            if (!outbox) outbox.emplace(store, delivery, scheduler, options);
            const auto next = writes.pick(12);
            if (next == 0) {
                outbox.reset();
            } else if (next == 1) {
                outbox->networkIsBack();
            } else if (next < 4) {
                settle();
            } else {
                const auto write = writes.next();
                if (Observed(outbox->add(write)).completed()) {
                    expected.apply(write);
                    ++accepted;
                }
            }
        }
        if (!outbox) outbox.emplace(store, delivery, scheduler, options);
        while (!store->entries().empty()) {
            outbox->networkIsBack();
            settle();
        }
        outbox.reset();
        ASSERT_EQ(service.lists(), expected.lists()) << "seed " << seed;
    }
    EXPECT_GT(accepted, 1000U);
    EXPECT_GT(sent, 500U);
}
