#include <array>
#include <atomic>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <mutex>
#include <thread>
#include <unistd.h>

#include <KestrinProfile/model/ProfileError.hpp>

#include "OutboxSupport.hpp"

using namespace HouseholdTest;
using KestrinHousehold::OutboxOptions;
using KestrinHousehold::OutboxState;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class OutboxTest : public testing::Test {
  protected:
    std::shared_ptr<FakeScheduler> scheduler = std::make_shared<FakeScheduler>();
    std::shared_ptr<FailingStore> store = std::make_shared<FailingStore>();
    std::shared_ptr<FakeDelivery> delivery = std::make_shared<FakeDelivery>();
    OutboxOptions options = [] {
        OutboxOptions made;
        made.removalDelay = 0s;
        return made;
    }();
    std::optional<Outbox> outbox;

    Outbox& opened() {
        if (!outbox) outbox.emplace(store, delivery, scheduler, options);
        EXPECT_TRUE(Observed(outbox->opening()).completed());
        return *outbox;
    }

    void accept(const OutboxWrite& write) {
        EXPECT_TRUE(Observed(opened().add(write)).completed());
    }

    /// Lets what was sent leave the store, and waits until nothing is done any more.
    OutboxState settle() {
        const Observed settled(opened().settled());
        EXPECT_TRUE(TestSupport::eventually([&] {
            scheduler->advance(0s);
            return settled.endedAtOnce();
        }));
        const auto values = settled.values();
        EXPECT_THAT(values, SizeIs(1));
        return values.empty() ? OutboxState() : values.front();
    }

    std::vector<std::string> items() {
        std::vector<std::string> items;
        for (const auto& sent : delivery->sent())
            items.push_back(sent.itemID);
        return items;
    }
};

}  // namespace

TEST_F(OutboxTest, SendsWhatItAcceptedInOrderAndForgetsIt) {
    accept(write(Op::addFavoriteShow, "a"));
    accept(write(Op::addFavoriteShow, "b"));
    EXPECT_EQ(settle(), (OutboxState{0, 0}));
    EXPECT_THAT(items(), ElementsAre("a", "b"));
    EXPECT_THAT(store->kept.entries(), IsEmpty());
    EXPECT_EQ(scheduler->waiting(), 0U);
}

TEST_F(OutboxTest, HasAnEntryInTheStoreBeforeItEmits) {
    delivery->hold();
    bool wasStored = false;
    opened().add(write(Op::addFavoriteShow, "a")).subscribe([&](const OutboxEntry& entry) {
        wasStored = !store->kept.entries().empty() && entry.number == 1;
    });
    EXPECT_TRUE(Observed(opened().add(write(Op::addFavoriteShow, "b"))).completed());
    EXPECT_TRUE(wasStored);
}

TEST_F(OutboxTest, HasOneRequestAtATimeForAProfileAndProfilesDoNotWaitForEachOther) {
    delivery->hold();
    accept(write(Op::addFavoriteShow, "a", "p"));
    accept(write(Op::addFavoriteShow, "b", "p"));
    accept(write(Op::addFavoriteShow, "c", "q"));
    EXPECT_TRUE(TestSupport::eventually([&] { return delivery->held() == 2; }));
    EXPECT_THAT(items(), ElementsAre("a", "c"));
    delivery->answerNext();
    EXPECT_TRUE(TestSupport::eventually([&] { return delivery->sent().size() == 3; }));
    EXPECT_THAT(items(), ElementsAre("a", "c", "b"));
}

TEST_F(OutboxTest, DropsWhatALaterEntryMakesNeedlessAndTells) {
    delivery->onSend(FakeDelivery::failing(networkIsAway()));
    const Events events(opened());
    accept(write(Op::addFavoriteShow, "a"));
    accept(write(Op::addFavoriteShow, "b"));
    settle();
    accept(write(Op::removeFavoriteShow, "a"));
    settle();
    ASSERT_THAT(events.kinds(), Contains(Kind::superseded));
    delivery->onSend(&FakeDelivery::accept);
    const auto before = delivery->sent().size();
    outbox->networkIsBack();
    EXPECT_EQ(settle().waiting, 0U);
    EXPECT_EQ(delivery->sent().size(), before + 2);
    EXPECT_EQ(delivery->sent().back(), write(Op::removeFavoriteShow, "a"));
    for (const auto& event : events.all()) {
        if (event.kind == Kind::superseded) {
            EXPECT_EQ(event.by, 3);
        }
    }
}

