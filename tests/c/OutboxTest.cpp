// The sentences of kestrin_profile.h on the outbox and the playback reporter.

#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "Fixture.hpp"
#include "support/Waiting.hpp"

namespace {

using testing::HasSubstr;
using TestSupport::CInterface;
using TestSupport::string;
using TestSupport::Tally;
using TestSupport::TemporaryDirectory;
using TestSupport::text;

/// Who is told of events; any thread.
struct Watcher {
    Tally events;
    Tally releases;
    std::vector<int> kinds;
    int64_t number = 0;

    kestrin_outbox_watcher hooks() {
        kestrin_outbox_watcher hooks{};
        hooks.size = sizeof hooks;
        hooks.context = this;
        hooks.event = [](void* context, const kestrin_outbox_event* event) {
            auto& watcher = *static_cast<Watcher*>(context);
            watcher.kinds.push_back(event->kind);
            watcher.number = event->entry->number;
            watcher.events.add();
        };
        hooks.release_context = [](void* context) {
            static_cast<Watcher*>(context)->releases.add();
        };
        return hooks;
    }
};

/// Waits for the end of a request on any thread, and has its result.
class Waited {
  public:
    Waited() = default;
    Waited(const Waited&) = delete;
    Waited& operator=(const Waited&) = delete;
    /// Waits for the release, as the context is this object.
    ~Waited() {
        if (isContext_) static_cast<void>(released_.reaches(1));
        kestrin_result_release(result_);
    }

    kestrin_completion completion() {
        kestrin_completion completion{};
        completion.size = sizeof completion;
        completion.context = this;
        isContext_ = true;
        completion.completed = [](void* context, kestrin_result* result) {
            static_cast<Waited*>(context)->result_ = result;
        };
        completion.release_context = [](void* context) {
            static_cast<Waited*>(context)->released_.add();
        };
        return completion;
    }

    const kestrin_result& result() const {
        EXPECT_TRUE(released_.reaches(1));
        return *result_;
    }

  private:
    Tally released_;
    kestrin_result* result_ = nullptr;
    bool isContext_ = false;
};

class OutboxInC : public CInterface {
  protected:
    kestrin_status keep(kestrin_operation operation, Waited& end) {
        const auto call = app_call(operation);
        const auto completion = end.completion();
        return kestrin_session_keep(session, outbox, &call, &completion, nullptr);
    }

