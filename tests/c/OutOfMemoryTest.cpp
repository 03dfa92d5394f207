// Lets the allocations of what an application in C does fail, one after the other and all from one
// on. A program of its own, because it replaces the allocation functions.

#include <string>

#include <gmock/gmock.h>

#include "Fixture.hpp"
#include "support/Allocations.hpp"

namespace {

using TestSupport::CInterface;
using TestSupport::Failing;
using TestSupport::FailingAllocations;
using TestSupport::text;

constexpr const char* reply =
    R"({"profileId":"kid","token":"a.b.c","id":"a list whose name needs memory","maxSize":500,)"
    R"("data":[{"profileId":"other","username":"Ann, who has a name that needs memory"}],)"
    R"("elements":[{"id":"video","type":"VIDEO","progress":1}]})";

class WithoutMemory : public CInterface, public testing::WithParamInterface<kestrin_operation> {
  protected:
    /// A household's only call, from its beginning to its end.
    void callOnce() {
        app_executor queue{};
        const auto hooks = app_executor_hooks(&queue);
        kestrin_executor* executor = nullptr;
        requireDoneOrNot(kestrin_executor_create(&hooks, &executor));
        kestrin_household* made = nullptr;
        requireDoneOrNot(kestrin_household_create(nullptr, &made));
        if (executor != nullptr && made != nullptr) callIn(made, executor, queue);
        kestrin_household_release(made);
        kestrin_executor_release(executor);
        require(executor == nullptr || queue.released == 1, "an executor's context is released");
    }

    bool holdsBind_ = true;

    /// @return whether an allocation failed
    bool failAt(Failing which, long at) {
        static_cast<void>(callFailingAt(which, at));  // RxCpp keeps what its first error needs.
        const long before = TestSupport::blocksInUse();
        const bool hasFailed = callFailingAt(which, at);
        EXPECT_EQ(problem_, nullptr) << problem_;
        EXPECT_EQ(TestSupport::blocksInUse(), before) << "something is left";
        return hasFailed;
    }

    void failEach(Failing which) {
        answerAlways(200, reply);
        for (int warmUp = 0; warmUp < 2; ++warmUp)
            callOnce();  // What is made once stays.
        if (!holdsBind_) dropBind();
        endings_ = 0;
        bool hasFailed = true;
        for (long at = 1; hasFailed && !HasFailure(); ++at) {
            SCOPED_TRACE("allocation " + std::to_string(at));
            hasFailed = failAt(which, at);
        }
        EXPECT_GT(endings_, 2) << "some allocations may fail and the request ends all the same";
    }

  private:
    bool callFailingAt(Failing which, long at) {
        const FailingAllocations failing(which, at);
        callOnce();
        failing.end();
        if (!holdsBind_) dropBind();
        return failing.hasFailed();
    }

    /// Notes what is wrong; GoogleTest would need memory for it.
    void require(bool holds, const char* what) {
        if (!holds && problem_ == nullptr) problem_ = what;
    }

    void requireDoneOrNot(kestrin_status status) {
        require(status == KESTRIN_OK || status == KESTRIN_OUT_OF_MEMORY,
                "a function fails for another reason than a lack of memory");
    }

    void callIn(kestrin_household* made, kestrin_executor* executor, app_executor& queue) {
        kestrin_session_options who{};
        who.size = sizeof who;
        who.profile_id = text("kid");
        kestrin_session* acting = nullptr;
        requireDoneOrNot(kestrin_household_session(made, &who, &acting));
        if (acting == nullptr) return;
        const auto call = app_call(GetParam());
        app_ending end{};
        auto completion = app_completion(&end);
        completion.executor = executor;
        const auto status = kestrin_session_start(acting, &call, &completion, &end.request);
        requireDoneOrNot(status);
        require(queue.count == (status == KESTRIN_OK ? 1 : 0), "the executor gets one task");
        if (queue.count > 0) kestrin_task_run(queue.tasks[0]);
        require(end.completed == (status == KESTRIN_OK ? 1 : 0), "a request that began ends once");
        require(end.released == 1, "the context is released once");
        require(end.completed_after_release == 0, "the context is released last");
        require((end.request != nullptr) == (status == KESTRIN_OK), "a handle is a request's");
        require(end.result == nullptr ||
                    (end.result->error == nullptr) == (end.result->outcome == KESTRIN_VALUE),
                "a result that is no value is an error");
        endings_ += end.completed;
        kestrin_request_release(end.request);
        kestrin_session_release(acting);
        app_forget(&end);
    }

    /// As the manager is before each round.
    static void dropBind() {
        EXPECT_EQ(kestrin_drop_binds(), KESTRIN_OK);
        hold("parent", "the.parents.token");
    }

    int endings_ = 0;
    const char* problem_ = nullptr;
};

TEST_P(WithoutMemory, EndsOnceWhicheverAllocationFails) {
    failEach(Failing::one);
}

TEST_P(WithoutMemory, EndsOnceIfAllFailFromOneOn) {
    failEach(Failing::allFrom);
}

TEST_P(WithoutMemory, EndsOnceAlsoIfItNeedsABind) {
    holdsBind_ = false;
    failEach(Failing::one);
    failEach(Failing::allFrom);
}

INSTANTIATE_TEST_SUITE_P(Each, WithoutMemory, testing::Range(1, 23),
                         [](const auto& each) { return std::to_string(each.param); });

}  // namespace