TEST_F(OutboxTest, DropsNothingThatIsUnderWay) {
    delivery->hold();
    accept(write(Op::addFavoriteShow, "a"));
    ASSERT_TRUE(TestSupport::eventually([&] { return delivery->held() == 1; }));
    accept(write(Op::removeFavoriteShow, "a"));
    delivery->answerNext();
    ASSERT_TRUE(TestSupport::eventually([&] { return delivery->held() == 1; }));
    delivery->answerNext();
    EXPECT_EQ(settle().waiting, 0U);
    EXPECT_THAT(delivery->sent(),
                ElementsAre(write(Op::addFavoriteShow, "a"), write(Op::removeFavoriteShow, "a")));
}

TEST_F(OutboxTest, GoesOnAfterARestart) {
    delivery->onSend(FakeDelivery::failing(networkIsAway()));
    accept(progress("v", 7));
    accept(write(Op::addSearchHistory, "x"));
    settle();
    outbox.reset();
    const auto before = delivery->sent().size();
    delivery->onSend(&FakeDelivery::accept);
    EXPECT_EQ(settle().waiting, 0U);
    EXPECT_EQ(delivery->sent().size(), before + 2);
    EXPECT_EQ(delivery->sent().back(), write(Op::addSearchHistory, "x"));
}

TEST_F(OutboxTest, TellsItsLogAlsoWhatHappensBeforeAnybodyCanListen) {
    std::mutex mutex;
    std::vector<Kind> told;
    options.log = [&](const OutboxEvent& event) {
        const std::scoped_lock lock(mutex);
        told.push_back(event.kind);
    };
    delivery->onSend(FakeDelivery::failing(networkIsAway()));
    accept(write(Op::addFavoriteShow, "a"));
    settle();
    outbox.reset();
    options.maxAge = 0s;
    scheduler->advance(1h);
    settle();
    outbox.reset();
    EXPECT_THAT(told, ElementsAre(Kind::delayed, Kind::expired));
}

TEST_F(OutboxTest, IsNotSettledBeforeItHasToldWhatHappened) {
    delivery->hold();
    accept(write(Op::addFavoriteShow, "a"));
    ASSERT_TRUE(TestSupport::eventually([&] { return delivery->held() == 1; }));
    std::optional<Observed<OutboxState>> settled;
    bool isEarly = false;
    const auto subscription = outbox->events().subscribe([&](const OutboxEvent&) {
        settled.emplace(outbox->settled());
        isEarly = settled->endedAtOnce();
    });
    delivery->answerNext(FakeDelivery::failing(networkIsAway()));
    ASSERT_TRUE(settled);
    EXPECT_FALSE(isEarly);
    EXPECT_THAT(settled->values(), ElementsAre(OutboxState{1, 0}));
    subscription.unsubscribe();
}

TEST_F(OutboxTest, WaitsLongerWithEachFailureAndNotAfterTheNetworkIsBack) {
    delivery->onSend(FakeDelivery::failing(networkIsAway()));
    const Events events(opened());
    accept(write(Op::addFavoriteShow, "a"));
    settle();
    for (int failures = 1; failures < 20; ++failures)
        scheduler->advance(scheduler->nextDelay().value_or(0s));
    auto most = std::chrono::nanoseconds(1s);
    for (const auto& event : events.all()) {
        ASSERT_EQ(event.kind, Kind::delayed);
        EXPECT_LE(event.delay, most);
        EXPECT_GE(event.delay, most / 2);
        most = std::min<std::chrono::nanoseconds>(2 * most, 5min);
    }
    EXPECT_THAT(events.all(), SizeIs(20));
    delivery->onSend(&FakeDelivery::accept);
    outbox->networkIsBack();
    EXPECT_EQ(settle().waiting, 0U);
    EXPECT_EQ(scheduler->waiting(), 0U);
}

TEST_F(OutboxTest, KeepsAWriteThatIsRedirected) {
    for (const int code : {301, 302, 307}) {
        delivery->onSend(FakeDelivery::answering(reply(code)));
        const Events events(opened());
        accept(write(Op::addFavoriteShow, "a"));
        EXPECT_EQ(settle().waiting, 1U);
        EXPECT_THAT(events.kinds(), ElementsAre(Kind::delayed));
        delivery->onSend(&FakeDelivery::accept);
        outbox->networkIsBack();
        EXPECT_EQ(settle().waiting, 0U);
    }
}

TEST_F(OutboxTest, WaitsAsLongAsTheServiceAsks) {
    delivery->onSend(FakeDelivery::failing(status(503, {{"Retry-After", "120"}})));
    accept(write(Op::addFavoriteShow, "a"));
    settle();
    EXPECT_GT(scheduler->nextDelay(), 119s);
    EXPECT_LE(scheduler->nextDelay(), 120s);
}

