// The sentences of kestrin_profile.h on the platform's transport, clock and log.

#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "Fixture.hpp"

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using TestSupport::CInterface;
using TestSupport::string;
using TestSupport::text;

class Hook : public CInterface {
  protected:
    Hook() {
        clockHooks = app_clock_hooks(&clock);
        logHooks = app_log_hooks(&log);
        options.size = sizeof options;
        options.clock = &clockHooks;
        options.log = &logHooks;
    }

    app_clock clock{};
    app_log log{};
    kestrin_clock clockHooks{};
    kestrin_household_log logHooks{};
    kestrin_household_options options{};
};

// ---- Transport ----------------------------------------------------------------------------------

TEST_F(Hook, OfTheTransportIsToldAllOfARequest) {
    makeSession();
    ASSERT_EQ(begin(KESTRIN_ADD_HISTORY_VIDEO), KESTRIN_OK);
    EXPECT_STREQ(transport.last_method, "PUT");
    EXPECT_THAT(transport.last_url, StartsWith("http://127.0.0.1:8080/v1/history/video?video=v1&"));
    EXPECT_THAT(transport.last_body, HasSubstr(R"("progress":"62")"));
    EXPECT_STREQ(transport.last_token, "JWT the.kids.token");
    EXPECT_THAT(transport.last_request_id, testing::MatchesRegex("[0-9a-f]{32}"));
    const auto& request = *transport.requests[0];
    EXPECT_EQ(request.size, sizeof request);
    EXPECT_NE(request.id, 0U);
    EXPECT_TRUE(request.sends_user_agent);
    EXPECT_EQ(request.connect_timeout_ms, 10'000);
    EXPECT_EQ(request.total_timeout_ms, 30'000);
    EXPECT_EQ(request.max_redirects, 0);
    EXPECT_EQ(request.max_body_length, 16U * 1024 * 1024);
    EXPECT_EQ(string(request.operation), "personalization-history-add-video");
    EXPECT_EQ(string(request.path_template), "/v1/history/video");
}

TEST_F(Hook, OfTheTransportSeesNoBodyWhereThereIsNone) {
    makeSession();
    ASSERT_EQ(begin(KESTRIN_GET_HISTORY), KESTRIN_OK);
    EXPECT_STREQ(transport.last_body, "(none)");
}

TEST_F(Hook, OfTheTransportEndsARequestWithAnError) {
    makeSession();
    for (const auto error : {KESTRIN_TLS, KESTRIN_TOO_LARGE, KESTRIN_MALFORMED_REPLY}) {
        app_ending end{};
        ASSERT_EQ(begin(app_call(KESTRIN_GET_HISTORY), end), KESTRIN_OK);
        EXPECT_EQ(app_fail(&transport, error), KESTRIN_OK);
        ASSERT_EQ(end.completed, 1);
        EXPECT_EQ(end.result->outcome, KESTRIN_ERROR);
        EXPECT_EQ(end.result->error->code, error);
        EXPECT_THAT(string(end.result->error->message), HasSubstr("as the test wants"));
        kestrin_request_release(end.request);
        app_forget(&end);
    }
}

TEST_F(Hook, OfTheTransportThatIsAtFaultEndsTheRequestAllTheSame) {
    makeSession();
    const auto expectFault = [&](kestrin_status status) {
        EXPECT_NE(status, KESTRIN_OK);
        ASSERT_EQ(ending.completed, 1);
        EXPECT_EQ(ending.result->error->code, KESTRIN_MALFORMED_REPLY);
        kestrin_request_release(ending.request);
        app_forget(&ending);
        ASSERT_EQ(begin(KESTRIN_GET_HISTORY), KESTRIN_OK);
    };
    ASSERT_EQ(begin(KESTRIN_GET_HISTORY), KESTRIN_OK);
    expectFault(app_answer(&transport, 99, "{}"));
    expectFault(app_answer(&transport, 1000, "{}"));
    expectFault(app_fail(&transport, KESTRIN_HTTP_STATUS));
    expectFault(app_fail(&transport, 99));
    expectFault(app_fail(&transport, -1));
    transport.waiting_count = 0;
    expectFault(kestrin_transfer_finish(transport.waiting[0], nullptr));
}

TEST_F(Hook, OfTheTransportMayBringHeadersThatHaveNoName) {
    makeSession();
    const std::vector<kestrin_header> headers{{{}, text("no name")},
                                              {text(""), text("an empty one")},
                                              {text("X-Absent"), {}},
                                              {text("X-Known"), text("known")}};
    kestrin_transfer_reply reply{};
    reply.size = sizeof reply;
    reply.status = 200;
    ASSERT_EQ(begin(app_call(KESTRIN_CLEAR_HISTORY), other), KESTRIN_OK);
    EXPECT_EQ(kestrin_transfer_finish(transport.waiting[0], &reply), KESTRIN_OK);
    ASSERT_EQ(other.completed, 1);
    ASSERT_NE(other.result->response, nullptr);
    EXPECT_EQ(other.result->response->headers.count, 0U);
    EXPECT_EQ(other.result->response->headers.first, nullptr);
    transport.waiting_count = 0;

    reply.headers = {headers.data(), headers.size()};
    ASSERT_EQ(begin(KESTRIN_CLEAR_HISTORY), KESTRIN_OK);
    EXPECT_EQ(kestrin_transfer_finish(transport.waiting[0], &reply), KESTRIN_OK);
    transport.waiting_count = 0;
    ASSERT_EQ(ending.completed, 1);
    const auto& shown = ending.result->response->headers;
    ASSERT_EQ(shown.count, 2U);
    EXPECT_EQ(string(shown.first[0].name), "X-Absent");
    EXPECT_EQ(string(shown.first[0].value), "");
    EXPECT_EQ(string(shown.first[1].value), "known");
}

TEST_F(Hook, OfTheTransportMayNotCountHeadersThatAreNotThere) {
    makeSession();
    ASSERT_EQ(begin(KESTRIN_CLEAR_HISTORY), KESTRIN_OK);
    kestrin_transfer_reply reply{};
    reply.size = sizeof reply;
    reply.status = 200;
    reply.headers = {nullptr, 1};
    EXPECT_EQ(kestrin_transfer_finish(transport.waiting[0], &reply), KESTRIN_INVALID_ARGUMENT);
    EXPECT_EQ(lastProblem(), "kestrin_transfer_finish: reply.headers has a count, but no elements");
    transport.waiting_count = 0;
    ASSERT_EQ(ending.completed, 1);
    EXPECT_EQ(ending.result->error->code, KESTRIN_MALFORMED_REPLY);
}

TEST_F(Hook, OfTheTransportNeedNotHearOfWhatNobodyWaitsFor) {
    app_transport another{};
    auto hooks = app_transport_hooks(&another);
    hooks.cancel = nullptr;
    ASSERT_EQ(kestrin_set_transport(&hooks), KESTRIN_OK);
    makeSession();
    ASSERT_EQ(begin(KESTRIN_GET_HISTORY), KESTRIN_OK);
    kestrin_request_cancel(ending.request);
    ASSERT_EQ(ending.completed, 1);
    EXPECT_EQ(ending.result->outcome, KESTRIN_CANCELLED);
    EXPECT_EQ(app_answer(&another, 200, "{}"), KESTRIN_OK) << "it comes too late";
    EXPECT_EQ(ending.completed, 1);
    ASSERT_EQ(kestrin_set_transport(nullptr), KESTRIN_OK);
    EXPECT_EQ(another.cancelled, 0);
    EXPECT_EQ(another.released, 1);
}

TEST_F(Hook, OfTheTransportMayNotBringMoreThanIsAllowed) {
    makeSession();
    ASSERT_EQ(begin(KESTRIN_GET_HISTORY), KESTRIN_OK);
    const std::string body(16U * 1024 * 1024 + 1, ' ');
    EXPECT_EQ(app_answer(&transport, 200, body.c_str()), KESTRIN_OK);
    ASSERT_EQ(ending.completed, 1);
    EXPECT_EQ(ending.result->error->code, KESTRIN_TOO_LARGE);
}

TEST_F(Hook, OfTheTransportIsReleasedIfItIsRefused) {
    app_transport incomplete{};
    auto hooks = app_transport_hooks(&incomplete);
    hooks.send = nullptr;
    EXPECT_EQ(kestrin_set_transport(&hooks), KESTRIN_INVALID_ARGUMENT);
    EXPECT_EQ(incomplete.released, 1);
    EXPECT_EQ(transport.released, 0) << "the former one stays";
}

TEST_F(Hook, OfTheTransportGetsIDsThatNoOtherTransportGets) {
    makeSession();
    ASSERT_EQ(begin(app_call(KESTRIN_GET_HISTORY), ending), KESTRIN_OK);
    app_transport another{};
    const auto hooks = app_transport_hooks(&another);
    ASSERT_EQ(kestrin_set_transport(&hooks), KESTRIN_OK);
    ASSERT_EQ(begin(app_call(KESTRIN_GET_HISTORY), other), KESTRIN_OK);
    EXPECT_GT(another.requests[0]->id, transport.requests[0]->id);
    EXPECT_EQ(app_answer(&another, 200, "{}"), KESTRIN_OK);
    ASSERT_EQ(kestrin_set_transport(nullptr), KESTRIN_OK);
    EXPECT_EQ(another.released, 1);
}

// ---- Clock --------------------------------------------------------------------------------------

TEST_F(Hook, OfTheClockWaitsForRepeats) {
    makeSession(&options);
    ASSERT_EQ(begin(KESTRIN_GET_HISTORY), KESTRIN_OK);
    EXPECT_EQ(app_answer(&transport, 503, "{}"), KESTRIN_OK);
    EXPECT_EQ(ending.completed, 0);
    ASSERT_NE(clock.task, nullptr);
    EXPECT_LE(clock.delay_ns, 500'000'000);
    clock.now_ns += clock.delay_ns;
    auto* const task = clock.task;
    clock.task = nullptr;
    kestrin_task_run(task);
    EXPECT_EQ(transport.sent, 2);
    EXPECT_EQ(app_answer(&transport, 200, "{}"), KESTRIN_OK);
    EXPECT_EQ(ending.result->outcome, KESTRIN_VALUE);
    if (clock.task != nullptr) kestrin_task_drop(clock.task);
    clock.task = nullptr;
}

TEST_F(Hook, OfTheClockIsToldThatNobodyWaits) {
    makeSession(&options);
    ASSERT_EQ(begin(KESTRIN_GET_HISTORY), KESTRIN_OK);
    EXPECT_EQ(app_answer(&transport, 503, "{}"), KESTRIN_OK);
    ASSERT_NE(clock.task, nullptr);
    kestrin_request_cancel(ending.request);
    EXPECT_EQ(clock.cancelled, 1);
    EXPECT_EQ(clock.task, nullptr);
    EXPECT_EQ(ending.result->outcome, KESTRIN_CANCELLED);
}

TEST_F(Hook, OfTheClockMayRunWhatNobodyWaitsFor) {
    clockHooks.cancel = nullptr;
    makeSession(&options);
    ASSERT_EQ(begin(KESTRIN_GET_HISTORY), KESTRIN_OK);
    EXPECT_EQ(app_answer(&transport, 503, "{}"), KESTRIN_OK);
    ASSERT_NE(clock.task, nullptr);
    kestrin_request_cancel(ending.request);
    kestrin_task_run(clock.task);
    EXPECT_EQ(transport.sent, 1);
    EXPECT_EQ(ending.completed, 1);
}

TEST_F(Hook, OfTheClockGetsIDsThatNoOtherClockGets) {
    std::vector<uint64_t> ids;
    for (int round = 0; round < 2; ++round) {
        app_ending end{};
        makeSession(&options);
        ASSERT_EQ(begin(app_call(KESTRIN_GET_HISTORY), end), KESTRIN_OK);
        EXPECT_EQ(app_answer(&transport, 503, "{}"), KESTRIN_OK);
        ids.push_back(clock.id);
        kestrin_request_cancel(end.request);
        kestrin_request_release(end.request);
        app_forget(&end);
        kestrin_session_release(std::exchange(session, nullptr));
        kestrin_household_release(std::exchange(household, nullptr));
    }
    EXPECT_GT(ids[1], ids[0]);
}

TEST_F(Hook, OfTheClockThatTakesNoTaskLeavesTheErrorAsItIs) {
    clock.refuses = true;
    makeSession(&options);
    ASSERT_EQ(begin(KESTRIN_GET_HISTORY), KESTRIN_OK);
    EXPECT_EQ(app_answer(&transport, 503, "{}"), KESTRIN_OK);
    EXPECT_GT(clock.asked, 0);
    EXPECT_EQ(ending.completed, 1);
    EXPECT_EQ(ending.result->outcome, KESTRIN_ERROR);
}

TEST_F(Hook, OfTheClockIsReleasedWithItsHousehold) {
    makeSession(&options);
    kestrin_household_release(household);
    household = nullptr;
    kestrin_session_release(session);
    session = nullptr;
    EXPECT_EQ(clock.released, 1);
    EXPECT_EQ(log.released, 1);
}

TEST_F(Hook, IsReleasedIfAnotherOneIsRefused) {
    clockHooks.after = nullptr;
    EXPECT_EQ(kestrin_household_create(&options, &household), KESTRIN_INVALID_ARGUMENT);
    EXPECT_EQ(lastProblem(), "kestrin_household_create: options.clock lacks a function");
    EXPECT_EQ(clock.released, 1);
    EXPECT_EQ(log.released, 1);
    EXPECT_EQ(household, nullptr);
    clockHooks = app_clock_hooks(&clock);
    logHooks.event = nullptr;
    EXPECT_EQ(kestrin_household_create(&options, &household), KESTRIN_INVALID_ARGUMENT);
    EXPECT_EQ(lastProblem(), "kestrin_household_create: options.log lacks a function");
    EXPECT_EQ(clock.released, 2);
    EXPECT_EQ(log.released, 2);
    EXPECT_EQ(household, nullptr);
}

// ---- Log ----------------------------------------------------------------------------------------

TEST_F(Hook, OfTheLogIsToldOfRepeatsWithoutSecrets) {
    makeSession(&options);
    ASSERT_EQ(begin(KESTRIN_GET_HISTORY), KESTRIN_OK);
    EXPECT_EQ(app_answer(&transport, 503, "{}"), KESTRIN_OK);
    EXPECT_EQ(log.events, 1);
    EXPECT_THAT(log.last, StartsWith("personalization-history-get: attempt 2 of 4 in "));
    EXPECT_THAT(log.last, testing::Not(HasSubstr("token")));
    kestrin_request_cancel(ending.request);
}

TEST_F(Hook, OfTheLogMayBeLeftOut) {
    options.log = nullptr;
    makeSession(&options);
    ASSERT_EQ(begin(KESTRIN_GET_HISTORY), KESTRIN_OK);
    EXPECT_EQ(app_fail(&transport, KESTRIN_TLS), KESTRIN_OK);
    EXPECT_EQ(ending.result->outcome, KESTRIN_ERROR);
}

// ---- What a session may say ---------------------------------------------------------------------

TEST_F(Hook, OfTheClockIsNotAskedWithoutRepeats) {
    makeSession(&options);
    kestrin_session_release(session);
    kestrin_session_options who{};
    who.size = sizeof who;
    who.profile_id = text("kid");
    who.without_repeats = true;
    ASSERT_EQ(kestrin_household_session(household, &who, &session), KESTRIN_OK);
    ASSERT_EQ(begin(KESTRIN_GET_HISTORY), KESTRIN_OK);
    EXPECT_EQ(app_answer(&transport, 503, "{}"), KESTRIN_OK);
    EXPECT_EQ(ending.result->error->status, 503);
    EXPECT_EQ(ending.result->error->notice, KESTRIN_SHOW_SERVICE_DOWN);
    EXPECT_EQ(clock.asked, 0);
}

TEST_F(Hook, OfTheClockEndsACallAtItsDeadline) {
    makeSession(&options);
    kestrin_session_release(session);
    kestrin_session_options who{};
    who.size = sizeof who;
    who.profile_id = text("kid");
    who.deadline_ms = {true, 5'000};
    ASSERT_EQ(kestrin_household_session(household, &who, &session), KESTRIN_OK);
    ASSERT_EQ(begin(KESTRIN_GET_HISTORY), KESTRIN_OK);
    ASSERT_NE(clock.task, nullptr);
    EXPECT_EQ(clock.delay_ns, 5'000'000'000);
    clock.now_ns += clock.delay_ns;
    auto* const task = clock.task;
    clock.task = nullptr;
    kestrin_task_run(task);
    ASSERT_EQ(ending.completed, 1);
    EXPECT_EQ(ending.result->error->code, KESTRIN_TOTAL_TIMEOUT);
}

TEST_F(Hook, OfTheTransportWarmsUp) {
    makeSession();
    answerAlways(404);
    const auto completion = app_completion(&ending);
    ASSERT_EQ(kestrin_household_warm_up(household, &completion, nullptr), KESTRIN_OK);
    EXPECT_STREQ(transport.last_method, "HEAD");
    EXPECT_EQ(ending.result->outcome, KESTRIN_VALUE);
    EXPECT_EQ(ending.result->number, 1U);
}

}  // namespace
