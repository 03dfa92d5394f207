#include <cstdlib>

#include <KestrinC/internal/requests/Request.hpp>

namespace KestrinC::internal {

namespace {

/// Whether the process is at its exit, when nobody is there any more to be called.
std::atomic<bool> isExiting{false};

void noteExit() {
    isExiting = true;
}

}  // namespace

Completion Completion::taken(const kestrin_completion* given, const char* function) {
    Completion completion{
        Hooks<kestrin_completion>::taken(given, "completion", &kestrin_completion::completed), {}};
    if (auto* const executor = completion.hooks.functions.executor)
        completion.executor = inUse(executor, function).hooks;
    return completion;
}

std::shared_ptr<Request> Request::made(Completion completion) {
    auto request = std::make_shared<Request>(Key(), std::move(completion));
    if (request->completion_.executor) request->task_ = internal::made<kestrin_task>();
    return request;
}

Request::Request(Key /*key*/, Completion completion) : completion_(std::move(completion)) {}

Request::~Request() {
    retired(task_, "the end of a request");
}

bool Request::takeBack() noexcept {
    if (!claim()) return false;
    subscription_.unsubscribe();
    completion_.hooks.owned.end();
    return true;
}

void Request::settle(kestrin_result* result) noexcept {
    if (claim())
        deliver(result);
    else
        release(result, "the end of a request");
}

void Request::cancel() noexcept {
    if (!claim()) return;
    subscription_.unsubscribe();
    deliver(cancelledResult());
}

void Request::deliver(kestrin_result* result) noexcept {
    result_ = result;
    if (!completion_.executor) return run();
    const auto executor = completion_.executor;
    task_->body = shared_from_this();
    executor->functions.execute(executor->context(), std::exchange(task_, nullptr));
}

void Request::run() noexcept {
    auto& hooks = completion_.hooks;
    hooks.functions.completed(hooks.context(), std::exchange(result_, nullptr));
    hooks.owned.end();
}

void Request::drop() noexcept {
    release(std::exchange(result_, nullptr), "kestrin_task_drop");
    completion_.hooks.owned.end();
}

Ending::~Ending() {
    // What the exit drops nobody waits for; an application may not even be able to hear of it.
    if (!isExiting) request_->settle(cancelledResult());
}

void noteBegun() noexcept {
    // After the transport has registered its own end at the exit, and so before it.
    static const bool isRegistered = std::atexit(&noteExit) == 0;
    static_cast<void>(isRegistered);
}

}  // namespace KestrinC::internal

using KestrinC::internal::guarded;
using KestrinC::internal::inUse;
using KestrinC::internal::retired;

void kestrin_request_cancel(kestrin_request* request) {
    guarded("kestrin_request_cancel", [&] {
        const auto cancellable = inUse(request, "kestrin_request_cancel").cancellable;
        cancellable->cancel();
    });
}

void kestrin_request_release(kestrin_request* request) {
    retired(request, "kestrin_request_release");
}

void kestrin_task_run(kestrin_task* task) {
    guarded("kestrin_task_run", [&] {
        const auto body = std::move(inUse(task, "kestrin_task_run").body);
        retired(task, "kestrin_task_run");
        body->run();
    });
}

void kestrin_task_drop(kestrin_task* task) {
    guarded("kestrin_task_drop", [&] {
        const auto body = std::move(inUse(task, "kestrin_task_drop").body);
        retired(task, "kestrin_task_drop");
        body->drop();
    });
}

kestrin_status kestrin_executor_create(const kestrin_executor_hooks* hooks,
                                       kestrin_executor** executor) {
    using Hooks = kestrin_executor::Hooks;
    return guarded("kestrin_executor_create", [&] {
        auto taken = Hooks::taken(hooks, "hooks", &kestrin_executor_hooks::execute);
        KestrinC::internal::requirePlace(executor, "executor");
        *executor = KestrinC::internal::made<kestrin_executor>(
            kestrin_executor{std::make_shared<const Hooks>(std::move(taken))});
    });
}

void kestrin_executor_release(kestrin_executor* executor) {
    retired(executor, "kestrin_executor_release");
}