TEST_F(OutboxTest, WaitsForANewBindAfter401And403) {
    for (const int code : {401, 403}) {
        delivery->onSend(FakeDelivery::failing(status(code)));
        const Events events(opened());
        accept(write(Op::addFavoriteShow, "a"));
        EXPECT_EQ(settle().waiting, 1U);
        EXPECT_THAT(events.kinds(), ElementsAre(Kind::waitsForBind));
        EXPECT_EQ(scheduler->waiting(), 0U);
        delivery->onSend(&FakeDelivery::accept);
        outbox->bindIsNew("p");
        EXPECT_EQ(settle().waiting, 0U);
    }
}

TEST_F(OutboxTest, GoesOnIfTheNewBindComesBeforeTheRefusalOfTheOldOne) {
    delivery->hold();
    accept(write(Op::addFavoriteShow, "a"));
    ASSERT_TRUE(TestSupport::eventually([&] { return delivery->held() == 1; }));
    outbox->bindIsNew("p");
    delivery->answerNext(FakeDelivery::failing(status(401)));
    ASSERT_TRUE(TestSupport::eventually([&] { return delivery->held() == 1; }));
    delivery->answerNext(FakeDelivery::failing(status(401)));
    EXPECT_EQ(settle().waiting, 1U);
    EXPECT_EQ(delivery->held(), 0U);
}

TEST_F(OutboxTest, WaitsForANewBindAfterAnyLastingErrorOfTheBind) {
    const std::string bind(rawValue(Op::anonymousBind));
    for (const int code : {400, 404, 410, 422}) {
        const auto error =
            SlingError::httpStatus(code, "https://x", {}, {}).with({bind, "", "", ""});
        delivery->onSend(FakeDelivery::failing(std::make_exception_ptr(error)));
        accept(write(Op::addFavoriteShow, "a"));
        EXPECT_EQ(settle(), (OutboxState{1, 0})) << code;
        EXPECT_EQ(scheduler->waiting(), 0U) << code;
        delivery->onSend(&FakeDelivery::accept);
        outbox->bindIsNew("p");
        EXPECT_EQ(settle(), (OutboxState{0, 0})) << code;
    }
    using KestrinProfile::ProfileError;
    const auto noBind = ProfileError::anonymousBindSerializationError;
    delivery->onSend(FakeDelivery::failing(std::make_exception_ptr(noBind)));
    accept(write(Op::addFavoriteShow, "b"));
    EXPECT_EQ(settle(), (OutboxState{1, 0}));
    EXPECT_EQ(scheduler->waiting(), 0U);
}

TEST_F(OutboxTest, ListsWhatTheServiceRefusesForGoodAndGoesOn) {
    for (const int code : {400, 404, 405, 409, 410, 413, 415, 422, 451}) {
        delivery->onSend([&](const OutboxWrite& sent, const auto& subscriber) {
            if (sent.itemID == "bad") return subscriber.on_error(status(code));
            FakeDelivery::accept(sent, subscriber);
        });
        const auto before = opened().refused().size();
        const Events events(*outbox);
        accept(write(Op::addFavoriteShow, "bad"));
        accept(write(Op::addFavoriteShow, "good"));
        EXPECT_EQ(settle().waiting, 0U);
        EXPECT_THAT(events.kinds(), ElementsAre(Kind::refused, Kind::sent)) << code;
        ASSERT_THAT(outbox->refused(), SizeIs(before + 1));
        const auto refusal = outbox->refused().back().refusal;
        ASSERT_TRUE(refusal);
        EXPECT_EQ(refusal->status, code);
        EXPECT_EQ(refusal->title, "Title");
        EXPECT_EQ(refusal->detail, "the detail");
        EXPECT_THAT(store->kept.entries(), SizeIs(before + 1));
    }
}

TEST_F(OutboxTest, WaitsAfterAnErrorThatPasses) {
    for (const int code : {408, 429, 500, 502, 503, 504}) {
        delivery->onSend(FakeDelivery::failing(status(code)));
        accept(write(Op::addFavoriteShow, std::to_string(code)));
        settle();
        EXPECT_THAT(outbox->refused(), IsEmpty()) << code;
        EXPECT_EQ(scheduler->waiting(), 1U) << code;
    }
}

