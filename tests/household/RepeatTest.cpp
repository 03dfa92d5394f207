#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <KestrinProfile/model/User.hpp>
#include <KestrinProfile/model/UserProfile.hpp>

#include "HouseholdFixture.hpp"

namespace {

using KestrinProfile::User;
using KestrinProfile::UserProfile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using TestSupport::HouseholdFixture;
using TestSupport::Observed;
using namespace std::chrono_literals;

using List = Observed<UserProfile>;
using Done = Observed<HalvardSling::Response>;

/// A profile with a bind, in a household that may repeat as often as it likes.
class Repeat : public HouseholdFixture {
  protected:
    Repeat() { manager.storeBind({"p", "t"}); }

    static RetryPolicy generous() {
        RetryPolicy policy;
        policy.budget = {1, 1'000, 1'000};
        return policy;
    }

    KestrinHousehold::Household home = householdWith(generous());
    ProfileSession session = home.session("p");

    /// Whether a call is repeated after this.
    template <class T>
    bool isRepeated(const HalvardSling::Observable<T>& call, TransportResult failure) {
        const auto before = scheduler->waiting();
        Observed<T> observed(call);
        answer(std::move(failure));
        const bool repeats = scheduler->waiting() > before;
        EXPECT_NE(repeats, observed.endedAtOnce());
        observed.unsubscribe();
        EXPECT_EQ(scheduler->waiting(), before) << "a task is left";
        return repeats;
    }
};

TEST_F(Repeat, ComesAfterWhatMayPassAndMayTakeEffectTwice) {
    for (const Error kind : {Error::cannotConnect, Error::nameNotResolved, Error::connectTimeout,
                             Error::totalTimeout, Error::connectionLost}) {
        EXPECT_TRUE(isRepeated(session.history(), failure(kind))) << name(kind);
        EXPECT_TRUE(isRepeated(session.addHistoryVideo("v", 62s), failure(kind))) << name(kind);
        EXPECT_TRUE(isRepeated(session.clearHistory(), failure(kind))) << name(kind);
    }
    for (const int status : {429, 502, 503, 504})
        EXPECT_TRUE(isRepeated(session.history(), reply(status))) << status;
}

TEST_F(Repeat, ComesOnlyWhereNothingWasSentIfTwiceIsNotAsOnce) {
    const auto create = [&] { return session.createProfile(User("", "Anna")); };
    for (const Error kind : {Error::cannotConnect, Error::nameNotResolved, Error::connectTimeout})
        EXPECT_TRUE(isRepeated(create(), failure(kind))) << name(kind);
    for (const Error kind : {Error::totalTimeout, Error::connectionLost})
        EXPECT_FALSE(isRepeated(create(), failure(kind))) << name(kind);
    for (const int status : {429, 502, 503, 504})
        EXPECT_FALSE(isRepeated(create(), reply(status))) << status;
}

TEST_F(Repeat, DoesNotComeAfterWhatWillNotPass) {
    for (const Error kind : {Error::tls, Error::tooLarge, Error::malformedURL,
                             Error::forbiddenHeader, Error::malformedReply, Error::redirect,
                             Error::cancelled, Error::outOfMemory, Error::malformedBody})
        EXPECT_FALSE(isRepeated(session.history(), failure(kind))) << name(kind);
    for (const int status : {400, 401, 404, 408, 409, 422, 500, 501})
        EXPECT_FALSE(isRepeated(session.history(), reply(status))) << status;
    EXPECT_FALSE(isRepeated(session.history(), reply(200, "[]")));
}

TEST_F(Repeat, GoesByThePolicysData) {
    RetryPolicy policy = generous();
    policy.statuses = {500};
    policy.refusals = {429};
    policy.errors = {};
    policy.unsentErrors = {};
    home = householdWith(policy);
    session = home.session("p");
    EXPECT_TRUE(isRepeated(session.history(), reply(500)));
    EXPECT_FALSE(isRepeated(session.history(), reply(503)));
    EXPECT_FALSE(isRepeated(session.history(), failure(Error::cannotConnect)));
    EXPECT_TRUE(isRepeated(session.createProfile(User("", "Anna")), reply(429)));
    EXPECT_FALSE(isRepeated(session.createProfile(User("", "Anna")), reply(500)));
}

TEST_F(Repeat, WaitsLongerEachTimeUpToALimitAndEndsWithTheLastError) {
    RetryPolicy policy = generous();
    policy.maxAttempts = 5;
    policy.firstDelay = 1s;
    policy.longestDelay = 3s;
    home = householdWith(policy);
    const List list(home.session("p").history());
    for (const auto delay : {1s, 2s, 3s, 3s}) {
        answer(reply(503));
        EXPECT_EQ(scheduler->nextDelay(), delay);
        scheduler->advance(delay - 1ns);
        EXPECT_THAT(transport->waiting(), IsEmpty());
        scheduler->advance(1ns);
    }
    answer(reply(502));
    EXPECT_EQ(list.error<SlingError>().value().statusCode(), 502);
    EXPECT_EQ(transport->requests().size(), 5U);
    EXPECT_EQ(scheduler->waiting(), 0U);
    EXPECT_THAT(events(),
                ElementsAre("personalization-history-get: attempt 2 of 5 in 1000 ms, after 503",
                            "personalization-history-get: attempt 3 of 5 in 2000 ms, after 503",
                            "personalization-history-get: attempt 4 of 5 in 3000 ms, after 503",
                            "personalization-history-get: attempt 5 of 5 in 3000 ms, after 503",
                            "personalization-history-get: not repeated after attempt 5 of 5: 502, "
                            "and the attempts are used up"));
}

TEST_F(Repeat, WaitsForARandomPartOfItsTime) {
    for (const double part : {0.0, 0.25, 0.9}) {
        HouseholdOptions all = options();
        all.retry = generous();
        all.retry.firstDelay = 1s;
        all.random = [part] { return part; };
        const Household household(all);
        List list(household.session("p").history());
        answer(reply(503));
        EXPECT_EQ(scheduler->nextDelay(), std::chrono::duration_cast<std::chrono::nanoseconds>(
                                              std::chrono::duration<double>(part)));
        list.unsubscribe();
    }
}

TEST_F(Repeat, MayGiveWhatTheFirstTimeDidNot) {
    const List list(session.history());
    answer(failure(Error::connectionLost));
    scheduler->advance(1s);
    answer(reply(200));
    EXPECT_TRUE(list.completed());
    EXPECT_EQ(scheduler->waiting(), 0U);
}

TEST_F(Repeat, WaitsForWhatRetryAfterSaysFirst) {
    List list(session.history());
    answer(reply(503, "", {{"Retry-After", "7"}}));
    EXPECT_EQ(scheduler->nextDelay(), 7s + 500ms);
}

TEST_F(Repeat, WaitsForTheDateOfRetryAfterByTheServicesClock) {
    List list(session.history());
    answer(reply(503, "",
                 {{"Date", "Sun, 06 Nov 1994 08:49:37 GMT"},
                  {"Retry-After", "Sun, 06 Nov 1994 08:49:47 GMT"}}));
    EXPECT_EQ(scheduler->nextDelay(), 10s + 500ms);
}

TEST_F(Repeat, DoesNotComeIfRetryAfterIsBeyondTheDeadline) {
    EXPECT_FALSE(isRepeated(session.history(), reply(503, "", {{"Retry-After", "60"}})));
    EXPECT_FALSE(
        isRepeated(session.history(), reply(503, "", {{"Retry-After", "99999999999999"}})));
    EXPECT_THAT(events().back(), HasSubstr("503, and the deadline is too near"));
}

TEST_F(Repeat, IsCutOffAtTheDeadlineOfAllAttempts) {
    const List list(session.history());
    scheduler->advance(20s);
    answer(reply(503));
    scheduler->advance(1s);
    ASSERT_EQ(transport->waiting().size(), 1U);
    scheduler->advance(39s - 1ns);
    EXPECT_FALSE(list.endedAtOnce());
    scheduler->advance(1ns);
    const auto error = list.error<SlingError>();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->kind(), Error::totalTimeout);
    EXPECT_THAT(error->what(), HasSubstr("personalization-history-get"));
    EXPECT_EQ(transport->cancelled(), 1U);
    EXPECT_EQ(scheduler->waiting(), 0U);
}

