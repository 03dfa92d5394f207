#include <KestrinHousehold/outbox/MemoryOutboxStore.hpp>
#include <KestrinHousehold/playback/PlaybackReporter.hpp>

#include "OutboxSupport.hpp"

using namespace HouseholdTest;
using KestrinHousehold::PlaybackOptions;
using KestrinHousehold::PlaybackReporter;
using KestrinHousehold::PlaybackVideo;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class PlaybackReporterTest : public testing::Test {
  protected:
    std::shared_ptr<FakeScheduler> scheduler = std::make_shared<FakeScheduler>();
    std::shared_ptr<FakeDelivery> delivery = std::make_shared<FakeDelivery>();
    PlaybackOptions options;
    std::optional<PlaybackReporter> reporter;

    PlaybackReporter& watching() {
        if (!reporter)
            reporter.emplace(PlaybackVideo{"p", "b", "v"}, KestrinHousehold::sendWith(delivery),
                             scheduler, options);
        return *reporter;
    }

    void watch(std::chrono::seconds from, std::chrono::seconds until,
               std::chrono::milliseconds step = 250ms) {
        for (std::chrono::milliseconds at = from; at < until; at += step) {
            watching().positionIs(at);
            scheduler->advance(step);
        }
    }

    /// An unanswered write would keep its reporter alive, and the reporter the delivery that holds
    /// the write.
    void TearDown() override {
        delivery->onSend(&FakeDelivery::accept);
        while (delivery->held() > 0)
            delivery->answerNext();
    }

    [[nodiscard]] std::vector<OutboxWrite> written() const { return delivery->sent(); }
};

}  // namespace

TEST_F(PlaybackReporterTest, MakesAtMost360WritesInAnHourOfWatching) {
    watch(0s, 1h);
    reporter->finished();
    EXPECT_LE(written().size(), 360U);
    EXPECT_GE(written().size(), 350U);
    EXPECT_EQ(written().front(), progress("v", 10));
    EXPECT_EQ(written().back(), progress("v", 3599, true));
    reporter.reset();
    EXPECT_LE(written().size(), 360U);
}

TEST_F(PlaybackReporterTest, NeedsNoTimer) {
    watch(0s, 1min);
    EXPECT_EQ(scheduler->waiting(), 0U);
    reporter->paused();
    EXPECT_EQ(scheduler->waiting(), 0U);
}

TEST_F(PlaybackReporterTest, WritesAtOnceWhenPausedOrInTheBackgroundButNothingTwice) {
    watching().positionIs(3s);
    reporter->paused();
    EXPECT_THAT(written(), ElementsAre(progress("v", 3)));
    reporter->inBackground();
    reporter->paused();
    reporter.reset();
    EXPECT_THAT(written(), SizeIs(1));
}

TEST_F(PlaybackReporterTest, BeginsTheIntervalAnewWhenAPausedVideoGoesOn) {
    watch(0s, 15s);
    reporter->paused();
    EXPECT_THAT(written(), ElementsAre(progress("v", 10), progress("v", 14)));
    scheduler->advance(1h);
    reporter->positionIs(14s);  // some players tell it over and over
    scheduler->advance(1h);
    reporter->positionIs(14500ms);
    watch(15s, 24s);
    EXPECT_THAT(written(), SizeIs(2));
    watch(24s, 26s);
    EXPECT_THAT(written(), SizeIs(3));
    EXPECT_EQ(written().back(), progress("v", 25));
}

TEST_F(PlaybackReporterTest, WritesAMoveOfAPausedVideo) {
    watch(0s, 15s);
    reporter->paused();
    scheduler->advance(1h);
    reporter->movedTo(90s);
    EXPECT_EQ(written().back(), progress("v", 90));
}