TEST_F(OutboxTest, KeepsAsManyRefusedEntriesAsItMay) {
    options.maxRefused = 2;
    delivery->onSend(FakeDelivery::failing(status(422)));
    const Events events(opened());
    for (const char* const item : {"a", "b", "c"})
        accept(write(Op::addFavoriteShow, item));
    EXPECT_EQ(settle(), (OutboxState{0, 2}));
    EXPECT_THAT(events.kinds(), Contains(Kind::forgotten));
    EXPECT_THAT(store->kept.entries(), SizeIs(2));
    outbox.reset();
    EXPECT_EQ(settle(), (OutboxState{0, 2}));
    EXPECT_EQ(outbox->refused().front().write.itemID, "b");
}

TEST_F(OutboxTest, WaitsForTheNextWriteOrTheNetworkIfThereIsNoTimer) {
    const auto failing = std::make_shared<FailingScheduler>();
    failing->hasNoThread = true;
    delivery->onSend(FakeDelivery::failing(networkIsAway()));
    outbox.emplace(store, delivery, failing, options);
    accept(write(Op::addFavoriteShow, "a"));
    EXPECT_EQ(settle(), (OutboxState{1, 0}));
    accept(write(Op::addFavoriteShow, "b"));
    EXPECT_EQ(settle(), (OutboxState{2, 0}));
    EXPECT_THAT(items(), ElementsAre("a", "a"));
    delivery->onSend(&FakeDelivery::accept);
    outbox->networkIsBack();
    ASSERT_TRUE(TestSupport::eventually([&] { return items().size() == 4; }));
    outbox->networkIsBack();
    EXPECT_EQ(settle(), (OutboxState{0, 0}));
    EXPECT_THAT(store->kept.entries(), IsEmpty());
}

TEST_F(OutboxTest, AcceptsNoMoreThanItMayAndSaysSo) {
    options.maxEntries = 2;
    delivery->onSend(FakeDelivery::failing(networkIsAway()));
    const Events events(opened());
    accept(write(Op::addFavoriteShow, "a"));
    accept(write(Op::addFavoriteShow, "b"));
    const Observed third(opened().add(write(Op::addFavoriteShow, "c")));
    ASSERT_TRUE(third.error<OutboxError>());
    EXPECT_EQ(third.error<OutboxError>()->value(), OutboxError::Case::full);
    EXPECT_THAT(events.kinds(), Contains(Kind::overflow));
    EXPECT_THAT(store->kept.entries(), SizeIs(2));
    settle();
    accept(write(Op::removeFavoriteShow, "b"));  // in the place of another
}

TEST_F(OutboxTest, DropsWhatHasWaitedForTooLong) {
    delivery->onSend(FakeDelivery::failing(networkIsAway()));
    accept(write(Op::addFavoriteShow, "a"));
    settle();
    outbox.reset();
    scheduler->advance(options.maxAge + 1s);
    delivery->onSend(&FakeDelivery::accept);
    const auto before = delivery->sent().size();
    outbox.emplace(store, delivery, scheduler, options);
    const Events events(*outbox);
    EXPECT_EQ(settle().waiting, 0U);
    EXPECT_EQ(delivery->sent().size(), before);
    EXPECT_THAT(store->kept.entries(), IsEmpty());
}

TEST_F(OutboxTest, RefusesWhatIsNoWriteOfAList) {
    for (const auto& bad :
         {write(Op::createProfile), write(Op::addFavoriteShow, ""), write(Op::addFavoriteShows),
          write(Op::addFavoriteShow, "a", ""), write(Op::addFavoriteShow, "\xFF"),
          progress("v", -1), progress("v", {}, true)}) {
        const Observed refused(opened().add(bad));
        ASSERT_TRUE(refused.error<OutboxError>());
        EXPECT_EQ(refused.error<OutboxError>()->value(), OutboxError::Case::invalidWrite);
    }
    const std::string longText((std::size_t{1} << 20U) + 1, 'x');
    EXPECT_TRUE(Observed(opened().add(write(Op::addSearchHistory, longText))).error<OutboxError>());
    accept(write(Op::addSearchHistory, ""));
}

TEST_F(OutboxTest, AcceptsNothingThatTheStoreDoesNotKeep) {
    opened();
    store->cannotCommit = true;
    const Observed failed(outbox->add(write(Op::addFavoriteShow, "a")));
    ASSERT_TRUE(failed.error<OutboxError>());
    EXPECT_EQ(failed.error<OutboxError>()->value(), OutboxError::Case::notStored);
    EXPECT_THAT(outbox->entries(), IsEmpty());
    store->cannotCommit = false;
    accept(write(Op::addFavoriteShow, "b"));
    settle();
    EXPECT_THAT(items(), ElementsAre("b"));
}

