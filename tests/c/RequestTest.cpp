// The sentences of kestrin_profile.h on requests, results, threads and cancelling.

#include <array>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "Fixture.hpp"

namespace {

using testing::HasSubstr;
using TestSupport::CInterface;
using TestSupport::string;
using TestSupport::text;

constexpr const char* wholeReply =
    R"({"profileId":"kid","token":"a.b.c","id":"history","maxSize":500,"username":"Ann",)"
    R"("data":[{"profileId":"p1","username":"Ann","avatar":"cat"},{"profileId":"p2","username":""}],)"
    R"("elements":[{"id":"v1","type":"VIDEO","progress":62,"isCompleted":false,)"
    R"("autoAddTimestamp":"2017-03-09T18:25:43.511Z"},{"id":"s1","type":"SHOW"}]})";
constexpr const char* problem =
    R"({"type":"urn:full","title":"Full","status":422,"detail":"The list is full"})";

/// Which member of a result is the value.
enum class Member { bind, response, users, list };

Member memberOf(kestrin_operation operation) {
    switch (operation) {
        case KESTRIN_ANONYMOUS_BIND:
            return Member::bind;
        case KESTRIN_CREATE_PROFILE:
        case KESTRIN_GET_PROFILES:
            return Member::users;
        case KESTRIN_GET_HISTORY:
        case KESTRIN_GET_VIDEO_HISTORY:
        case KESTRIN_GET_FAVORITES:
        case KESTRIN_GET_WATCH_LIST:
            return Member::list;
        default:
            return Member::response;
    }
}

void expectValue(const kestrin_result* result, Member member) {
    ASSERT_NE(result, nullptr);
    ASSERT_EQ(result->outcome, KESTRIN_VALUE)
        << (result->error != nullptr ? string(result->error->message) : "");
    EXPECT_EQ(result->error, nullptr);
    EXPECT_EQ(result->bind != nullptr, member == Member::bind);
    EXPECT_EQ(result->response != nullptr, member == Member::response);
    EXPECT_EQ(result->users.count > 0, member == Member::users);
    EXPECT_EQ(result->list != nullptr, member == Member::list);
}

class Operation : public CInterface, public testing::WithParamInterface<kestrin_operation> {
  protected:
    void expectEndedWell() {
        EXPECT_EQ(ending.completed, 1);
        EXPECT_EQ(ending.released, 1);
        EXPECT_EQ(ending.completed_after_release, 0);
        expectValue(ending.result, memberOf(GetParam()));
    }
};

TEST_P(Operation, OfASessionEndsOnceWithItsValue) {
    answerAlways(200, wholeReply);
    makeSession();
    ASSERT_EQ(begin(GetParam()), KESTRIN_OK) << lastProblem();
    expectEndedWell();
    EXPECT_EQ(transport.sent, GetParam() == KESTRIN_ANONYMOUS_BIND ? 0 : 1);
}

TEST_P(Operation, ThatIsPlainEndsOnceWithItsValue) {
    answerAlways(200, wholeReply);
    const auto completion = app_completion(&ending);
    auto call = app_call(GetParam());
    const kestrin_bind bind{sizeof bind, text("kid"), text("a.given.token")};
    const bool takesBind =
        GetParam() != KESTRIN_ANONYMOUS_BIND && GetParam() != KESTRIN_DELETE_SEARCH_HISTORY;
    ASSERT_EQ(kestrin_profile_start(takesBind ? &bind : nullptr, &call, &completion, nullptr),
              KESTRIN_OK)
        << lastProblem();
    expectEndedWell();
    EXPECT_EQ(transport.sent, 1);
    if (takesBind) {
        EXPECT_STREQ(transport.last_token, "JWT a.given.token");
    }
}

TEST_P(Operation, IsNamedAsTheServiceNamesIt) {
    EXPECT_THAT(kestrin_operation_name(GetParam()), testing::StartsWith("personalization-"));
}

INSTANTIATE_TEST_SUITE_P(Each, Operation, testing::Range(1, 23),
                         [](const auto& each) { return std::to_string(each.param); });

class Requests : public CInterface {};

TEST_F(Requests, ThatAreNoOperationAreRefused) {
    makeSession();
    for (const kestrin_operation operation : {-1, 0, 23}) {
        app_ending end{};
        EXPECT_EQ(begin(app_call(operation), end), KESTRIN_INVALID_ARGUMENT);
        EXPECT_THAT(lastProblem(), HasSubstr("call.operation is"));
        EXPECT_EQ(end.released, 1);
    }
    EXPECT_STREQ(kestrin_operation_name(-1), "");
    EXPECT_STREQ(kestrin_operation_name(23), "");
}

TEST_F(Requests, ThatAreRefusedReleaseTheirContextAndCompleteNothing) {
    makeSession();
    auto call = app_call(KESTRIN_GET_VIDEO_HISTORY);
    call.video_id = {};
    EXPECT_EQ(begin(call, ending), KESTRIN_INVALID_ARGUMENT);
    EXPECT_EQ(lastProblem(),
              "kestrin_session_start: call.video_id is absent, but "
              "personalization-get-video-history needs it");
    EXPECT_EQ(ending.completed, 0);
    EXPECT_EQ(ending.released, 1);
    EXPECT_EQ(ending.request, nullptr);
    EXPECT_EQ(transport.sent, 0);
}

TEST_F(Requests, NeedWhatTheTableSays) {
    makeSession();
    const auto refused = [&](kestrin_operation operation, auto without, const char* field) {
        auto call = app_call(operation);
        without(call);
        app_ending end{};
        EXPECT_EQ(begin(call, end), KESTRIN_INVALID_ARGUMENT) << operation;
        EXPECT_THAT(lastProblem(), HasSubstr(std::string("call.") + field + " is absent"));
    };
    const auto noVideo = [](kestrin_call& call) { call.video_id = {}; };
    const auto noShow = [](kestrin_call& call) { call.show_id = {}; };
    const auto noUser = [](kestrin_call& call) { call.user = nullptr; };
    for (const auto each :
         {KESTRIN_GET_VIDEO_HISTORY, KESTRIN_ADD_HISTORY_VIDEO, KESTRIN_DELETE_VIDEO_HISTORY,
          KESTRIN_ADD_WATCH_LIST_VIDEO, KESTRIN_DELETE_WATCH_LIST_VIDEO})
        refused(each, noVideo, "video_id");
    for (const auto each : {KESTRIN_ADD_FAVORITE_SHOW, KESTRIN_DELETE_FAVORITE_SHOW})
        refused(each, noShow, "show_id");
    for (const auto each : {KESTRIN_CREATE_PROFILE, KESTRIN_EDIT_PROFILE})
        refused(each, noUser, "user");
    refused(KESTRIN_ADD_HISTORY_VIDEO, [](kestrin_call& call) { call.progress = {}; }, "progress");
    refused(KESTRIN_ADD_FAVORITE_SHOWS, [](kestrin_call& call) { call.shows = {}; }, "shows");
    refused(KESTRIN_ADD_SEARCH_HISTORY, [](kestrin_call& call) { call.search = {}; }, "search");
    refused(KESTRIN_DELETE_PROFILE, [](kestrin_call& call) { call.profile_id = {}; }, "profile_id");
    refused(
        KESTRIN_VALIDATE_PROFILE_NAME, [](kestrin_call& call) { call.user_name = {}; },
        "user_name");
    EXPECT_EQ(transport.sent, 0);
}

TEST_F(Requests, NeedACompletionThatCanBeCalled) {
    makeSession();
    const auto call = app_call(KESTRIN_GET_HISTORY);
    EXPECT_EQ(kestrin_session_start(session, &call, nullptr, nullptr), KESTRIN_INVALID_ARGUMENT);
    auto completion = app_completion(&ending);
    completion.completed = nullptr;
    EXPECT_EQ(kestrin_session_start(session, &call, &completion, nullptr),
              KESTRIN_INVALID_ARGUMENT);
    EXPECT_EQ(ending.released, 1);
    completion.size = 0;
    EXPECT_EQ(kestrin_session_start(session, &call, &completion, nullptr),
              KESTRIN_INVALID_ARGUMENT);
    EXPECT_EQ(ending.released, 1) << "a completion of a wrong size is not read";
}

TEST_F(Requests, ShowAListAsOneArray) {
    makeSession();
    ASSERT_EQ(begin(KESTRIN_GET_HISTORY), KESTRIN_OK);
    ASSERT_EQ(app_answer(&transport, 200, wholeReply), KESTRIN_OK);
    ASSERT_EQ(ending.completed, 1);
    const auto& list = *ending.result->list;
    EXPECT_EQ(string(list.id), "history");
    EXPECT_EQ(list.max_size.value, 500);
    EXPECT_TRUE(list.has_entries);
    ASSERT_EQ(list.entries.count, 2U);
    EXPECT_EQ(list.entries.stride, sizeof(kestrin_entry));
    EXPECT_EQ(app_count_of_type(&list, "VIDEO"), 1U);
    const auto& video = *kestrin_entry_at(&list.entries, 0);
    EXPECT_EQ(video.size, sizeof video);
    EXPECT_EQ(string(video.id), "v1");
    EXPECT_EQ(video.progress.value, 62);
    EXPECT_TRUE(video.is_completed.present);
    EXPECT_FALSE(video.is_completed.value);
    EXPECT_EQ(video.auto_add_timestamp.value, 1489083943511000);
    const auto& show = *kestrin_entry_at(&list.entries, 1);
    EXPECT_FALSE(show.progress.present);
    EXPECT_FALSE(show.auto_add_timestamp.present);
}

TEST_F(Requests, TellAnAbsentListFromAnEmptyOne) {
    makeSession();
    answerAlways(200, R"({"elements":[]})");
    ASSERT_EQ(begin(KESTRIN_GET_HISTORY), KESTRIN_OK);
    EXPECT_TRUE(ending.result->list->has_entries);
    EXPECT_EQ(ending.result->list->entries.count, 0U);
    answerAlways(200, "{}");
    ASSERT_EQ(begin(app_call(KESTRIN_GET_HISTORY), other), KESTRIN_OK);
    EXPECT_FALSE(other.result->list->has_entries);
}

TEST_F(Requests, TellAnAbsentTextFromAnEmptyOne) {
    makeSession();
    answerAlways(200, wholeReply);
    ASSERT_EQ(begin(KESTRIN_GET_PROFILES), KESTRIN_OK);
    const auto& users = ending.result->users;
    ASSERT_EQ(users.count, 2U);
    const auto& second = *kestrin_user_at(&users, 1);
    EXPECT_NE(second.username.data, nullptr);
    EXPECT_EQ(second.username.length, 0U);
    EXPECT_EQ(second.avatar.data, nullptr);
    EXPECT_EQ(string(kestrin_user_at(&users, 0)->avatar), "cat");
}

TEST_F(Requests, KeepTheirResultUntilItIsReleased) {
    makeSession();
    ASSERT_EQ(begin(KESTRIN_GET_PROFILES), KESTRIN_OK);
    ASSERT_EQ(app_answer(&transport, 200, wholeReply), KESTRIN_OK);
    kestrin_request_release(ending.request);
    ending.request = nullptr;
    kestrin_session_release(session);
    session = nullptr;
    kestrin_household_release(household);
    household = nullptr;
    EXPECT_EQ(string(kestrin_user_at(&ending.result->users, 0)->username), "Ann");
}

TEST_F(Requests, SayWhyTheyFailed) {
    makeSession();
    transport.content_type = "application/problem+json";
    ASSERT_EQ(begin(KESTRIN_ADD_FAVORITE_SHOW), KESTRIN_OK);
    ASSERT_EQ(app_answer(&transport, 422, problem), KESTRIN_OK);
    ASSERT_EQ(ending.completed, 1);
    EXPECT_EQ(ending.result->outcome, KESTRIN_ERROR);
    const auto& error = *ending.result->error;
    EXPECT_EQ(error.size, sizeof error);
    EXPECT_EQ(string(error.domain), "HalvardSling.SlingError");
    EXPECT_EQ(error.code, KESTRIN_HTTP_STATUS);
    EXPECT_EQ(error.status, 422);
    EXPECT_EQ(error.notice, KESTRIN_SHOW_MEND_INPUT);
    EXPECT_THAT(string(error.message), HasSubstr("422"));
    EXPECT_THAT(string(error.advice), HasSubstr("status"));
    EXPECT_EQ(string(error.problem_type), "urn:full");
    EXPECT_EQ(string(error.problem_title), "Full");
    EXPECT_EQ(string(error.problem_detail), "The list is full");
    EXPECT_EQ(string(error.request_id), transport.last_request_id);
    EXPECT_EQ(string(error.request_id).size(), 32U);
}

TEST_F(Requests, SayOfWhichDomainAnErrorIs) {
    makeSession();
    answerAlways(200, "{}");
    ASSERT_EQ(begin(KESTRIN_GET_PROFILES), KESTRIN_OK);
    EXPECT_EQ(string(ending.result->error->domain), "KestrinProfile.ProfileError");
    EXPECT_EQ(ending.result->error->code, 7);
    EXPECT_EQ(ending.result->error->status, 0);
    EXPECT_EQ(string(ending.result->error->request_id), "");
    ASSERT_EQ(kestrin_remove_configuration(), KESTRIN_OK);
    ASSERT_EQ(begin(app_call(KESTRIN_GET_HISTORY), other), KESTRIN_OK);
    EXPECT_EQ(string(other.result->error->domain),
              "KestrinConfigManager.ConfigurationManagerError");
}

TEST_F(Requests, ShowAReplyAsItCame) {
    makeSession();
    answerAlways(201, "as it came");
    ASSERT_EQ(begin(KESTRIN_ADD_FAVORITE_SHOW), KESTRIN_OK);
    const auto& response = *ending.result->response;
    EXPECT_EQ(response.status, 201);
    EXPECT_EQ(string(response.body), "as it came");
    ASSERT_EQ(response.headers.count, 1U);
    EXPECT_EQ(string(response.headers.first[0].name), "Content-Type");
    EXPECT_EQ(string(response.headers.first[0].value), "application/json");
}

TEST_F(Requests, HaveTheirHandleBeforeTheyEnd) {
    makeSession();
    answerAlways(200, wholeReply);
    static kestrin_request* seen;
    seen = nullptr;
    ending.in_completion = [](app_ending* end) { seen = end->request; };
    ASSERT_EQ(begin(KESTRIN_GET_HISTORY), KESTRIN_OK);
    EXPECT_NE(seen, nullptr);
    EXPECT_EQ(seen, ending.request);
}

// ---- Cancelling ---------------------------------------------------------------------------------

TEST_F(Requests, AreCancelledAtOnce) {
    makeSession();
    ASSERT_EQ(begin(KESTRIN_GET_HISTORY), KESTRIN_OK);
    EXPECT_EQ(ending.completed, 0);
    kestrin_request_cancel(ending.request);
    EXPECT_EQ(ending.completed, 1);
    EXPECT_EQ(ending.released, 1);
    EXPECT_EQ(ending.result->outcome, KESTRIN_CANCELLED);
    EXPECT_EQ(ending.result->error->code, KESTRIN_TRANSFER_CANCELLED);
    EXPECT_EQ(ending.result->error->notice, KESTRIN_SHOW_NOTHING);
    EXPECT_EQ(transport.cancelled, 1) << "the transport is told";
    EXPECT_EQ(app_answer(&transport, 200, wholeReply), KESTRIN_OK);
    kestrin_request_cancel(ending.request);
    EXPECT_EQ(ending.completed, 1) << "what has ended ends no more";
    EXPECT_EQ(ending.released, 1);
}

TEST_F(Requests, AreNotCancelledOnceTheyHaveEnded) {
    makeSession();
    answerAlways(200, wholeReply);
    ASSERT_EQ(begin(KESTRIN_GET_HISTORY), KESTRIN_OK);
    kestrin_request_cancel(ending.request);
    EXPECT_EQ(ending.completed, 1);
    EXPECT_EQ(ending.result->outcome, KESTRIN_VALUE);
}

TEST_F(Requests, MayBeCancelledInACompletion) {
    makeSession();
    ASSERT_EQ(begin(KESTRIN_GET_HISTORY), KESTRIN_OK);
    ASSERT_EQ(begin(app_call(KESTRIN_GET_FAVORITES), other), KESTRIN_OK);
    ending.more = &other;
    ending.in_completion = [](app_ending* end) {
        kestrin_request_cancel(end->request);
        kestrin_request_cancel(static_cast<app_ending*>(end->more)->request);
    };
    ASSERT_EQ(app_answer(&transport, 200, wholeReply), KESTRIN_OK);
    EXPECT_EQ(ending.completed, 1);
    EXPECT_EQ(ending.result->outcome, KESTRIN_VALUE);
    EXPECT_EQ(other.completed, 1);
    EXPECT_EQ(other.result->outcome, KESTRIN_CANCELLED);
}

TEST_F(Requests, MayBeReleasedInTheirCompletion) {
    makeSession();
    ASSERT_EQ(begin(KESTRIN_GET_HISTORY), KESTRIN_OK);
    ending.in_completion = [](app_ending* end) {
        kestrin_request_release(end->request);
        end->request = nullptr;
        kestrin_result_release(end->result);
        end->result = nullptr;
    };
    ASSERT_EQ(app_answer(&transport, 200, wholeReply), KESTRIN_OK);
    EXPECT_EQ(ending.completed, 1);
    EXPECT_EQ(ending.released, 1);
}

TEST_F(Requests, GoOnWithoutTheirHandle) {
    makeSession();
    ASSERT_EQ(begin(KESTRIN_GET_HISTORY), KESTRIN_OK);
    kestrin_request_release(ending.request);
    ending.request = nullptr;
    EXPECT_EQ(transport.cancelled, 0);
    ASSERT_EQ(app_answer(&transport, 200, wholeReply), KESTRIN_OK);
    EXPECT_EQ(ending.result->outcome, KESTRIN_VALUE);
}

TEST_F(Requests, EndOnceHoweverTheirEndsMeet) {
    makeSession();
    for (int round = 0; round < 200; ++round) {
        app_ending end{};
        ASSERT_EQ(begin(app_call(KESTRIN_GET_HISTORY), end), KESTRIN_OK);
        std::atomic<int> ready = 0;
        const auto meet = [&] {
            for (++ready; ready < 3;)
                std::this_thread::yield();
        };
        std::array threads{std::thread([&] {
                               meet();
                               kestrin_request_cancel(end.request);
                           }),
                           std::thread([&] {
                               meet();
                               kestrin_request_cancel(end.request);
                           }),
                           std::thread([&] {
                               meet();
                               app_answer(&transport, 200, wholeReply);
                           })};
        for (auto& thread : threads)
            thread.join();
        EXPECT_EQ(end.completed, 1);
        EXPECT_EQ(end.released, 1);
        EXPECT_EQ(end.completed_after_release, 0);
        kestrin_request_release(end.request);
        app_forget(&end);
    }
}

TEST_F(Requests, EndWithTheirHousehold) {
    makeSession();
    ASSERT_EQ(begin(KESTRIN_GET_HISTORY), KESTRIN_OK);
    kestrin_household_release(household);
    household = nullptr;
    EXPECT_EQ(ending.completed, 1);
    EXPECT_EQ(ending.result->outcome, KESTRIN_CANCELLED);
    EXPECT_THAT(string(ending.result->error->message), HasSubstr("household"));
    ASSERT_EQ(begin(app_call(KESTRIN_GET_HISTORY), other), KESTRIN_OK);
    EXPECT_EQ(other.result->outcome, KESTRIN_CANCELLED) << "a session that is left fails, too";
}

TEST_F(Requests, EndWithTheirTransport) {
    makeSession();
    ASSERT_EQ(begin(KESTRIN_GET_HISTORY), KESTRIN_OK);
    app_transport next{};
    const auto hooks = app_transport_hooks(&next);
    ASSERT_EQ(kestrin_set_transport(&hooks), KESTRIN_OK);
    EXPECT_EQ(transport.released, 1);
    EXPECT_EQ(ending.completed, 1);
    EXPECT_EQ(ending.result->outcome, KESTRIN_CANCELLED);
    ASSERT_EQ(kestrin_set_transport(nullptr), KESTRIN_OK);
    EXPECT_EQ(next.released, 1);
}

// ---- Executors ----------------------------------------------------------------------------------

class Executors : public CInterface {
  protected:
    Executors() {
        const auto hooks = app_executor_hooks(&queue);
        EXPECT_EQ(kestrin_executor_create(&hooks, &executor), KESTRIN_OK);
        makeSession();
    }
    ~Executors() override { kestrin_executor_release(executor); }

