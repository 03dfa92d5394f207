// A library with checks ends the process over a handle that is not in use, and names the function.

#include <string>

#include <gmock/gmock.h>

#include "Fixture.hpp"

namespace {

using TestSupport::CInterface;

class Checked : public CInterface {
  protected:
    Checked() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(Checked, KnowsWhatWasReleased) {
    EXPECT_DEATH(
        {
            makeSession();
            kestrin_session_release(session);
            begin(KESTRIN_GET_HISTORY);
        },
        "kestrin_session_start: the session was released already");
    EXPECT_DEATH(
        {
            makeSession();
            kestrin_household_release(household);
            kestrin_household_release(household);
        },
        "kestrin_household_release: the household was released already");
    EXPECT_DEATH(
        {
            makeSession();
            begin(KESTRIN_GET_HISTORY);
            kestrin_request_release(ending.request);
            kestrin_request_cancel(ending.request);
        },
        "kestrin_request_cancel: the request was released already");
    EXPECT_DEATH(
        {
            kestrin_result* held = nullptr;
            kestrin_held_binds(&held);
            kestrin_result_release(held);
            kestrin_result_release(held);
        },
        "kestrin_result_release: the result was released already");
    EXPECT_DEATH(
        {
            makeSession();
            begin(KESTRIN_GET_HISTORY);
            app_answer(&transport, 200, "{}");
            kestrin_transfer_fail(transport.waiting[0], KESTRIN_TLS, {});
        },
        "kestrin_transfer_fail: the transfer was released already");
}

TEST_F(Checked, KnowsWhatIsBeingReleased) {
    EXPECT_DEATH(
        {
            makeSession();
            ending.more = household;
            ending.in_completion = [](app_ending* end) {
                kestrin_household_release(static_cast<kestrin_household*>(end->more));
            };
            begin(KESTRIN_GET_HISTORY);
            kestrin_household_release(household);
        },
        "kestrin_household_release: the household was released already");
}

TEST_F(Checked, KnowsWhatIsNull) {
    EXPECT_DEATH(kestrin_household_session(nullptr, nullptr, &session),
                 "kestrin_household_session: the household is NULL");
    EXPECT_DEATH(kestrin_reporter_finished(nullptr),
                 "kestrin_reporter_finished: the reporter is NULL");
    EXPECT_DEATH(kestrin_task_run(nullptr), "kestrin_task_run: the task is NULL");
    EXPECT_DEATH(kestrin_request_cancel(nullptr), "kestrin_request_cancel: the request is NULL");
}

TEST_F(Checked, KnowsWhatNeverWasAHandle) {
    long nothing = 0;
    EXPECT_DEATH(kestrin_outbox_release(reinterpret_cast<kestrin_outbox*>(&nothing)),
                 "kestrin_outbox_release: the outbox is no handle");
}

TEST_F(Checked, TellsHandlesOfOneKindFromThoseOfAnother) {
    EXPECT_DEATH(
        {
            makeSession();
            kestrin_session_release(reinterpret_cast<kestrin_session*>(household));
        },
        "kestrin_session_release: the session is no handle of this kind");
}

TEST_F(Checked, HasNothingAgainstHandlesThatAreInUse) {
    makeSession();
    for (int round = 0; round < 30'000; ++round) {
        kestrin_session* another = nullptr;
        ASSERT_EQ(kestrin_household_session(household, nullptr, &another), KESTRIN_OK);
        kestrin_session_release(another);
    }
    answerAlways(200);
    ASSERT_EQ(begin(KESTRIN_GET_HISTORY), KESTRIN_OK);
    EXPECT_EQ(ending.completed, 1);
}

}  // namespace