TEST_F(Repeat, TheDeadlineOfACallHoldsForAllThatItWaitsFor) {
    const List list(home.session("q").withDeadline(5s).history());
    scheduler->advance(5s);
    EXPECT_EQ(list.error<SlingError>().value().kind(), Error::totalTimeout);
    EXPECT_EQ(transport->cancelled(), 1U) << "nobody waits for the bind any more";
    EXPECT_EQ(scheduler->waiting(), 0U);
}

TEST_F(Repeat, TheDeadlineOfACallMayLieBeyondTheEndOfTheClock) {
    scheduler->advance(1h);
    const List list(session.withDeadline(std::chrono::nanoseconds::max()).history());
    answer(reply(503));
    scheduler->advance(24h);
    answer(reply(404));
    EXPECT_EQ(list.error<SlingError>().value().statusCode(), 404);
    EXPECT_EQ(transport->requests().size(), 2U);
    EXPECT_EQ(scheduler->waiting(), 0U);
}

TEST_F(Repeat, TheDeadlineHoldsThoughTheConfigurationIsGone) {
    const List list(session.withDeadline(5s).history());
    manager.removeConfiguration();
    scheduler->advance(5s);
    const auto error = list.error<SlingError>();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->kind(), Error::totalTimeout);
    ASSERT_NE(error->context(), nullptr);
    EXPECT_EQ(error->context()->operation, "personalization-history-get");
    EXPECT_EQ(error->context()->method, "");
    EXPECT_EQ(error->context()->pathTemplate, "");
}