TEST_F(OutboxTest, KeepsWhatWasToBeSupersededIfTheStoreFails) {
    delivery->onSend(FakeDelivery::failing(networkIsAway()));
    accept(write(Op::addFavoriteShow, "a"));
    settle();
    store->cannotCommit = true;
    EXPECT_FALSE(Observed(outbox->add(write(Op::removeFavoriteShow, "a"))).completed());
    store->cannotCommit = false;
    delivery->onSend(&FakeDelivery::accept);
    outbox->networkIsBack();
    settle();
    EXPECT_EQ(delivery->sent().back(), write(Op::addFavoriteShow, "a"));
}

TEST_F(OutboxTest, TriesAgainToTakeWhatWasSentOutOfTheStore) {
    delivery->hold();
    accept(write(Op::addFavoriteShow, "a"));
    ASSERT_TRUE(TestSupport::eventually([&] { return delivery->held() == 1; }));
    store->cannotCommit = true;
    const Events events(*outbox);
    delivery->answerNext();
    scheduler->advance(0s);
    EXPECT_TRUE(TestSupport::eventually([&] { return scheduler->waiting() == 1; }));
    EXPECT_TRUE(TestSupport::eventually([&] { return events.kinds().size() == 2; }));
    EXPECT_THAT(events.kinds(), ElementsAre(Kind::sent, Kind::storeFailed));
    store->cannotCommit = false;
    scheduler->advance(5s);
    EXPECT_TRUE(TestSupport::eventually([&] { return store->kept.entries().empty(); }));
    EXPECT_THAT(items(), ElementsAre("a"));
}

TEST_F(OutboxTest, TellsThatTheStoreCannotBeOpenedAndTriesAgain) {
    store->cannotLoad = true;
    outbox.emplace(store, delivery, scheduler, options);
    EXPECT_EQ(Observed(outbox->opening()).error<OutboxError>()->value(),
              OutboxError::Case::storeUnavailable);
    EXPECT_TRUE(Observed(outbox->add(write(Op::addFavoriteShow, "a"))).error<OutboxError>());
    store->cannotLoad = false;
    EXPECT_TRUE(Observed(outbox->add(write(Op::addFavoriteShow, "b"))).completed());
    settle();
    EXPECT_THAT(items(), ElementsAre("b"));
}

TEST_F(OutboxTest, DropsWhatTheApplicationNamesUnlessItIsBeingSent) {
    delivery->hold();
    accept(write(Op::addFavoriteShow, "a"));
    accept(write(Op::addFavoriteShow, "b"));
    ASSERT_TRUE(TestSupport::eventually([&] { return delivery->held() == 1; }));
    EXPECT_THAT(Observed(outbox->drop(1)).values(), ElementsAre(false));
    EXPECT_THAT(Observed(outbox->drop(2)).values(), ElementsAre(true));
    EXPECT_THAT(Observed(outbox->drop(3)).values(), ElementsAre(false));
    delivery->answerNext();
    settle();
    EXPECT_THAT(items(), ElementsAre("a"));
}

TEST_F(OutboxTest, EndsTheEventsForWhoeverListensAfterItsEnd) {
    const auto events = opened().events();
    outbox.reset();
    EXPECT_TRUE(Observed(events).completed());
}

TEST_F(OutboxTest, KeepsNoWordOfTheServiceThatMayBeAToken) {
    const std::string longWord(41, 'x');
    HalvardSling::ProblemDocument problem;
    problem.title = "Title";
    problem.detail = "no access with 0123456789abcdef or " + longWord + " in profile 42";
    const auto error = SlingError::httpStatus(422, "https://x", {}, problem);
    delivery->onSend(FakeDelivery::failing(std::make_exception_ptr(error)));
    accept(write(Op::addFavoriteShow, "a"));
    settle();
    ASSERT_THAT(outbox->refused(), SizeIs(1));
    EXPECT_EQ(outbox->refused().front().refusal->detail, "no access with … or … in profile 42");
}

TEST_F(OutboxTest, EndsWithAnErrorWhatIsAskedAfterItsEnd) {
    const auto add = opened().add(write(Op::addFavoriteShow, "a"));
    outbox.reset();
    EXPECT_EQ(Observed(add).error<OutboxError>()->value(), OutboxError::Case::closed);
}

