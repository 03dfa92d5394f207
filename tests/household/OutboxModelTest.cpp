#include <array>
#include <atomic>
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

/// Writes that are accepted, sent and lost at random, and what becomes of the lists.
class Model {
  public:
    Model(unsigned seed, OutboxOptions chosen)
        : writes_(seed), fates_(seed), options_(std::move(chosen)) {
        options_.removalDelay = 0s;
        delivery_->onSend(
            [this](const OutboxWrite& write, const auto& subscriber) { send(write, subscriber); });
        delivery_->onLookUp([this](const OutboxWrite& write, const auto& subscriber) {
            lookUp(write, subscriber);
        });
    }

    /// @param mostBetween  so much time passes at the most between two steps; at random
    void run(int steps, std::chrono::seconds mostBetween) {
        for (int step = 0; step < steps; ++step) {
            pass(mostBetween);
            if (!outbox_) open();
            if (writes_.pick(10) == 0) isAway_ = !isAway_;
            const auto next = writes_.pick(12);
            if (next == 0) {
                outbox_.reset();
            } else if (next == 1) {
                outbox_->networkIsBack();
            } else if (next < 4) {
                settle();
            } else {
                add(writes_.next());
            }
        }
        isAway_ = false;
        if (!outbox_) open();
        while (!store_->entries().empty()) {
            pass(mostBetween);
            outbox_->networkIsBack();
            settle();
        }
        outbox_.reset();
    }

    ModelService expected{};
    ModelService service{};
    std::size_t accepted = 0;
    std::size_t sent = 0;
    std::size_t lookedUp = 0;

  private:
    enum class Fate { lost, replyLost, busy, done };

    void open() { outbox_.emplace(store_, delivery_, scheduler_, options_); }

    void pass(std::chrono::seconds most) {
        if (most > 0s)
            scheduler_->advance(
                std::chrono::seconds(writes_.pick(static_cast<std::size_t>(most.count()))));
    }

    void settle() {
        const Observed settled(outbox_->settled());
        ASSERT_TRUE(TestSupport::eventually([&] {
            scheduler_->advance(0s);
            return settled.endedAtOnce();
        }));
    }

    void add(const OutboxWrite& write) {
        if (!Observed(outbox_->add(write)).completed()) return;
        expected.apply(write, scheduler_->wallTime());
        ++accepted;
    }

    Fate fate() {
        const auto picked = fates_.pick(10);
        if (isAway_) return Fate::lost;
        return picked < 3 ? static_cast<Fate>(picked) : Fate::done;
    }

    /// What the network does with a request; the reply is absent if it is lost.
    template <class Work>
    void pass(const rxcpp::subscriber<Response>& subscriber, Work work) {
        Fate fate{};
        std::optional<Response> reply;
        {
            const std::scoped_lock lock(mutex_);
            fate = this->fate();
            if (fate == Fate::replyLost || fate == Fate::done) reply = work();
        }
        if (fate == Fate::lost) return subscriber.on_error(networkIsAway());
        if (fate == Fate::replyLost)
            return subscriber.on_error(
                std::make_exception_ptr(SlingError(SlingErrorKind::connectionLost, "lost")));
        if (fate == Fate::busy) return subscriber.on_error(status(503));
        subscriber.on_next(*reply);
        subscriber.on_completed();
    }

    void send(const OutboxWrite& write, const rxcpp::subscriber<Response>& subscriber) {
        pass(subscriber, [&] {
            ++sent;
            service.apply(write, scheduler_->wallTime());
            return reply(204);
        });
    }

    void lookUp(const OutboxWrite& write, const rxcpp::subscriber<Response>& subscriber) {
        pass(subscriber, [&] {
            ++lookedUp;
            return reply(200, service.textOf(write));
        });
    }

    Writes writes_;
    Writes fates_;
    OutboxOptions options_;
    std::mutex mutex_;
    std::atomic<bool> isAway_ = false;  ///< the network
    std::shared_ptr<FakeScheduler> scheduler_ = std::make_shared<FakeScheduler>();
    std::shared_ptr<MemoryOutboxStore> store_ = std::make_shared<MemoryOutboxStore>();
    std::shared_ptr<FakeDelivery> delivery_ = std::make_shared<FakeDelivery>();
    std::optional<Outbox> outbox_;
};

}  // namespace

TEST(OutboxModel, LeavesTheServiceAsAllWritesInOrderWould) {
    std::size_t sent = 0;
    std::size_t accepted = 0;
    for (unsigned seed = 1; seed <= TestSupport::roundsOf(60); ++seed) {
        OutboxOptions options;
        options.compareAfter = std::chrono::hours(24);
        Model model(seed, options);
        model.run(60, 0s);
        ASSERT_EQ(model.service.lists(), model.expected.lists()) << "seed " << seed;
        accepted += model.accepted;
        sent += model.sent;
    }
    EXPECT_GT(accepted, 1000U);
    EXPECT_GT(sent, 500U);
}

TEST(OutboxModel, NeverTakesItsOwnWorkForNewerWhateverIsComparedAndHoweverLate) {
    std::size_t lookedUp = 0;
    for (unsigned seed = 1; seed <= TestSupport::roundsOf(60); ++seed) {
        OutboxOptions options;
        options.compareAfter = 0s;
        Model model(seed, options);
        model.run(60, 20s);
        ASSERT_EQ(model.service.lists(), model.expected.lists()) << "seed " << seed;
        lookedUp += model.lookedUp;
    }
    EXPECT_GT(lookedUp, 500U);
}