    kestrin_status beginThere(app_ending& end) {
        const auto call = app_call(KESTRIN_GET_HISTORY);
        auto completion = app_completion(&end);
        completion.executor = executor;
        return kestrin_session_start(session, &call, &completion, &end.request);
    }

    app_executor queue{};
    kestrin_executor* executor = nullptr;
};

TEST_F(Executors, CallCompletionsWhereTheyRunTheirTasks) {
    ASSERT_EQ(beginThere(ending), KESTRIN_OK);
    ASSERT_EQ(app_answer(&transport, 200, wholeReply), KESTRIN_OK);
    EXPECT_EQ(ending.completed, 0);
    ASSERT_EQ(queue.count, 1);
    kestrin_task_run(queue.tasks[0]);
    EXPECT_EQ(ending.completed, 1);
    EXPECT_EQ(ending.released, 1);
    EXPECT_EQ(ending.result->outcome, KESTRIN_VALUE);
}

TEST_F(Executors, GetTheEndOfWhatIsCancelled) {
    ASSERT_EQ(beginThere(ending), KESTRIN_OK);
    kestrin_request_cancel(ending.request);
    EXPECT_EQ(ending.completed, 0);
    ASSERT_EQ(queue.count, 1);
    kestrin_task_run(queue.tasks[0]);
    EXPECT_EQ(ending.result->outcome, KESTRIN_CANCELLED);
}

TEST_F(Executors, DeliverAResultThatIsOnItsWayThoughItIsCancelled) {
    ASSERT_EQ(beginThere(ending), KESTRIN_OK);
    ASSERT_EQ(app_answer(&transport, 200, wholeReply), KESTRIN_OK);
    kestrin_request_cancel(ending.request);
    ASSERT_EQ(queue.count, 1);
    kestrin_task_run(queue.tasks[0]);
    EXPECT_EQ(ending.completed, 1);
    EXPECT_EQ(ending.result->outcome, KESTRIN_VALUE);
}

TEST_F(Executors, ThatDropATaskReleaseTheContextAlone) {
    ASSERT_EQ(beginThere(ending), KESTRIN_OK);
    ASSERT_EQ(app_answer(&transport, 200, wholeReply), KESTRIN_OK);
    ASSERT_EQ(queue.count, 1);
    kestrin_task_drop(queue.tasks[0]);
    EXPECT_EQ(ending.completed, 0);
    EXPECT_EQ(ending.released, 1);
}

TEST_F(Executors, LastAsLongAsSomethingUsesThem) {
    ASSERT_EQ(beginThere(ending), KESTRIN_OK);
    kestrin_executor_release(executor);
    executor = nullptr;
    EXPECT_EQ(queue.released, 0);
    ASSERT_EQ(app_answer(&transport, 200, wholeReply), KESTRIN_OK);
    ASSERT_EQ(queue.count, 1);
    kestrin_task_run(queue.tasks[0]);
    EXPECT_EQ(ending.completed, 1);
    kestrin_request_release(ending.request);
    ending.request = nullptr;
    EXPECT_EQ(queue.released, 1);
}

TEST_F(Executors, AreRefusedWithoutAFunction) {
    app_executor none{};
    auto hooks = app_executor_hooks(&none);
    hooks.execute = nullptr;
    kestrin_executor* made = nullptr;
    EXPECT_EQ(kestrin_executor_create(&hooks, &made), KESTRIN_INVALID_ARGUMENT);
    EXPECT_EQ(none.released, 1);
    EXPECT_EQ(made, nullptr);
}

}  // namespace