TEST_F(OutboxTest, MayBeEndedByTheHandlerOfAWrite) {
    opened();
    std::atomic<bool> isEnded = false;
    outbox->add(write(Op::addFavoriteShow, "a")).subscribe([&](const OutboxEntry&) {
        outbox.reset();
        isEnded = true;
    });
    EXPECT_TRUE(TestSupport::eventually([&] { return isEnded.load(); }));
    EXPECT_TRUE(TestSupport::eventually([&] { return store.use_count() == 1; }));
}

TEST_F(OutboxTest, MayBeEndedByTheHandlerOfAnEvent) {
    delivery->onSend(FakeDelivery::failing(networkIsAway()));
    accept(write(Op::addFavoriteShow, "a"));
    settle();
    std::atomic<bool> isEnded = false;
    outbox->events().subscribe([&](const OutboxEvent& event) {
        if (event.kind != Kind::dropped) return;
        outbox.reset();
        isEnded = true;
    });
    const Observed dropped(outbox->drop(1));
    EXPECT_TRUE(TestSupport::eventually([&] { return isEnded.load(); }));
    EXPECT_TRUE(dropped.completed());
    EXPECT_THAT(store->kept.entries(), IsEmpty());
}

TEST_F(OutboxTest, MayBeAskedForMoreByAHandlerWhileItEnds) {
    opened();
    std::atomic<bool> mayCommit = false;
    store->onCommit = [&] {
        EXPECT_TRUE(TestSupport::eventually([&] { return mayCommit.load(); }));
    };
    const auto add = outbox->add(write(Op::addFavoriteShow, "a"));
    const auto drop = outbox->drop(99);
    std::atomic<bool> isAnswered = false;
    add.subscribe([&](const OutboxEntry&) {
        drop.subscribe([&](bool) { isAnswered = true; },
                       [&](const std::exception_ptr&) { isAnswered = true; });
    });
    std::thread ending([&] { outbox.reset(); });
    EXPECT_TRUE(TestSupport::eventually([&] { return Observed(add).endedAtOnce(); }));  // closed
    mayCommit = true;
    ending.join();
    EXPECT_TRUE(isAnswered);
}

TEST_F(OutboxTest, StoresAtItsEndWhatWasAddedBefore) {
    delivery->hold();
    opened();
    std::vector<Observed<OutboxEntry>> added;
    for (int number = 0; number < 50; ++number)
        added.emplace_back(outbox->add(write(Op::addFavoriteShow, std::to_string(number))));
    outbox.reset();
    for (const auto& one : added)
        EXPECT_TRUE(one.completed());
    EXPECT_THAT(store->kept.entries(), SizeIs(50));
}

TEST_F(OutboxTest, StoresWritesThatComeTogetherInOneCommit) {
    delivery->hold();
    opened();
    std::vector<Observed<OutboxEntry>> added;
    for (int number = 0; number < 1000; ++number)
        added.emplace_back(outbox->add(write(Op::addFavoriteShow, std::to_string(number))));
    for (const auto& one : added)
        ASSERT_TRUE(one.completed());
    EXPECT_LT(store->commits, 1000);
}

#ifdef __linux__
TEST_F(OutboxTest, HasNoThreadWhileNothingWaits) {
    // A sanitizer starts a thread of its own beside the first one; the first one's entry outlives
    // the join.
    std::string task;
    std::thread([&] { task = "/proc/self/task/" + std::to_string(::gettid()); }).join();
    ASSERT_TRUE(TestSupport::eventually([&] { return !std::filesystem::exists(task); }));
    const auto threads = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
    };
    const auto before = threads();
    Outbox idle(store, delivery);
    EXPECT_TRUE(Observed(idle.opening()).completed());
    EXPECT_TRUE(Observed(idle.add(write(Op::addFavoriteShow, "a"))).completed());
    EXPECT_TRUE(TestSupport::eventually([&] { return store->kept.entries().empty(); }));
    EXPECT_TRUE(TestSupport::eventually([&] { return threads() == before; }));
}
#endif

// What is late.

namespace {

class LateOutboxTest : public OutboxTest {
  protected:
    Scheduler::WallTime accepted{};

    /// Accepts a write while there is no network, and restarts so much later.
    void acceptAndWait(const OutboxWrite& write, std::chrono::seconds wait = 1h) {
        delivery->onSend(FakeDelivery::failing(networkIsAway()));
        accepted = scheduler->wallTime();
        accept(write);
        settle();
        scheduler->advance(wait);
        delivery->onSend(&FakeDelivery::accept);
        sentBefore = delivery->sent().size();
    }

    void serviceHas(const std::vector<std::pair<std::string, Scheduler::WallTime>>& elements,
                    const std::string& more = {}, HalvardSling::Headers headers = {}) {
        delivery->onLookUp(
            FakeDelivery::answering(reply(200, listOf(elements, more), std::move(headers))));
    }