    kestrin_status settled(Waited& end) {
        const auto completion = end.completion();
        return kestrin_outbox_settled(outbox, &completion, nullptr);
    }
};

class KeptOperation : public OutboxInC, public testing::WithParamInterface<kestrin_operation> {};

TEST_P(KeptOperation, IsSentByTheOutbox) {
    answerAlways(204, "");
    makeSession();
    makeOutbox();
    Waited kept;
    ASSERT_EQ(keep(GetParam(), kept), KESTRIN_OK) << lastProblem();
    const auto& entries = kept.result().kept;
    ASSERT_EQ(entries.count, 1U);
    const auto& entry = *kestrin_kept_at(&entries, 0);
    EXPECT_GT(entry.number, 0);
    EXPECT_EQ(entry.write->operation, GetParam());
    EXPECT_EQ(string(entry.write->profile_id), "kid");
    EXPECT_EQ(string(entry.write->brand_id), "kestrin");
    EXPECT_GT(entry.accepted_at_ms, 1'500'000'000'000);
    EXPECT_EQ(entry.refusal, nullptr);
    Waited end;
    ASSERT_EQ(settled(end), KESTRIN_OK);
    EXPECT_EQ(end.result().outbox_state->waiting, 0U);
    EXPECT_EQ(transport.sent, 1);
    EXPECT_STREQ(transport.last_token, "JWT the.kids.token");
}

INSTANTIATE_TEST_SUITE_P(Each, KeptOperation,
                         testing::Values(KESTRIN_ADD_HISTORY_VIDEO, KESTRIN_DELETE_VIDEO_HISTORY,
                                         KESTRIN_CLEAR_HISTORY, KESTRIN_ADD_FAVORITE_SHOW,
                                         KESTRIN_ADD_FAVORITE_SHOWS, KESTRIN_DELETE_FAVORITE_SHOW,
                                         KESTRIN_CLEAR_FAVORITES, KESTRIN_ADD_WATCH_LIST_VIDEO,
                                         KESTRIN_DELETE_WATCH_LIST_VIDEO, KESTRIN_CLEAR_WATCH_LIST,
                                         KESTRIN_ADD_SEARCH_HISTORY, KESTRIN_DELETE_SEARCH_HISTORY),
                         [](const auto& each) { return std::to_string(each.param); });

TEST_F(OutboxInC, KeepsNothingThatOnlyReads) {
    makeSession();
    makeOutbox();
    for (const auto operation : {KESTRIN_GET_HISTORY, KESTRIN_CREATE_PROFILE,
                                 KESTRIN_ANONYMOUS_BIND, KESTRIN_EDIT_PROFILE}) {
        Waited kept;
        EXPECT_EQ(keep(operation, kept), KESTRIN_INVALID_ARGUMENT);
        EXPECT_THAT(lastProblem(), HasSubstr("which cannot be done here"));
    }
}

TEST_F(OutboxInC, TellsWhatHappensToWrites) {
    answerAlways(404, "{}");
    makeSession();
    makeOutbox();
    Watcher watcher;
    const auto hooks = watcher.hooks();
    ASSERT_EQ(kestrin_outbox_watch(outbox, &hooks, &ending.request), KESTRIN_OK) << lastProblem();
    Waited kept;
    ASSERT_EQ(keep(KESTRIN_ADD_FAVORITE_SHOW, kept), KESTRIN_OK);
    ASSERT_TRUE(watcher.events.reaches(1));
    EXPECT_EQ(watcher.kinds.at(0), KESTRIN_OUTBOX_REFUSED);
    EXPECT_EQ(watcher.number, kestrin_kept_at(&kept.result().kept, 0)->number);

    kestrin_result* refused = nullptr;
    ASSERT_EQ(kestrin_outbox_refused(outbox, &refused), KESTRIN_OK);
    ASSERT_EQ(refused->kept.count, 1U);
    EXPECT_EQ(kestrin_kept_at(&refused->kept, 0)->refusal->status, 404);
    kestrin_result_release(refused);

    EXPECT_EQ(watcher.releases.count(), 0U);
    kestrin_request_cancel(ending.request);
    EXPECT_TRUE(watcher.releases.reaches(1));
    kestrin_request_cancel(ending.request);
    kestrin_outbox_release(outbox);
    outbox = nullptr;
    EXPECT_EQ(watcher.releases.count(), 1U);
}

TEST_F(OutboxInC, KeepsTheContextOfAWatcherThatEndsItselfUntilItReturns) {
    answerAlways(204, "");
    makeSession();
    makeOutbox();
    struct Ending {
        kestrin_request* request = nullptr;
        Tally events;
        Tally releases;
        bool wasReleasedInside = false;
    } watch;
    kestrin_outbox_watcher hooks{};
    hooks.size = sizeof hooks;
    hooks.context = &watch;
    hooks.event = [](void* context, const kestrin_outbox_event*) {
        auto& ending = *static_cast<Ending*>(context);
        kestrin_request_cancel(ending.request);
        ending.wasReleasedInside = ending.releases.count() > 0;
        ending.events.add();
    };
    hooks.release_context = [](void* context) { static_cast<Ending*>(context)->releases.add(); };
    ASSERT_EQ(kestrin_outbox_watch(outbox, &hooks, &watch.request), KESTRIN_OK);
    Waited kept;
    ASSERT_EQ(keep(KESTRIN_ADD_FAVORITE_SHOW, kept), KESTRIN_OK);
    ASSERT_TRUE(watch.releases.reaches(1));
    EXPECT_FALSE(watch.wasReleasedInside);
    kestrin_outbox_release(outbox);
    outbox = nullptr;
    EXPECT_EQ(watch.events.count(), 1U);
    EXPECT_EQ(watch.releases.count(), 1U);
    kestrin_request_release(watch.request);
}

TEST_F(OutboxInC, TellsWhoWatchesThatItHasEnded) {
    makeSession();
    makeOutbox();
    Watcher watcher;
    const auto hooks = watcher.hooks();
    ASSERT_EQ(kestrin_outbox_watch(outbox, &hooks, nullptr), KESTRIN_OK);
    kestrin_outbox_release(outbox);
    outbox = nullptr;
    EXPECT_TRUE(watcher.releases.reaches(1));
}

TEST_F(OutboxInC, TellsOfEventsWhereTheExecutorRunsThem) {
    answerAlways(204, "");
    makeSession();
    makeOutbox();
    struct Queue {
        Tally given;
        kestrin_task* task = nullptr;
        Tally releases;
    } queue;
    kestrin_executor_hooks hooks{};
    hooks.size = sizeof hooks;
    hooks.context = &queue;
    hooks.execute = [](void* context, kestrin_task* task) {
        static_cast<Queue*>(context)->task = task;
        static_cast<Queue*>(context)->given.add();
    };
    hooks.release_context = [](void* context) { static_cast<Queue*>(context)->releases.add(); };
    kestrin_executor* executor = nullptr;
    ASSERT_EQ(kestrin_executor_create(&hooks, &executor), KESTRIN_OK);
    Watcher watcher;
    auto watching = watcher.hooks();
    watching.executor = executor;
    ASSERT_EQ(kestrin_outbox_watch(outbox, &watching, &ending.request), KESTRIN_OK);
    kestrin_executor_release(executor);
    Waited kept;
    ASSERT_EQ(keep(KESTRIN_ADD_FAVORITE_SHOW, kept), KESTRIN_OK);
    ASSERT_TRUE(queue.given.reaches(1));
    EXPECT_EQ(watcher.events.count(), 0U);
    kestrin_task_run(queue.task);
    EXPECT_EQ(watcher.kinds, std::vector<int>{KESTRIN_OUTBOX_SENT});
    Waited more;
    ASSERT_EQ(keep(KESTRIN_DELETE_FAVORITE_SHOW, more), KESTRIN_OK);
    ASSERT_TRUE(queue.given.reaches(2));
    kestrin_task_drop(queue.task);
    EXPECT_EQ(watcher.events.count(), 1U);
    EXPECT_TRUE(watcher.releases.reaches(1)) << "an executor that drops a task ends the watch";
    EXPECT_TRUE(queue.releases.reaches(1));
}

TEST_F(OutboxInC, KeepsWritesOfAnyProfileAndDropsThem) {
    makeSession();
    makeOutbox();
    kestrin_write write{};
    write.size = sizeof write;
    write.profile_id = text("another");
    write.operation = KESTRIN_ADD_FAVORITE_SHOW;
    write.item_id = text("s9");
    Waited blocked;
    auto completion = blocked.completion();
    ASSERT_EQ(kestrin_outbox_add(outbox, &write, &completion, nullptr), KESTRIN_OK);
    blocked.result();
    // The first one is on its way, so that the next one waits.
    write.operation = KESTRIN_ADD_SEARCH_HISTORY;
    Waited waits;
    completion = waits.completion();
    ASSERT_EQ(kestrin_outbox_add(outbox, &write, &completion, nullptr), KESTRIN_OK);
    const auto number = kestrin_kept_at(&waits.result().kept, 0)->number;
    EXPECT_EQ(kestrin_kept_at(&waits.result().kept, 0)->write->brand_id.data, nullptr);

    kestrin_result* entries = nullptr;
    ASSERT_EQ(kestrin_outbox_entries(outbox, &entries), KESTRIN_OK);
    ASSERT_EQ(entries->kept.count, 2U);
    EXPECT_EQ(string(kestrin_kept_at(&entries->kept, 1)->write->item_id), "s9");
    EXPECT_EQ(kestrin_kept_at(&entries->kept, 1)->number, number);
    kestrin_result_release(entries);

    for (const uint64_t there : {1U, 0U}) {
        Waited dropped;
        completion = dropped.completion();
        ASSERT_EQ(kestrin_outbox_drop(outbox, number, &completion, nullptr), KESTRIN_OK);
        EXPECT_EQ(dropped.result().number, there);
    }
}

TEST_F(OutboxInC, RefusesWritesWithItsOwnErrors) {
    makeSession();
    makeOutbox();
    kestrin_write write{};
    write.size = sizeof write;
    write.profile_id = text("kid");
    write.operation = KESTRIN_GET_HISTORY;
    Waited end;
    const auto completion = end.completion();
    ASSERT_EQ(kestrin_outbox_add(outbox, &write, &completion, nullptr), KESTRIN_OK);
    EXPECT_EQ(end.result().outcome, KESTRIN_ERROR);
    EXPECT_EQ(string(end.result().error->domain), "KestrinHousehold.OutboxError");
    EXPECT_EQ(end.result().error->code, KESTRIN_OUTBOX_INVALID_WRITE);
    EXPECT_EQ(end.result().error->notice, KESTRIN_SHOW_MEND_INPUT);
    EXPECT_NE(end.result().error->advice.length, 0U);
}

TEST_F(OutboxInC, WaitsForABindAndForTheNetwork) {
    ASSERT_EQ(kestrin_drop_binds(), KESTRIN_OK);
    answerAlways(401, "{}");
    makeSession();
    kestrin_outbox_options options{};
    ASSERT_EQ(kestrin_outbox_options_init(&options, sizeof options), KESTRIN_OK);
    // Only `network_is_back` ends the delay.
    options.first_delay_ms = options.longest_delay_ms = int64_t{3600} * 1000;
    ASSERT_EQ(kestrin_outbox_create(household, &options, &outbox), KESTRIN_OK) << lastProblem();
    Watcher watcher;
    const auto hooks = watcher.hooks();
    ASSERT_EQ(kestrin_outbox_watch(outbox, &hooks, nullptr), KESTRIN_OK);
    Waited kept;
    ASSERT_EQ(keep(KESTRIN_ADD_FAVORITE_SHOW, kept), KESTRIN_OK);
    ASSERT_TRUE(watcher.events.reaches(1));
    EXPECT_EQ(watcher.kinds.at(0), KESTRIN_OUTBOX_WAITS_FOR_BIND);
    answerAlways(503, "{}");
    hold("kid", "a.new.token");
    ASSERT_EQ(kestrin_outbox_bind_is_new(outbox, text("kid")), KESTRIN_OK);
    ASSERT_TRUE(watcher.events.reaches(2));
    EXPECT_EQ(watcher.kinds.at(1), KESTRIN_OUTBOX_DELAYED);
    answerAlways(204, "");
    ASSERT_EQ(kestrin_outbox_network_is_back(outbox), KESTRIN_OK);
    ASSERT_TRUE(watcher.events.reaches(3));
    EXPECT_EQ(watcher.kinds.at(2), KESTRIN_OUTBOX_SENT);
    kestrin_outbox_release(outbox);
    outbox = nullptr;
    EXPECT_TRUE(watcher.releases.reaches(1));
}

TEST_F(OutboxInC, KeepsWritesInAFile) {
    const TemporaryDirectory directory;
    const std::string file = directory / "outbox.db";
    kestrin_outbox_options options{};
    ASSERT_EQ(kestrin_outbox_options_init(&options, sizeof options), KESTRIN_OK);
    options.file = text(file);
    makeSession();
    const auto made = kestrin_outbox_create(household, &options, &outbox);
    if (!KESTRIN_TEST_HAS_SQLITE) {
        EXPECT_EQ(made, KESTRIN_NOT_AVAILABLE);
        return;
    }
    ASSERT_EQ(made, KESTRIN_OK) << lastProblem();
    Waited kept;
    ASSERT_EQ(keep(KESTRIN_ADD_FAVORITE_SHOW, kept), KESTRIN_OK);
    kept.result();
    kestrin_outbox_release(outbox);
    outbox = nullptr;
    ASSERT_EQ(kestrin_outbox_create(household, &options, &outbox), KESTRIN_OK);
    Waited opened;
    const auto completion = opened.completion();
    ASSERT_EQ(kestrin_outbox_opening(outbox, &completion, nullptr), KESTRIN_OK);
    ASSERT_NE(opened.result().outbox_state, nullptr);
    EXPECT_EQ(opened.result().outbox_state->waiting, 1U);
    EXPECT_EQ(opened.result().outbox_state->warnings.count, 0U);
}

// ---- The playback reporter ----------------------------------------------------------------------

class ReporterInC : public OutboxInC {
  protected:
    struct Failures {
        int told = 0;
        int released = 0;
        int status = 0;
    };

