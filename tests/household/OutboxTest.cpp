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

OutboxWrite inBrand(std::string brand) {
    auto made = write(Op::addFavoriteShow, "a");
    made.brandID = std::move(brand);
    return made;
}

UserProfileElement showOfType(std::string type) {
    UserProfileElement show("s");
    show.type = std::move(type);
    return show;
}

/// Ends with an error of the delivery's own before there is an observable.
struct ThrowingDelivery final : KestrinHousehold::OutboxDelivery {
    Observable<Response> send(const OutboxWrite& /*write*/) override {
        throw std::runtime_error("no delivery");
    }
    Observable<Response> lookUp(const OutboxWrite& write) override { return send(write); }
};

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

    /// What is told first of a request's end and a store that fails then, once or twice: its thread
    /// may be about to look once more by itself.
    std::vector<Kind> firstTwo(const Events& events) {
        EXPECT_TRUE(TestSupport::eventually([&] {
            scheduler->advance(0s);
            return events.kinds().size() >= 2;
        }));
        auto kinds = events.kinds();
        kinds.resize(std::min<std::size_t>(kinds.size(), 2));
        return kinds;
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

TEST_F(OutboxTest, DoesNotSayOfAClearedVideoThatItWasSeenToItsEnd) {
    delivery->hold();
    accept(progress("v", 900, true));
    ASSERT_TRUE(TestSupport::eventually([&] { return delivery->held() == 1; }));
    accept(write(Op::clearHistory));
    delivery->answerNext(FakeDelivery::failing(networkIsAway()));
    settle();
    accept(progress("v", 5));
    delivery->onSend(&FakeDelivery::accept);
    outbox->networkIsBack();
    EXPECT_EQ(settle().waiting, 0U);
    EXPECT_EQ(delivery->sent().back(), progress("v", 5));
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

TEST_F(OutboxTest, KeepsAWriteWhoseReplyIsNoSuccess) {
    for (const int code : {101, 301, 302, 307}) {
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

TEST_F(OutboxTest, WaitsAsLongAsTheServiceAsksAndLongerByChance) {
    delivery->onSend(FakeDelivery::failing(status(503, {{"Retry-After", "120"}})));
    accept(write(Op::addFavoriteShow, "a"));
    settle();
    EXPECT_GE(scheduler->nextDelay(), 120s);
    EXPECT_LE(scheduler->nextDelay(), 180s);
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
          write(Op::addFavoriteShow, "a", "\xFF"), inBrand("\xFF"),
          shows({UserProfileElement("\xFF")}), shows({showOfType("\xFF")}), progress("v", -1),
          progress("v", {}, true)}) {
        const Observed refused(opened().add(bad));
        ASSERT_TRUE(refused.error<OutboxError>());
        EXPECT_EQ(refused.error<OutboxError>()->value(), OutboxError::Case::invalidWrite);
    }
    accept(inBrand("ü"));
    accept(shows({showOfType("ü")}));
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
    EXPECT_EQ(firstTwo(events), (std::vector{Kind::sent, Kind::storeFailed}));
    EXPECT_EQ(store->kept.entries().size(), 1U);
    store->cannotCommit = false;
    const auto isTaken = [&] {
        scheduler->advance(5s);
        return store->kept.entries().empty();
    };
    EXPECT_TRUE(TestSupport::eventually(isTaken));
    EXPECT_THAT(items(), ElementsAre("a"));
}

TEST_F(OutboxTest, TellsThatTheStoreCannotBeOpenedAndTriesAgain) {
    store->cannotLoad = true;
    outbox.emplace(store, delivery, scheduler, options);
    for (const char* const when : {"while it is tried", "afterwards"})
        EXPECT_EQ(Observed(outbox->opening()).error<OutboxError>()->value(),
                  OutboxError::Case::storeUnavailable)
            << when;
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

// What the application's own parts may do.

TEST_F(OutboxTest, SaysWhatAStoreOfTheApplicationsThrows) {
    opened();
    const auto textOf = [&](const std::function<void()>& thrown) {
        store->onCommit = thrown;
        const auto error =
            Observed(outbox->add(write(Op::addFavoriteShow, "a"))).error<OutboxError>();
        EXPECT_TRUE(error);
        EXPECT_EQ(error->value(), OutboxError::Case::notStored);
        return std::string(error->what());
    };
    EXPECT_THAT(textOf([] { throw std::runtime_error("on fire"); }), testing::HasSubstr("on fire"));
    EXPECT_THAT(textOf([] { throw 7; }), testing::HasSubstr("an unknown error"));
}

TEST_F(OutboxTest, TellsWhatItsStoreWarnsOf) {
    store->warnings = {"some entries are lost"};
    std::mutex mutex;
    std::vector<OutboxEvent> told;
    options.log = [&](const OutboxEvent& event) {
        const std::scoped_lock lock(mutex);
        told.push_back(event);
    };
    EXPECT_THAT(Observed(opened().opening()).values().at(0).warnings,
                ElementsAre("some entries are lost"));
    outbox.reset();
    ASSERT_THAT(told, SizeIs(1));
    EXPECT_EQ(told.front().kind, Kind::storeFailed);
    EXPECT_EQ(told.front().text, "some entries are lost");
}

TEST_F(OutboxTest, WaitsAfterADeliveryThatThrows) {
    outbox.emplace(store, std::make_shared<ThrowingDelivery>(), scheduler, options);
    const Events events(*outbox);
    accept(write(Op::addFavoriteShow, "a"));
    EXPECT_EQ(settle(), (OutboxState{1, 0}));
    ASSERT_THAT(events.kinds(), ElementsAre(Kind::delayed));
    EXPECT_EQ(events.all().front().text, "no delivery");
}

TEST_F(OutboxTest, TakesTheFirstWordOfADeliveryForItsAnswer) {
    // The second word comes when nothing, or when another request is on its way.
    delivery->onSend([](const OutboxWrite&, const auto& subscriber) {
        subscriber.on_next(reply(204));
        subscriber.on_error(networkIsAway());
    });
    const Events events(opened());
    accept(write(Op::addFavoriteShow, "a"));
    EXPECT_EQ(settle(), (OutboxState{0, 0}));
    EXPECT_THAT(events.kinds(), ElementsAre(Kind::sent));
    delivery->hold();
    accept(write(Op::addFavoriteShow, "b"));
    accept(write(Op::addFavoriteShow, "c"));
    ASSERT_TRUE(TestSupport::eventually([&] { return delivery->held() == 1; }));
    delivery->answerNext([](const OutboxWrite&, const auto& subscriber) {
        subscriber.on_next(reply(204));
        subscriber.on_next(reply(204));
    });
    EXPECT_THAT(events.kinds(), ElementsAre(Kind::sent, Kind::sent));
    EXPECT_THAT(items(), ElementsAre("a", "b", "c"));
    EXPECT_EQ(delivery->held(), 1U) << "the third one has no answer yet";
    delivery->answerNext();
    EXPECT_EQ(settle(), (OutboxState{0, 0}));
}

TEST_F(OutboxTest, IsNotSettledWhileItBeginsARequest) {
    delivery->onSend(FakeDelivery::failing(networkIsAway()));
    accept(write(Op::addFavoriteShow, "a"));
    settle();
    std::optional<Observed<OutboxState>> settled;
    bool isEarly = false;
    delivery->onSend([&](const OutboxWrite&, const auto& subscriber) {
        subscriber.on_error(networkIsAway());
        settled.emplace(outbox->settled());
        isEarly = settled->endedAtOnce();
    });
    outbox->networkIsBack();
    ASSERT_TRUE(settled);
    EXPECT_FALSE(isEarly);
    EXPECT_THAT(settled->values(), ElementsAre(OutboxState{1, 0}));
}

TEST_F(OutboxTest, EndsWithAnErrorWhoeverWaitsUntilItSettles) {
    delivery->hold();
    accept(write(Op::addFavoriteShow, "a"));
    ASSERT_TRUE(TestSupport::eventually([&] { return delivery->held() == 1; }));
    const Observed settled(outbox->settled());
    outbox.reset();
    ASSERT_TRUE(settled.error<OutboxError>());
    EXPECT_EQ(settled.error<OutboxError>()->value(), OutboxError::Case::closed);
}

TEST_F(OutboxTest, IsSettledThoughItsStoreCannotBeOpenedButNotBeforeItHasToldSo) {
    store->cannotLoad = true;
    std::atomic<bool> mayLoad = false;
    store->onLoad = [&] { EXPECT_TRUE(TestSupport::eventually([&] { return mayLoad.load(); })); };
    outbox.emplace(store, delivery, scheduler, options);
    std::optional<Observed<OutboxState>> settled;
    std::atomic<bool> isEarly = false;
    std::atomic<bool> isAsked = false;
    outbox->opening().subscribe([](const auto&) {},
                                [&](const std::exception_ptr&) {
                                    settled.emplace(outbox->settled());
                                    isEarly = settled->endedAtOnce();
                                    isAsked = true;
                                });
    mayLoad = true;
    ASSERT_TRUE(TestSupport::eventually([&] { return isAsked.load(); }));
    EXPECT_FALSE(isEarly);
    EXPECT_THAT(settled->values(), ElementsAre(OutboxState{0, 0}));
    EXPECT_THAT(Observed(outbox->settled()).values(), ElementsAre(OutboxState{0, 0}));
}

TEST_F(OutboxTest, OpensItsStoreAtItsEndForWhatIsAskedWhileItCannotBeOpened) {
    store->cannotLoad = true;
    std::atomic<bool> mayLoad = false;
    store->onLoad = [&] { EXPECT_TRUE(TestSupport::eventually([&] { return mayLoad.load(); })); };
    for (const bool isWrite : {true, false}) {
        mayLoad = false;
        store->cannotLoad = true;
        outbox.emplace(store, delivery, scheduler, options);
        std::optional<Observed<OutboxEntry>> added;
        std::optional<Observed<bool>> dropped;
        std::atomic<bool> hasEnded = false;
        outbox->opening().subscribe(
            [](const auto&) {},
            [&](const std::exception_ptr&) {
                store->cannotLoad = false;
                if (isWrite)
                    added.emplace(outbox->add(write(Op::addFavoriteShow, "a")));
                else
                    dropped.emplace(outbox->drop(1));
                outbox.reset();
                hasEnded = true;
            });
        mayLoad = true;
        ASSERT_TRUE(TestSupport::eventually([&] { return hasEnded.load(); }));
        if (isWrite) {
            EXPECT_TRUE(added->completed());
            EXPECT_THAT(store->kept.entries(), SizeIs(1));
        } else {
            EXPECT_THAT(dropped->values(), ElementsAre(true));
            EXPECT_THAT(store->kept.entries(), IsEmpty());
        }
    }
}

TEST_F(OutboxTest, EndsWithAnErrorWhatAHandlerAsksThatHasEndedIt) {
    opened();
    const auto drop = outbox->drop(1);
    const auto opening = outbox->opening();
    const auto settling = outbox->settled();
    std::optional<Observed<bool>> dropped;
    std::optional<Observed<KestrinHousehold::OutboxOpening>> open;
    std::optional<Observed<OutboxState>> settled;
    std::atomic<bool> isAsked = false;
    outbox->add(write(Op::addFavoriteShow, "a")).subscribe([&](const OutboxEntry&) {
        outbox.reset();
        dropped.emplace(drop);
        open.emplace(opening);
        settled.emplace(settling);
        isAsked = true;
    });
    ASSERT_TRUE(TestSupport::eventually([&] { return isAsked.load(); }));
    for (const auto& error : {dropped->error<OutboxError>(), open->error<OutboxError>(),
                              settled->error<OutboxError>()}) {
        ASSERT_TRUE(error);
        EXPECT_EQ(error->value(), OutboxError::Case::closed);
    }
    EXPECT_THAT(store->kept.entries(), SizeIs(1));
}

TEST_F(OutboxTest, TakesTheNewBindOfAProfileWithoutEntriesForNobodyElses) {
    delivery->onSend(FakeDelivery::failing(status(401)));
    accept(write(Op::addFavoriteShow, "a", "p"));
    EXPECT_EQ(settle(), (OutboxState{1, 0}));
    delivery->onSend(&FakeDelivery::accept);
    outbox->bindIsNew("q");
    EXPECT_EQ(settle(), (OutboxState{1, 0}));
    EXPECT_THAT(delivery->sent(), SizeIs(1));
    outbox->bindIsNew("p");
    EXPECT_EQ(settle(), (OutboxState{0, 0}));
}

// Refused entries, and a store that fails.

TEST_F(OutboxTest, StoresARefusalOnceTheNetworkIsBackIfThereIsNoTimer) {
    const auto failing = std::make_shared<FailingScheduler>();
    failing->hasNoThread = true;
    delivery->onSend(FakeDelivery::failing(networkIsAway()));
    outbox.emplace(store, delivery, failing, options);
    accept(write(Op::addFavoriteShow, "a"));
    EXPECT_EQ(settle(), (OutboxState{1, 0}));
    delivery->onSend(FakeDelivery::failing(status(422)));
    outbox->networkIsBack();
    ASSERT_THAT(outbox->refused(), SizeIs(1));
    EXPECT_FALSE(store->kept.entries().front().refusal);
    const Observed settled(outbox->settled());
    EXPECT_FALSE(settled.endedAtOnce()) << "the store does not have the refusal yet";
    outbox->networkIsBack();
    EXPECT_THAT(settled.values(), ElementsAre(OutboxState{0, 1}));
    ASSERT_THAT(store->kept.entries(), SizeIs(1));
    EXPECT_TRUE(store->kept.entries().front().refusal);
}

TEST_F(OutboxTest, TriesAgainToStoreARefusal) {
    delivery->hold();
    accept(write(Op::addFavoriteShow, "a"));
    ASSERT_TRUE(TestSupport::eventually([&] { return delivery->held() == 1; }));
    store->cannotCommit = true;
    const Events events(*outbox);
    delivery->answerNext(FakeDelivery::failing(status(422)));
    EXPECT_EQ(firstTwo(events), (std::vector{Kind::refused, Kind::storeFailed}));
    EXPECT_FALSE(store->kept.entries().front().refusal);
    store->cannotCommit = false;
    const auto isStored = [&] {
        scheduler->advance(5s);
        return store->kept.entries().front().refusal.has_value();
    };
    EXPECT_TRUE(TestSupport::eventually(isStored));
}

TEST_F(OutboxTest, KeepsNoRefusedEntryIfItMayKeepNone) {
    options.maxRefused = 0;
    delivery->onSend(FakeDelivery::failing(status(422)));
    const Events events(opened());
    accept(write(Op::addFavoriteShow, "a"));
    EXPECT_EQ(settle(), (OutboxState{0, 0}));
    EXPECT_THAT(events.kinds(), ElementsAre(Kind::refused, Kind::forgotten));
    EXPECT_THAT(store->kept.entries(), IsEmpty());
}

TEST_F(OutboxTest, ForgetsARefusedEntryThatTheApplicationDrops) {
    delivery->onSend(FakeDelivery::failing(status(422)));
    accept(write(Op::addFavoriteShow, "a"));
    EXPECT_EQ(settle(), (OutboxState{0, 1}));
    EXPECT_THAT(Observed(outbox->drop(1)).values(), ElementsAre(true));
    EXPECT_THAT(outbox->refused(), IsEmpty());
    EXPECT_THAT(store->kept.entries(), IsEmpty());
}

TEST_F(OutboxTest, WaitsForNothingAtItsEndIfTheStoreFails) {
    options.removalDelay = 1h;
    delivery->onSend(FakeDelivery::failing(networkIsAway()));
    accept(write(Op::addFavoriteShow, "a"));
    accept(write(Op::addFavoriteShow, "b"));
    settle();
    delivery->onSend([](const OutboxWrite& sent, const auto& subscriber) {
        if (sent.itemID == "b") return subscriber.on_error(networkIsAway());
        FakeDelivery::accept(sent, subscriber);
    });
    outbox->networkIsBack();
    store->cannotCommit = true;
    const Events events(*outbox);
    outbox.reset();
    EXPECT_THAT(events.kinds(), ElementsAre(Kind::storeFailed));
    EXPECT_EQ(scheduler->waiting(), 0U);
    EXPECT_THAT(store->kept.entries(), SizeIs(2)) << "it is sent again after the next start";
}

TEST_F(OutboxTest, HasOneTimerForAllThatIsToLeaveAStoreThatFails) {
    delivery->onSend(FakeDelivery::failing(networkIsAway()));
    accept(write(Op::addFavoriteShow, "a", "p"));
    accept(write(Op::addFavoriteShow, "b", "q"));
    settle();
    std::optional<rxcpp::subscriber<Response>> late;
    delivery->onSend([&](const OutboxWrite& sent, const auto& subscriber) {
        if (sent.profileID == "p") return FakeDelivery::accept(sent, subscriber);
        late = subscriber;
    });
    const Events events(*outbox);
    outbox->networkIsBack();
    ASSERT_TRUE(late);
    store->cannotCommit = true;
    store->onCommit = [&] {
        if (const auto answered = std::exchange(late, std::nullopt))
            FakeDelivery::accept({}, *answered);
    };
    scheduler->advance(0s);
    ASSERT_TRUE(TestSupport::eventually([&] { return events.kinds().size() == 3; }));
    EXPECT_THAT(events.kinds(), ElementsAre(Kind::sent, Kind::sent, Kind::storeFailed));
    EXPECT_EQ(scheduler->waiting(), 1U);
    store->cannotCommit = false;
    EXPECT_EQ(settle(), (OutboxState{0, 0}));
    EXPECT_THAT(store->kept.entries(), IsEmpty());
}

TEST_F(OutboxTest, FailsWhateverWaitsForACommitThatFails) {
    options.maxEntries = 2;
    delivery->onSend(FakeDelivery::failing(networkIsAway()));
    opened();
    std::optional<Observed<OutboxEntry>> second;
    std::optional<Observed<OutboxEntry>> third;
    std::optional<Observed<bool>> dropped;
    // They come while the first one is stored, and so in one commit.
    store->onCommit = [&] {
        if (second) {
            store->cannotCommit = true;
            return;
        }
        second.emplace(outbox->add(write(Op::addFavoriteShow, "b")));
        third.emplace(outbox->add(write(Op::addFavoriteShow, "c")));
        dropped.emplace(outbox->drop(99));
    };
    accept(write(Op::addFavoriteShow, "a"));
    for (const auto& error : {second->error<OutboxError>(), third->error<OutboxError>(),
                              dropped->error<OutboxError>()}) {
        ASSERT_TRUE(error);
        EXPECT_EQ(error->value(), OutboxError::Case::notStored);
    }
    EXPECT_THAT(outbox->entries(), SizeIs(1));
}

TEST_F(OutboxTest, TakesMuchThatWasSentOutOfTheStoreWithoutWaitingForTheRest) {
    options.removalDelay = 24h;
    delivery->onSend(FakeDelivery::failing(networkIsAway()));
    opened();
    std::vector<Observed<OutboxEntry>> added;
    for (int number = 0; number < 300; ++number)
        added.emplace_back(outbox->add(write(Op::addFavoriteShow, std::to_string(number))));
    for (const auto& one : added)
        ASSERT_TRUE(one.completed());
    settle();
    const auto sendUntil = [&](const std::string& item) {
        delivery->onSend([item](const OutboxWrite& sent, const auto& subscriber) {
            if (sent.itemID == item) return subscriber.on_error(networkIsAway());
            FakeDelivery::accept(sent, subscriber);
        });
        outbox->networkIsBack();
        scheduler->advance(0s);
    };
    sendUntil("255");
    EXPECT_THAT(store->kept.entries(), SizeIs(300));
    sendUntil("256");
    EXPECT_TRUE(TestSupport::eventually([&] { return store->kept.entries().size() == 44; }));
}

// What is late.

namespace {

std::string httpDate(Scheduler::WallTime when) {
    const std::time_t time =
        std::chrono::system_clock::to_time_t(std::chrono::floor<std::chrono::seconds>(when));
    std::tm parts{};
    gmtime_r(&time, &parts);
    std::array<char, 64> text{};
    std::strftime(text.data(), text.size(), "%a, %d %b %Y %H:%M:%S GMT", &parts);
    return text.data();
}

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
    const auto date = [&] { return httpDate(scheduler->wallTime() + 1h); };
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

TEST_F(LateOutboxTest, GoesByTheDevicesClockUntilTheServicesIsKnownAgain) {
    // The service's clock is an hour ahead; a restart forgets it.
    const HalvardSling::Headers date{{"Date", httpDate(scheduler->wallTime() + 1h)}};
    delivery->onSend(FakeDelivery::answering(reply(204, "", date)));
    accept(write(Op::addFavoriteShow, "a"));
    settle();
    acceptAndWait(progress("v", 7), 10s);
    ASSERT_TRUE(outbox->entries().front().clockDifference);
    outbox.reset();
    opened();
    EXPECT_THAT(sentNow(), ElementsAre(progress("v", 7)));
    EXPECT_THAT(delivery->lookedUp(), IsEmpty()) << "it is ten seconds old";
}

// What is equal.

TEST(OutboxRecords, AreEqualIfAllTheirPartsAre) {
    const auto expectEach = [](const auto& whole, const auto&... changes) {
        EXPECT_EQ(whole, whole);
        const auto expectOther = [&](const auto& change) {
            auto other = whole;
            change(other);
            EXPECT_NE(other, whole);
        };
        (expectOther(changes), ...);
    };
    expectEach(
        OutboxState{1, 2}, [](OutboxState& other) { ++other.waiting; },
        [](OutboxState& other) { ++other.refused; });
    expectEach(
        KestrinHousehold::OutboxRefusal{{}, 422, "title", "detail"},
        [](auto& other) { other.at += 1s; }, [](auto& other) { other.status = 400; },
        [](auto& other) { other.title = ""; }, [](auto& other) { other.detail = ""; });
    expectEach(
        progress("v", 7, true), [](OutboxWrite& other) { other.profileID = "q"; },
        [](OutboxWrite& other) { other.brandID = "c"; },
        [](OutboxWrite& other) { other.operation = Op::clearHistory; },
        [](OutboxWrite& other) { other.itemID = "w"; },
        [](OutboxWrite& other) { other.shows.emplace_back("s"); },
        [](OutboxWrite& other) { other.progress = 8; },
        [](OutboxWrite& other) { other.isComplete = false; });
    expectEach(
        OutboxEntry{1, progress("v", 7)}, [](OutboxEntry& other) { other.number = 2; },
        [](OutboxEntry& other) { other.write.progress = 8; },
        [](OutboxEntry& other) { other.acceptedAt += 1s; },
        [](OutboxEntry& other) { other.clockDifference = 1s; },
        [](OutboxEntry& other) { other.ownUntil.emplace(); },
        [](OutboxEntry& other) { other.refusal.emplace(); });
}