    std::vector<OutboxWrite> sentNow() {
        outbox->networkIsBack();
        settle();
        const auto all = delivery->sent();
        return {all.begin() + static_cast<std::ptrdiff_t>(sentBefore), all.end()};
    }

    std::size_t sentBefore = 0;
};

}  // namespace

TEST_F(LateOutboxTest, ComparesNothingThatIsYoungerThanAMinute) {
    acceptAndWait(progress("v", 7), 1s);
    scheduler->advance(0s);
    EXPECT_THAT(sentNow(), ElementsAre(progress("v", 7)));
    EXPECT_THAT(delivery->lookedUp(), IsEmpty());
}

TEST_F(LateOutboxTest, SendsWhatIsNewerThanWhatTheServiceHas) {
    acceptAndWait(progress("v", 7));
    serviceHas({{"v", accepted - 10s}});
    EXPECT_THAT(sentNow(), ElementsAre(progress("v", 7)));
    EXPECT_THAT(delivery->lookedUp(), testing::Not(IsEmpty()));
}

TEST_F(LateOutboxTest, OverwritesNothingNewer) {
    for (const auto& late : {progress("v", 7), write(Op::removeVideoFromHistory, "v")}) {
        acceptAndWait(late);
        serviceHas({{"v", accepted + 10s}});
        const Events events(*outbox);
        EXPECT_THAT(sentNow(), IsEmpty());
        EXPECT_THAT(events.kinds(), ElementsAre(Kind::droppedAsStale));
        EXPECT_THAT(store->kept.entries(), IsEmpty());
    }
}

TEST_F(LateOutboxTest, TakesWhatIsThereAlreadyForSent) {
    acceptAndWait(progress("v", 7));
    serviceHas({{"v", accepted + 10s}}, R"(, "progress": 7)");
    const Events events(*outbox);
    EXPECT_THAT(sentNow(), IsEmpty());
    EXPECT_THAT(events.kinds(), ElementsAre(Kind::sent));
}

TEST_F(LateOutboxTest, RemovesOneByOneWhatIsOlderThanAClearing) {
    acceptAndWait(write(Op::clearHistory));
    serviceHas({{"new", accepted + 10s}, {"x", accepted - 10s}, {"y", accepted - 20s}});
    EXPECT_THAT(sentNow(), ElementsAre(write(Op::removeVideoFromHistory, "x"),
                                       write(Op::removeVideoFromHistory, "y")));
    EXPECT_THAT(store->kept.entries(), IsEmpty());
}

TEST_F(LateOutboxTest, ClearsWhatHasNothingNewer) {
    acceptAndWait(write(Op::clearHistory));
    serviceHas({{"x", accepted - 10s}});
    EXPECT_THAT(sentNow(), ElementsAre(write(Op::clearHistory)));
}

TEST_F(LateOutboxTest, AddsTheShowsOfWhichNothingNewerIsThere) {
    const UserProfileElement a("a", Types::show);
    const UserProfileElement b("b", Types::show);
    acceptAndWait(shows({a, b}));
    serviceHas({{"a", accepted + 10s}});
    EXPECT_THAT(sentNow(), ElementsAre(shows({b})));
}

TEST_F(LateOutboxTest, SendsSearchesWithoutComparison) {
    acceptAndWait(write(Op::addSearchHistory, "x"));
    EXPECT_THAT(sentNow(), ElementsAre(write(Op::addSearchHistory, "x")));
    EXPECT_THAT(delivery->lookedUp(), IsEmpty());
}

TEST_F(LateOutboxTest, CorrectsTheDifferenceOfTheClocks) {
    // The service's clock is an hour ahead: what it has from 50 minutes after this is older.
    const auto date = [&] {
        const auto now = std::chrono::floor<std::chrono::seconds>(scheduler->wallTime()) + 1h;
        const std::time_t time = std::chrono::system_clock::to_time_t(now);
        std::tm parts{};
        gmtime_r(&time, &parts);
        std::array<char, 64> text{};
        std::strftime(text.data(), text.size(), "%a, %d %b %Y %H:%M:%S GMT", &parts);
        return std::string(text.data());
    };
    acceptAndWait(progress("v", 7));
    serviceHas({{"v", accepted + 50min}}, {}, {{"Date", date()}});
    EXPECT_THAT(sentNow(), ElementsAre(progress("v", 7)));

    // Known from a reply before the write was accepted, it holds even if the clock is set
    // meanwhile.
    delivery->onSend(FakeDelivery::answering(reply(204, "", {{"Date", date()}})));
    accept(write(Op::addFavoriteShow, "a"));
    settle();
    acceptAndWait(progress("v", 8));
    scheduler->setWallTime(accepted - 24h);
    serviceHas({{"v", accepted + 50min}}, {}, {});
    EXPECT_THAT(sentNow(), ElementsAre(progress("v", 8)));
    acceptAndWait(progress("v", 9));
    serviceHas({{"v", accepted + 70min}}, {}, {});
    EXPECT_THAT(sentNow(), IsEmpty());
}