    kestrin_reporter* made(kestrin_outbox* where) {
        kestrin_reporter_options options{};
        options.size = sizeof options;
        options.profile_id = text("kid");
        options.brand_id = text("kestrin");
        options.video_id = text("v1");
        options.context = &failures;
        options.failed = [](void* context, const kestrin_error* error) {
            ++static_cast<Failures*>(context)->told;
            static_cast<Failures*>(context)->status = error->status;
        };
        options.release_context = [](void* context) {
            ++static_cast<Failures*>(context)->released;
        };
        kestrin_reporter* reporter = nullptr;
        EXPECT_EQ(kestrin_reporter_create(household, where, &options, &reporter), KESTRIN_OK)
            << lastProblem();
        return reporter;
    }

    Failures failures;
};

TEST_F(ReporterInC, WritesFewPositions) {
    answerAlways(204, "");
    makeSession();
    auto* const reporter = made(nullptr);
    for (int second = 0; second < 5; ++second)
        EXPECT_EQ(kestrin_reporter_position(reporter, 1000 * second + 999), KESTRIN_OK);
    EXPECT_EQ(transport.sent, 0) << "the interval goes on";
    EXPECT_EQ(kestrin_reporter_position(reporter, -1), KESTRIN_OK);
    EXPECT_EQ(kestrin_reporter_paused(reporter), KESTRIN_OK);
    EXPECT_EQ(transport.sent, 1);
    EXPECT_THAT(transport.last_body, HasSubstr(R"("progress":"4")"));
    EXPECT_STREQ(transport.last_token, "JWT the.kids.token");
    EXPECT_EQ(kestrin_reporter_moved(reporter, 70'000), KESTRIN_OK);
    EXPECT_EQ(kestrin_reporter_in_background(reporter), KESTRIN_OK);
    EXPECT_THAT(transport.last_body, HasSubstr(R"("progress":"70")"));
    EXPECT_EQ(kestrin_reporter_finished(reporter), KESTRIN_OK);
    EXPECT_THAT(transport.last_body, HasSubstr(R"("isCompleted":"true")"));
    EXPECT_EQ(kestrin_reporter_moved(reporter, INT64_MAX), KESTRIN_INVALID_ARGUMENT);
    EXPECT_EQ(lastProblem(), "kestrin_reporter_moved: position_ms is out of range");
    kestrin_reporter_release(reporter);
    EXPECT_EQ(failures.released, 1);
    EXPECT_EQ(failures.told, 0);
}

TEST_F(ReporterInC, WritesWhatIsLeftWhenItIsReleased) {
    answerAlways(204, "");
    makeSession();
    auto* const reporter = made(nullptr);
    EXPECT_EQ(kestrin_reporter_position(reporter, 5'000), KESTRIN_OK);
    kestrin_reporter_release(reporter);
    EXPECT_EQ(transport.sent, 1);
    EXPECT_THAT(transport.last_body, HasSubstr(R"("progress":"5")"));
}

TEST_F(ReporterInC, TellsWhyAWriteWasNotTaken) {
    answerAlways(404, "{}");
    makeSession();
    auto* const reporter = made(nullptr);
    EXPECT_EQ(kestrin_reporter_position(reporter, 1'000), KESTRIN_OK);
    EXPECT_EQ(kestrin_reporter_paused(reporter), KESTRIN_OK);
    EXPECT_EQ(failures.told, 1);
    EXPECT_EQ(failures.status, 404);
    kestrin_reporter_release(reporter);
}

TEST_F(ReporterInC, GoesByItsIntervalAndNeedNotTellWhatFailed) {
    answerAlways(404, "{}");
    makeSession();
    app_clock clock{};
    const auto clockHooks = app_clock_hooks(&clock);
    kestrin_household_options who{};
    who.size = sizeof who;
    who.clock = &clockHooks;
    kestrin_household* timed = nullptr;
    ASSERT_EQ(kestrin_household_create(&who, &timed), KESTRIN_OK);
    kestrin_reporter_options options{};
    options.size = sizeof options;
    options.profile_id = text("kid");
    options.video_id = text("v1");
    options.interval_ms = 2'000;
    kestrin_reporter* reporter = nullptr;
    ASSERT_EQ(kestrin_reporter_create(timed, nullptr, &options, &reporter), KESTRIN_OK)
        << lastProblem();
    EXPECT_EQ(kestrin_reporter_position(reporter, 1'000), KESTRIN_OK);
    EXPECT_EQ(transport.sent, 0);
    clock.now_ns += 2'000'000'000;
    EXPECT_EQ(kestrin_reporter_position(reporter, 3'000), KESTRIN_OK);
    EXPECT_EQ(transport.sent, 1);
    EXPECT_THAT(transport.last_body, HasSubstr(R"("progress":"3")"));
    kestrin_reporter_release(reporter);
    kestrin_household_release(timed);
    options.interval_ms = -1;
    EXPECT_EQ(kestrin_reporter_create(household, nullptr, &options, &reporter),
              KESTRIN_INVALID_ARGUMENT);
    EXPECT_EQ(lastProblem(), "kestrin_reporter_create: options.interval_ms is negative");
}

TEST_F(ReporterInC, KeepsItsWritesInAnOutboxThatItKeepsAlive) {
    answerAlways(204, "");
    makeSession();
    makeOutbox();
    Watcher watcher;
    const auto hooks = watcher.hooks();
    ASSERT_EQ(kestrin_outbox_watch(outbox, &hooks, nullptr), KESTRIN_OK);
    auto* const reporter = made(outbox);
    kestrin_outbox_release(outbox);
    outbox = nullptr;
    EXPECT_EQ(kestrin_reporter_position(reporter, 1'000), KESTRIN_OK);
    EXPECT_EQ(kestrin_reporter_paused(reporter), KESTRIN_OK);
    ASSERT_TRUE(watcher.events.reaches(1));
    EXPECT_EQ(watcher.kinds.at(0), KESTRIN_OUTBOX_SENT);
    kestrin_reporter_release(reporter);
    EXPECT_TRUE(watcher.releases.reaches(1));
}

TEST_F(ReporterInC, IsRefusedWithoutAVideo) {
    makeSession();
    kestrin_reporter_options options{};
    options.size = sizeof options;
    options.profile_id = text("kid");
    options.context = &failures;
    options.release_context = [](void* context) { ++static_cast<Failures*>(context)->released; };
    kestrin_reporter* reporter = nullptr;
    EXPECT_EQ(kestrin_reporter_create(household, nullptr, &options, &reporter),
              KESTRIN_INVALID_ARGUMENT);
    EXPECT_EQ(lastProblem(), "kestrin_reporter_create: options.video_id is absent");
    EXPECT_EQ(failures.released, 1);
    EXPECT_EQ(reporter, nullptr);
}

}  // namespace