TEST_F(PlaybackReporterTest, NeverWritesAnUnknownPosition) {
    watching().positionIs(std::nullopt);
    reporter->positionIs(-1s);
    reporter->paused();
    reporter->inBackground();
    scheduler->advance(1h);
    reporter->positionIs(std::nullopt);
    EXPECT_THAT(written(), IsEmpty());
    reporter->positionIs(5s);
    reporter->movedTo(std::nullopt);
    reporter->paused();
    EXPECT_THAT(written(), ElementsAre(progress("v", 5)));
    reporter->finished();
    EXPECT_THAT(written(), SizeIs(1));
    reporter->positionIs(9s);
    EXPECT_EQ(written().back(), progress("v", 9, true));
}

TEST_F(PlaybackReporterTest, WritesAKnownPositionAtTheBeginning) {
    watching().positionIs(0s);
    reporter->paused();
    EXPECT_THAT(written(), ElementsAre(progress("v", 0)));
}

TEST_F(PlaybackReporterTest, TakesAPositionAfterTheEndForALateOne) {
    watching().positionIs(100s);
    reporter->finished();
    scheduler->advance(1h);
    reporter->positionIs(99s);
    reporter->paused();
    reporter.reset();
    EXPECT_THAT(written(), ElementsAre(progress("v", 100, true)));
}

TEST_F(PlaybackReporterTest, BeginsAnewAfterTheEndIfSomebodyMovesThePlayer) {
    watching().positionIs(100s);
    reporter->finished();
    reporter->movedTo(7s);
    reporter->paused();
    EXPECT_THAT(written(), ElementsAre(progress("v", 100, true), progress("v", 7)));
}

TEST_F(PlaybackReporterTest, WritesTheEndBeforeWhatIsWatchedAgain) {
    delivery->hold();
    watching().positionIs(3s);
    reporter->paused();
    reporter->finished();
    reporter->movedTo(0s);
    delivery->answerNext();
    EXPECT_THAT(written(), ElementsAre(progress("v", 3), progress("v", 3, true)));
    delivery->answerNext();
    EXPECT_THAT(written(), SizeIs(2));
    reporter->paused();
    EXPECT_EQ(written().back(), progress("v", 0));
}

TEST_F(PlaybackReporterTest, TakesAnEndThatWasNotTakenForNoEndOfWhatIsWatchedAgain) {
    delivery->hold();
    watching().positionIs(100s);
    reporter->finished();
    reporter->movedTo(3s);
    delivery->answerNext(FakeDelivery::failing(networkIsAway()));
    delivery->onSend(&FakeDelivery::accept);
    reporter->paused();
    EXPECT_THAT(written(),
                ElementsAre(progress("v", 100, true), progress("v", 100, true), progress("v", 3)));
}

TEST_F(PlaybackReporterTest, WritesOnlyTheLastOfManyMoves) {
    watching().positionIs(1s);
    for (int at = 0; at < 100; ++at)
        reporter->movedTo(std::chrono::seconds(at));
    EXPECT_THAT(written(), IsEmpty());
    reporter.reset();
    EXPECT_THAT(written(), ElementsAre(progress("v", 99)));
}

TEST_F(PlaybackReporterTest, HasOneWriteOnItsWayAndThenTheLatest) {
    delivery->hold();
    watch(0s, 60s);
    EXPECT_THAT(written(), SizeIs(1));
    delivery->answerNext();
    EXPECT_THAT(written(), ElementsAre(progress("v", 10), progress("v", 59)));
}

TEST_F(PlaybackReporterTest, WritesAgainWhatWasNotTaken) {
    int failures = 0;
    options.failed = [&](const std::exception_ptr&) { ++failures; };
    delivery->onSend(FakeDelivery::failing(networkIsAway()));
    watching().positionIs(3s);
    reporter->finished();
    EXPECT_EQ(failures, 1);
    delivery->onSend(&FakeDelivery::accept);
    reporter->inBackground();
    EXPECT_THAT(written(), ElementsAre(progress("v", 3, true), progress("v", 3, true)));
}

