#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <KestrinProfile/model/ProfileError.hpp>
#include <KestrinProfile/model/UserProfile.hpp>

#include "HouseholdFixture.hpp"

namespace {

using KestrinConfigManager::AnonymousBind;
using KestrinProfile::ProfileError;
using KestrinProfile::UserProfile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using TestSupport::HouseholdFixture;
using TestSupport::Observed;
using namespace std::chrono_literals;

using List = Observed<UserProfile>;

class SessionBind : public HouseholdFixture {
  protected:
    /// Answers the transfers that wait now, each by its request, in the order in which they came.
    void answerAll(const std::function<TransportResult(const TransportRequest&)>& service) {
        const auto requests = transport->requests();
        for (const auto transfer : transport->waiting())
            transport->answer(transfer,
                              service(requests.at(static_cast<std::size_t>(transfer - 1))));
    }

    void answerBind(const std::string& profileID, const std::string& token) {
        answer(bindReply(profileID, token));
    }

    static std::optional<int> statusOf(const List& list) {
        const auto error = list.error<SlingError>();
        return error ? error->statusCode() : std::nullopt;
    }
};

TEST_F(SessionBind, IsObtainedBeforeTheRequestIsSent) {
    const auto household = this->household();
    const List list(household.session("p").history());
    EXPECT_THAT(sent(), ElementsAre("bind"));
    answerBind("p", "t");
    EXPECT_THAT(sent(), ElementsAre("bind", "personalization-history-get with JWT t"));
    EXPECT_EQ(manager.heldBinds().binds, std::vector{AnonymousBind("p", "t")});
    EXPECT_THAT(events(), ElementsAre(HasSubstr("a bind is requested")));
    answer(reply(200));
    EXPECT_TRUE(list.completed());
}

TEST_F(SessionBind, IsObtainedOnceForAllCallsThatWait) {
    const auto household = this->household();
    const auto session = household.session("p");
    std::vector<List> lists;
    for (int i = 0; i < 10'000; ++i)
        lists.emplace_back(session.history());
    EXPECT_THAT(sent(), ElementsAre("bind"));
    transport->alwaysAnswer([](const TransportRequest&) { return reply(200); });
    answerBind("p", "t");
    EXPECT_EQ(transport->requests().size(), 10'001U);
    EXPECT_TRUE(std::ranges::all_of(lists, [](const List& list) { return list.completed(); }));
}

TEST_F(SessionBind, ThatIsHeldIsUsedAtOnce) {
    manager.storeBind({"q", "other"});
    manager.storeBind({"p", "t"});
    const auto household = this->household();
    const List list(household.session("p").history());
    EXPECT_THAT(sent(), ElementsAre("personalization-history-get with JWT t"));
}

TEST_F(SessionBind, ThatHasExpiredIsReplacedFirst) {
    // {"exp":1700000100}, and five minutes' leeway
    const std::string token = "e30.eyJleHAiOjE3MDAwMDAxMDB9.s";
    manager.storeBind({"p", token});
    const auto household = this->household();
    const auto session = household.session("p");
    scheduler->setWallTime(KestrinHousehold::Scheduler::WallTime(1'700'000'400s));
    const List last(session.history());
    scheduler->setWallTime(KestrinHousehold::Scheduler::WallTime(1'700'000'401s));
    const List first(session.history());
    EXPECT_THAT(sent(), ElementsAre("personalization-history-get with JWT " + token, "bind"));
}

TEST_F(SessionBind, ThatCannotBeHadIsTheErrorOfEachThatWaitsAndIsTriedAnewNextTime) {
    const auto household = this->household();
    const auto session = household.session("p");
    const List one(session.history());
    const List two(session.favorites());
    answer(reply(500));
    EXPECT_EQ(statusOf(one), 500);
    EXPECT_EQ(statusOf(two), 500);
    const List next(session.history());
    EXPECT_THAT(sent(), ElementsAre("bind", "bind"));
}

TEST_F(SessionBind, OfAnotherProfileIsUsedByNobody) {
    manager.storeBind({"q", "q's"});
    const auto household = this->household();
    const List list(household.session("p").history());
    answerBind("q", "whose?");
    EXPECT_EQ(list.error<ProfileError>(), ProfileError::anonymousBindSerializationError);
    EXPECT_THAT(manager.heldBinds().binds, ElementsAre(AnonymousBind("q", "q's")));
    const List other(household.session("q").history());
    EXPECT_THAT(sent(), ElementsAre("bind", "personalization-history-get with JWT q's"));
}

TEST_F(SessionBind, ThatCameMeanwhileIsNotDroppedForACallThatHasLeft) {
    auto all = options();
    rxcpp::composite_subscription first;
    bool isFirst = true;
    std::function<void()> next;
    all.log = [&](const HouseholdEvent&) {
        if (!std::exchange(isFirst, false)) return;
        first.unsubscribe();
        next();
    };
    const Household household(std::move(all));
    const auto session = household.session("p");
    std::optional<List> second;
    next = [&] {
        second.emplace(session.history());
        answerBind("p", "t");
    };
    session.history().subscribe(first, [](const UserProfile&) {});
    EXPECT_THAT(sent(), ElementsAre("bind", "personalization-history-get with JWT t"));
    EXPECT_THAT(manager.heldBinds().binds, ElementsAre(AnonymousBind("p", "t")));
}

TEST_F(SessionBind, IsRequestedStillWhenOneOfThoseThatWaitLeaves) {
    const auto household = this->household();
    List one(household.session("p").history());
    const List two(household.session("p").history());
    one.unsubscribe();
    EXPECT_EQ(transport->cancelled(), 0U);
    answerBind("p", "t");
    answer(reply(200));
    EXPECT_TRUE(two.completed());
    EXPECT_FALSE(one.endedAtOnce());
    EXPECT_EQ(transport->requests().size(), 2U);
}

TEST_F(SessionBind, IsNotRequestedAnyMoreWhenTheLastThatWaitsHasLeft) {
    const auto household = this->household();
    List one(household.session("p").history());
    List two(household.session("p").history());
    one.unsubscribe();
    two.unsubscribe();
    EXPECT_EQ(transport->cancelled(), 1U);
    const List next(household.session("p").history());
    EXPECT_THAT(sent(), ElementsAre("bind", "bind"));
}

TEST_F(SessionBind, ThatIsRefusedIsRenewedAndTheRequestSentOnceMore) {
    manager.storeBind({"p", "old"});
    const auto household = this->household();
    const List list(household.session("p").history());
    answer(reply(403));
    answerBind("p", "new");
    answer(reply(200));
    EXPECT_TRUE(list.completed());
    EXPECT_THAT(sent(), ElementsAre("personalization-history-get with JWT old", "bind",
                                    "personalization-history-get with JWT new"));
    EXPECT_THAT(events(), ElementsAre(HasSubstr("a new bind is requested, after 403"),
                                      HasSubstr("sent once more")));
}

TEST_F(SessionBind, WhatIsRefusedUnderTheNewOneStaysRefused) {
    manager.storeBind({"p", "old"});
    const auto household = this->household();
    const List list(household.session("p").history());
    answer(reply(403));
    answerBind("p", "new");
    answer(reply(403));
    EXPECT_EQ(statusOf(list), 403);
    EXPECT_EQ(transport->requests().size(), 3U);
    EXPECT_THAT(manager.heldBinds().binds, ElementsAre(AnonymousBind("p", "new")));
}

TEST_F(SessionBind, ThatWasObtainedForTheCallIsNotRenewed) {
    const auto household = this->household();
    const List list(household.session("p").history());
    answerBind("p", "t");
    answer(reply(403));
    EXPECT_EQ(statusOf(list), 403);
    EXPECT_THAT(transport->waiting(), IsEmpty());
}

TEST_F(SessionBind, TheRefusalStandsWhereNoNewOneCanBeHad) {
    manager.storeBind({"p", "old"});
    const auto household = this->household();
    const List list(household.session("p").history());
    answer(reply(403));
    answer(reply(500));
    EXPECT_EQ(statusOf(list), 403);
}

TEST_F(SessionBind, IsRenewedOnceForAllThatAreRefusedAtOnce) {
    manager.storeBind({"p", "old"});
    const auto household = this->household();
    const auto session = household.session("p");
    std::vector<List> lists;
    for (int i = 0; i < 1'000; ++i)
        lists.emplace_back(session.history());
    answerAll([](const TransportRequest&) { return reply(403); });
    answerBind("p", "new");
    answerAll([](const TransportRequest&) { return reply(200); });
    EXPECT_TRUE(std::ranges::all_of(lists, [](const List& list) { return list.completed(); }));
    EXPECT_EQ(std::ranges::count(sent(), "bind"), 1);
}

TEST_F(SessionBind, ThatIsNewerThanTheRefusedOneIsUsedWithoutAnotherRequest) {
    manager.storeBind({"p", "old"});
    const auto household = this->household();
    const List early(household.session("p").history());
    const List late(household.session("p").favorites());
    transport->answer(1, reply(403));
    transport->answer(3, bindReply("p", "new"));
    transport->answer(2, reply(403));
    EXPECT_THAT(sent(), ElementsAre("personalization-history-get with JWT old",
                                    "personalization-favorites-get with JWT old", "bind",
                                    "personalization-history-get with JWT new",
                                    "personalization-favorites-get with JWT new"));
    EXPECT_THAT(manager.heldBinds().binds, ElementsAre(AnonymousBind("p", "new")))
        << "the late refusal has dropped it";
}

TEST_F(SessionBind, IsAskedForOnceByAllThatAreRefusedWhereNoneCanBeHad) {
    manager.storeBind({"p", "old"});
    const auto household = this->household();
    const List early(household.session("p").history());
    const List late(household.session("p").favorites());
    transport->answer(1, reply(403));
    transport->answer(3, reply(403));
    transport->answer(2, reply(403));
    EXPECT_EQ(statusOf(early), 403);
    EXPECT_EQ(statusOf(late), 403);
    EXPECT_EQ(std::ranges::count(sent(), "bind"), 1);
}

TEST_F(SessionBind, OfTheParentIsRenewedEvenIfTheApplicationKeepsBindsAfterARefusal) {
    manager.setForbiddenReplyReaction([] {});
    manager.storeBind({"parent", "old"});
    const auto household = this->household();
    const List list(household.session().history());
    answer(reply(403));
    EXPECT_THAT(sent(), ElementsAre("personalization-history-get with JWT old", "bind"));
}

TEST_F(SessionBind, OfOtherProfilesIsNotLostByARefusal) {
    manager.storeBind({"q", "q's"});
    manager.storeBind({"p", "old"});
    manager.selectProfile("p");
    const auto household = this->household();
    const List list(household.session("p").history());
    answer(reply(403));
    EXPECT_THAT(manager.heldBinds().binds, ElementsAre(AnonymousBind("q", "q's")));
    EXPECT_EQ(manager.selectedProfileID(), "p");
    answerBind("p", "new");
    EXPECT_THAT(manager.heldBinds().binds,
                UnorderedElementsAre(AnonymousBind("q", "q's"), AnonymousBind("p", "new")));
    const List other(household.session("q").history());
    EXPECT_EQ(sent().back(), "personalization-history-get with JWT q's");
}

TEST_F(SessionBind, OfTheSessionIsUsedWhateverIsSelected) {
    manager.storeBind({"p", "p's"});
    manager.storeBind({"q", "q's"});
    manager.selectProfile("q");
    const auto household = this->household();
    const auto call = household.session("p").deleteSearchHistory();
    manager.selectProfile("q");
    const Observed<Response> done(call);
    ASSERT_EQ(transport->requests().size(), 1U);
    EXPECT_EQ(profileID(transport->requests().front()), "p");
    EXPECT_EQ(token(transport->requests().front()), "JWT p's");
    EXPECT_EQ(manager.selectedProfileID(), "q");
}

TEST_F(SessionBind, ThatAnApplicationStoredMeanwhileIsUsedInsteadOfARequest) {
    const auto household = this->household();
    const auto session = household.session("p");
    manager.storeBind({"p", "stored"});
    const List list(session.history());
    EXPECT_THAT(sent(), ElementsAre("personalization-history-get with JWT stored"));
}

TEST_F(SessionBind, ThatAnApplicationStoresWhileTheOldOneIsRefusedIsUsedInsteadOfARequest) {
    manager.setForbiddenReplyReaction([] {});  // it keeps its binds after a refusal
    manager.storeBind({"p", "old"});
    const auto household = this->household();
    const List list(household.session("p").history());
    manager.storeBind({"p", "stored"});
    answer(reply(403));
    EXPECT_THAT(sent(), ElementsAre("personalization-history-get with JWT old",
                                    "personalization-history-get with JWT stored"));
}

TEST_F(SessionBind, IsObtainedWhereAnotherIsAskedForAndNoneIsHeld) {
    const auto household = this->household();
    const Observed<AnonymousBind> renewed(household.session("p").renewBind());
    EXPECT_THAT(sent(), ElementsAre("bind"));
    answerBind("p", "new");
    EXPECT_THAT(renewed.values(), ElementsAre(AnonymousBind("p", "new")));
}

TEST_F(SessionBind, IsObtainedAnewWhereAnotherIsAskedForAndUsedFromThenOn) {
    manager.storeBind({"q", "q's"});
    manager.storeBind({"p", "old"});
    const auto household = this->household();
    const auto session = household.session("p");
    const Observed<AnonymousBind> renewed(session.renewBind());
    const Observed<AnonymousBind> waiting(session.bind());
    EXPECT_THAT(sent(), ElementsAre("bind"));
    answerBind("p", "new");
    EXPECT_THAT(renewed.values(), ElementsAre(AnonymousBind("p", "new")));
    EXPECT_THAT(waiting.values(), ElementsAre(AnonymousBind("p", "new")));
    EXPECT_THAT(manager.heldBinds().binds,
                UnorderedElementsAre(AnonymousBind("p", "new"), AnonymousBind("q", "q's")));
    const List list(session.history());
    EXPECT_EQ(sent().back(), "personalization-history-get with JWT new");
}

TEST_F(SessionBind, ThatWasStoredMeanwhileIsReplacedTooWhereAnotherIsAskedFor) {
    const auto household = this->household();
    const auto session = household.session("p");
    manager.storeBind({"p", "stored"});
    const Observed<AnonymousBind> renewed(session.renewBind());
    answerBind("p", "new");
    EXPECT_THAT(renewed.values(), ElementsAre(AnonymousBind("p", "new")));
}

TEST_F(SessionBind, IsObtainedOnceForAllThatAskForAnotherAtATime) {
    manager.storeBind({"p", "old"});
    const auto household = this->household();
    const auto session = household.session("p");
    const Observed<AnonymousBind> one(session.renewBind());
    const Observed<AnonymousBind> two(session.renewBind());
    EXPECT_THAT(sent(), ElementsAre("bind"));
    answerBind("p", "new");
    EXPECT_EQ(one.values(), two.values());
    const Observed<AnonymousBind> next(session.renewBind());
    EXPECT_THAT(sent(), ElementsAre("bind", "bind"));
}

TEST_F(SessionBind, ThatWasGivenUpIsUsedNoMoreIfNoOtherCanBeHad) {
    manager.storeBind({"p", "old"});
    const auto household = this->household();
    const auto session = household.session("p");
    const Observed<AnonymousBind> renewed(session.renewBind());
    answer(reply(500));
    EXPECT_EQ(renewed.error<SlingError>().value().statusCode(), 500);
    EXPECT_THAT(manager.heldBinds().binds, IsEmpty());
    const List next(session.history());
    EXPECT_THAT(sent(), ElementsAre("bind", "bind"));
}

TEST_F(SessionBind, IsNotObtainedAnewAfterTheEndOfTheHousehold) {
    manager.storeBind({"p", "old"});
    auto household = std::make_unique<KestrinHousehold::Household>(options());
    const auto session = household->session("p");
    household.reset();
    const Observed<AnonymousBind> renewed(session.renewBind());
    EXPECT_EQ(renewed.error<SlingError>().value().kind(), Error::cancelled);
    EXPECT_THAT(transport->requests(), IsEmpty());
}

TEST_F(SessionBind, OfAProfileThatWasDeletedIsForgotten) {
    manager.storeBind({"parent", "t"});
    manager.storeBind({"p", "p's"});
    const auto household = this->household();
    const Observed<Response> refused(household.session().deleteProfile("p"));
    answer(reply(409));
    EXPECT_EQ(manager.heldBinds().binds.size(), 2U);
    const Observed<Response> done(household.session().deleteProfile("p"));
    answer(reply(204));
    EXPECT_TRUE(done.completed());
    EXPECT_THAT(manager.heldBinds().binds, ElementsAre(AnonymousBind("parent", "t")));
    const List list(household.session("p").history());
    EXPECT_EQ(sent().back(), "bind");
}

TEST_F(SessionBind, OfAProfileThatIsNotThereAnyMoreIsForgotten) {
    manager.storeBind({"parent", "t"});
    manager.storeBind({"p", "p's"});
    const auto household = this->household();
    const Observed<Response> deleted(household.session().deleteProfile("p"));
    answer(failure(Error::connectionLost));  // it took effect, and the reply was lost
    scheduler->advance(std::chrono::seconds(1));
    answer(reply(404));
    EXPECT_TRUE(deleted.error<SlingError>().has_value());
    EXPECT_THAT(manager.heldBinds().binds, ElementsAre(AnonymousBind("parent", "t")));
}

TEST_F(SessionBind, IsForgottenWithItsHouseholdWhichEndsItsCalls) {
    manager.storeBind({"q", "q's"});
    auto household = std::make_unique<KestrinHousehold::Household>(options());
    const auto session = household->session("p");
    const List waiting(session.history());
    const List sending(household->session("q").history());
    household.reset();
    for (const List* const list : {&waiting, &sending})
        EXPECT_EQ(list->error<SlingError>().value().kind(), Error::cancelled);
    EXPECT_THAT(transport->waiting(), IsEmpty());
    const List later(session.history());
    EXPECT_EQ(later.error<SlingError>().value().kind(), Error::cancelled);
    EXPECT_EQ(transport->requests().size(), 2U);
}

TEST_F(SessionBind, IsLetGoOfByWhoeverAskedForIt) {
    const auto count = [this](auto use) {
        {
            const auto household = this->household();
            use(household.session("p"));
        }
        return scheduler.use_count();
    };
    EXPECT_EQ(count([](const ProfileSession&) {}), 1);
    EXPECT_EQ(count([&](const ProfileSession& session) {
                  const List list(session.history());
                  answerBind("p", "t");
                  answer(reply(200));
              }),
              1);
    EXPECT_EQ(count([&](const ProfileSession& session) {
                  List list(session.history());
                  list.unsubscribe();
              }),
              1);
}

TEST_F(SessionBind, IsSharedByThreads) {
    transport->alwaysAnswer([](const TransportRequest& request) {
        return isForBind(request) ? bindReply("p", "t") : reply(200);
    });
    const auto household = this->household();
    std::atomic<int> completed = 0;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back([&] {
            for (int i = 0; i < 250; ++i)
                completed += List(household.session("p").history()).completed() ? 1 : 0;
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(completed, 1'000);
    EXPECT_EQ(std::ranges::count(sent(), "bind"), 1);
}

}  // namespace