TEST_F(LateOutboxTest, DoesNotTakeItsOwnWriteForANewerOne) {
    // The first write reaches the service while the second one is accepted, and its reply is lost.
    for (const bool isRestarted : {false, true}) {
        delivery->hold();
        accept(progress("v", 1));
        ASSERT_TRUE(TestSupport::eventually([&] { return delivery->held() == 1; }));
        accept(progress("v", 2));
        scheduler->advance(20s);
        const auto arrived = scheduler->wallTime();
        scheduler->advance(10s);
        if (isRestarted) {
            outbox.reset();
        } else {
            delivery->onSend(FakeDelivery::failing(networkIsAway()));
            delivery->answerNext(FakeDelivery::failing(networkIsAway()));
            settle();
        }
        scheduler->advance(1h);
        serviceHas({{"v", arrived}}, R"(, "progress": 1)");
        delivery->onSend(&FakeDelivery::accept);
        sentBefore = delivery->sent().size();
        opened();
        EXPECT_THAT(sentNow(), ElementsAre(progress("v", 2))) << isRestarted;
    }
}

TEST_F(LateOutboxTest, DoesNotTakeWhatItSendsLateForNewerThanALaterEntry) {
    const auto added =
        shows({UserProfileElement("a", Types::show), UserProfileElement("b", Types::show)});
    const auto removed = write(Op::removeFavoriteShow, "a");
    for (const bool isRestarted : {false, true}) {
        acceptAndWait(added, 1min);
        serviceHas({});
        acceptAndWait(removed);
        bool isBack = !isRestarted;
        delivery->onSend([&](const OutboxWrite& sent, const auto& subscriber) {
            if (sent == removed && !isBack) return subscriber.on_error(networkIsAway());
            serviceHas({{"a", scheduler->wallTime()}});
            FakeDelivery::accept(sent, subscriber);
        });
        if (isRestarted) {
            EXPECT_THAT(sentNow(), ElementsAre(added, removed));
            EXPECT_THAT(store->kept.entries(), SizeIs(1));
            outbox.reset();
            scheduler->advance(1h);
            isBack = true;
            sentBefore = delivery->sent().size() - 1;
            opened();
            EXPECT_THAT(sentNow(), ElementsAre(removed, removed));
        } else {
            EXPECT_THAT(sentNow(), ElementsAre(added, removed));
        }
        EXPECT_THAT(store->kept.entries(), IsEmpty());
    }
}

TEST_F(LateOutboxTest, DoesNotTakeForNewerWhatItSendsAfterAFailure) {
    delivery->hold();
    accept(write(Op::addFavoriteShow, "a"));
    ASSERT_TRUE(TestSupport::eventually([&] { return delivery->held() == 1; }));
    accept(write(Op::removeFavoriteShow, "a"));
    delivery->onSend(FakeDelivery::failing(networkIsAway()));
    delivery->answerNext(FakeDelivery::failing(networkIsAway()));
    settle();
    scheduler->advance(1h);
    delivery->onSend([&](const OutboxWrite& sent, const auto& subscriber) {
        serviceHas({{"a", scheduler->wallTime()}});
        FakeDelivery::accept(sent, subscriber);
    });
    sentBefore = delivery->sent().size();
    EXPECT_THAT(sentNow(),
                ElementsAre(write(Op::addFavoriteShow, "a"), write(Op::removeFavoriteShow, "a")));
}

TEST_F(LateOutboxTest, WaitsIfTheComparisonFails) {
    acceptAndWait(progress("v", 7));
    delivery->onLookUp(FakeDelivery::failing(status(503)));
    EXPECT_THAT(sentNow(), IsEmpty());
    delivery->onLookUp(FakeDelivery::answering(reply(200, "nonsense")));
    EXPECT_THAT(sentNow(), IsEmpty());
    delivery->onLookUp(FakeDelivery::failing(status(404)));
    EXPECT_THAT(sentNow(), ElementsAre(progress("v", 7)));
}