TEST_F(PlaybackReporterTest, LeavesWhatIsKnownToAnOutboxAtItsEnd) {
    const auto store = std::make_shared<KestrinHousehold::MemoryOutboxStore>();
    delivery->onSend(FakeDelivery::failing(networkIsAway()));
    auto outbox = std::make_shared<Outbox>(store, delivery, scheduler);
    ASSERT_TRUE(Observed(outbox->opening()).completed());
    reporter.emplace(PlaybackVideo{"p", "b", "v"}, KestrinHousehold::keepIn(outbox), scheduler);
    reporter->positionIs(42s);
    reporter.reset();
    outbox.reset();
    ASSERT_TRUE(TestSupport::eventually([&] { return store->entries().size() == 1; }));
    EXPECT_EQ(store->entries().front().write, progress("v", 42));
}

TEST_F(PlaybackReporterTest, HearsOfEachWriteOnceHoweverOftenTheSinkAnswers) {
    int failures = 0;
    options.failed = [&](const std::exception_ptr&) { ++failures; };
    delivery->onSend([](const OutboxWrite&, const auto& subscriber) {
        subscriber.on_next(reply(204));
        subscriber.on_error(networkIsAway());
    });
    watching().positionIs(3s);
    reporter->paused();
    delivery->hold();
    for (const auto position : {4s, 5s}) {
        reporter->positionIs(position);
        reporter->paused();
    }
    delivery->answerNext([](const OutboxWrite&, const auto& subscriber) {
        subscriber.on_next(reply(204));
        subscriber.on_next(reply(204));
    });
    reporter->positionIs(6s);
    reporter->paused();
    EXPECT_THAT(written(), ElementsAre(progress("v", 3), progress("v", 4), progress("v", 5)))
        << "the third one has no answer yet";
    EXPECT_EQ(failures, 0);
}

TEST_F(PlaybackReporterTest, TakesAnEndWithoutAReplyForAFailure) {
    std::vector<std::exception_ptr> failures;
    options.failed = [&](const std::exception_ptr& error) { failures.push_back(error); };
    delivery->onSend([](const OutboxWrite&, const auto& subscriber) { subscriber.on_completed(); });
    watching().positionIs(3s);
    reporter->paused();
    EXPECT_THAT(failures, ElementsAre(std::exception_ptr()));
    delivery->onSend(&FakeDelivery::accept);
    reporter->paused();
    EXPECT_THAT(written(), ElementsAre(progress("v", 3), progress("v", 3)));
}

TEST_F(PlaybackReporterTest, TellsWhatItsSinkThrows) {
    std::string told;
    options.failed = [&](const std::exception_ptr& error) {
        try {
            std::rethrow_exception(error);
        } catch (const std::exception& thrown) {
            told = thrown.what();
        }
    };
    PlaybackReporter throwing(
        {"p", "b", "v"},
        [](const OutboxWrite&, const auto&, const auto&) { throw std::runtime_error("no sink"); },
        scheduler, options);
    throwing.positionIs(3s);
    throwing.paused();
    EXPECT_EQ(told, "no sink");
    options.failed = {};
}

TEST_F(PlaybackReporterTest, KeepsThePositionOfAnEndThatWaitsForAWrite) {
    delivery->hold();
    watching().positionIs(3s);
    reporter->paused();
    reporter->finished();
    reporter->positionIs(4s);  // a player's last word, after the end
    delivery->onSend(&FakeDelivery::accept);
    delivery->answerNext();
    EXPECT_THAT(written(), ElementsAre(progress("v", 3), progress("v", 3, true)));
}

TEST_F(PlaybackReporterTest, WritesNoEndWithoutAPosition) {
    watching().finished();
    reporter->movedTo(5s);
    reporter->paused();
    EXPECT_THAT(written(), ElementsAre(progress("v", 5)));
}

TEST_F(PlaybackReporterTest, LosesNoEndToOneWithoutAPosition) {
    delivery->hold();
    watching().positionIs(3s);
    reporter->paused();
    reporter->finished();
    reporter->movedTo(std::nullopt);  // somebody watches again, from where nobody knows
    reporter->finished();
    reporter->movedTo(5s);
    delivery->onSend(&FakeDelivery::accept);
    delivery->answerNext();
    EXPECT_THAT(written(), ElementsAre(progress("v", 3), progress("v", 3, true), progress("v", 5)));
}
