// What somebody who watches makes of the network, the disk and the clock: from the player's
// positions to the requests.

#include <KestrinHousehold/outbox/HouseholdDelivery.hpp>
#include <KestrinHousehold/playback/PlaybackReporter.hpp>

#include "HouseholdFixture.hpp"
#include "OutboxSupport.hpp"

using namespace HouseholdTest;
using KestrinHousehold::HouseholdDelivery;
using KestrinHousehold::PlaybackReporter;
using KestrinHousehold::PlaybackVideo;

namespace {

class WatchingTest : public TestSupport::HouseholdFixture {
  protected:
    /// What has been done by now.
    struct Done {
        std::size_t requests = 0;
        std::size_t commits = 0;
        std::size_t wakeUps = 0;

        friend bool operator==(const Done&, const Done&) = default;
    };

    WatchingTest() {
        transport->alwaysAnswer([](const TransportRequest& request) {
            return isForBind(request) ? bindReply("p", "t") : reply(204);
        });
        HouseholdOptions all = options();
        all.scheduler = clock;
        house.emplace(std::move(all));
        outbox =
            std::make_shared<Outbox>(store, std::make_shared<HouseholdDelivery>(*house), clock);
        reporter.emplace(PlaybackVideo{"p", "b", "v"}, KestrinHousehold::keepIn(outbox), clock);
    }

    ~WatchingTest() override {
        reporter.reset();
        outbox.reset();
        house.reset();
    }

    /// Lets the outbox do what there is to do now.
    void settle() const {
        const Observed settled(outbox->settled());
        EXPECT_TRUE(TestSupport::eventually([&] {
            clock->kept.advance(0s);
            return settled.endedAtOnce();
        }));
    }

    /// The player tells its position four times a second.
    void watch(std::chrono::seconds from, std::chrono::seconds until) {
        for (std::chrono::milliseconds at = from; at < until; at += 250ms) {
            reporter->positionIs(at);
            settle();
            clock->kept.advance(250ms);
        }
    }

    [[nodiscard]] Done done() const {
        return {transport->requests().size(), static_cast<std::size_t>(store->commits),
                clock->wakeUps};
    }

    std::shared_ptr<FailingScheduler> clock = std::make_shared<FailingScheduler>();
    std::shared_ptr<FailingStore> store = std::make_shared<FailingStore>();
    std::optional<Household> house;
    std::shared_ptr<Outbox> outbox;
    std::optional<PlaybackReporter> reporter;
};

}  // namespace

TEST_F(WatchingTest, TakesAtMost360WritesForAnHourAlsoWithPausesAndNothingWhilePaused) {
    for (const auto begin : {0min, 15min, 30min}) {
        watch(begin, begin + 15min);
        reporter->paused();
        settle();
        EXPECT_EQ(store->kept.entries().size(), 0U);
        EXPECT_EQ(clock->kept.waiting(), 0U);
        const Done before = done();
        clock->kept.advance(24h);
        EXPECT_EQ(done(), before);
        EXPECT_EQ(clock->kept.waiting(), 0U);
    }
    watch(45min, 60min);
    reporter->finished();
    settle();
    const std::size_t binds = 1;
    const auto writes = transport->requests().size() - binds;
    EXPECT_GE(writes, 350U);
    EXPECT_LE(writes, 360U);
    // Each is stored, and taken out again when the service has it.
    EXPECT_LE(done().commits, 2 * writes);
    EXPECT_LE(clock->wakeUps, writes);
}