TEST_F(Repeat, CanBeSwitchedOffForACallAndForAll) {
    EXPECT_FALSE(isRepeated(session.withoutRepeats().history(), reply(503)));
    home = householdWith(RetryPolicy::never());
    EXPECT_FALSE(isRepeated(home.session("p").history(), reply(503)));
    EXPECT_THAT(events(), IsEmpty());
}

TEST_F(Repeat, OfTheRequestForABindGoesByItsMethod) {
    const List list(home.session("q").history());
    answer(failure(Error::cannotConnect));
    scheduler->advance(1s);
    answer(failure(Error::connectionLost));
    EXPECT_EQ(list.error<SlingError>().value().kind(), Error::connectionLost);
    EXPECT_THAT(sent(), ElementsAre("bind", "bind"));
}

TEST_F(Repeat, GoesOnUnderTheNewerBindAfterARefusal) {
    const List list(session.history());
    answer(reply(503));
    scheduler->advance(1s);
    answer(reply(403));
    answer(bindReply("p", "new"));
    answer(reply(503));
    scheduler->advance(2s);
    answer(reply(200));
    EXPECT_TRUE(list.completed());
    EXPECT_EQ(sent().back(), "personalization-history-get with JWT new");
}

TEST_F(Repeat, IsNeverMoreThanATenthOfWhatIsSent) {
    home = household();
    session = home.session("p");
    // Every fifth request fails.
    std::size_t count = 0;
    transport->alwaysAnswer(
        [&](const TransportRequest&) { return ++count % 5 == 0 ? reply(503) : reply(200); });
    constexpr std::size_t calls = 3'000;
    for (std::size_t call = 0; call < calls; ++call) {
        session.history().subscribe([](const UserProfile&) {}, [](const std::exception_ptr&) {});
        scheduler->advance(1h);
    }
    const std::size_t repeats = transport->requests().size() - calls;
    EXPECT_LE(repeats, calls / 10);
    EXPECT_GE(repeats, calls / 20) << "and the budget is used";
}

TEST_F(Repeat, EndsSoonAfterTheServiceHas) {
    home = household();
    session = home.session("p");
    transport->alwaysAnswer([&](const TransportRequest&) { return reply(200); });
    const auto call = [&](int times) {
        for (int i = 0; i < times; ++i) {
            session.history().subscribe([](const UserProfile&) {},
                                        [](const std::exception_ptr&) {});
            scheduler->advance(1h);
        }
    };
    call(1'000);
    transport->alwaysAnswer([&](const TransportRequest&) { return reply(503); });
    call(1'000);
    EXPECT_EQ(transport->requests().size(), 2'001U) << "one repeat was saved";
}

TEST_F(Repeat, IsNotEarnedByAskingForABindThatIsHeld) {
    home = household();
    session = home.session("p");
    transport->alwaysAnswer([&](const TransportRequest&) { return reply(503); });
    const List first(session.history());
    scheduler->advance(1h);
    const auto sentBefore = transport->requests().size();
    for (int i = 0; i < 20; ++i) {
        const Observed bind(session.bind());
        EXPECT_TRUE(bind.completed());
    }
    const List second(session.history());
    scheduler->advance(1h);
    EXPECT_EQ(transport->requests().size(), sentBefore + 1) << "the one repeat is used up";
}

TEST_F(Repeat, IsTakenBackWhenTheHouseholdEnds) {
    auto own = std::make_unique<Household>(options());
    const List list(own->session("p").history());
    answer(reply(503));
    EXPECT_GT(scheduler->waiting(), 0U);
    own.reset();
    EXPECT_EQ(list.error<SlingError>().value().kind(), Error::cancelled);
    EXPECT_EQ(scheduler->waiting(), 0U);
}

TEST_F(Repeat, TellsTheLogNoSecret) {
    manager.storeBind({"p", "s3cret"});
    const List list(session.history());
    answer(reply(403));
    answer(bindReply("p", "s3cret2"));
    answer(reply(503, "s3cret", {{"Retry-After", "s3cret"}}));
    EXPECT_FALSE(events().empty());
    for (const auto& event : events()) {
        EXPECT_THAT(event, Not(HasSubstr("s3cret")));
        EXPECT_THAT(event, Not(HasSubstr("v1")));
    }
}

}  // namespace
