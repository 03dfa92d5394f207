#include <utility>
#include <variant>

#include <KestrinConfigManager/WebService.hpp>
#include <KestrinHousehold/session/internal/Attempts.hpp>
#include <KestrinHousehold/session/internal/ConfiguredService.hpp>

namespace KestrinHousehold::internal {

using HalvardSling::SlingError;
using HalvardSling::SlingErrorKind;
using KestrinProfile::ProfileOperation;
using std::chrono::nanoseconds;

namespace {

/// A time in the future, as far as a clock reaches.
Scheduler::SteadyTime later(Scheduler::SteadyTime time, nanoseconds delay) {
    const auto longest = Scheduler::SteadyTime::max() - time;
    return delay < longest ? time + delay : Scheduler::SteadyTime::max();
}

std::exception_ptr timeoutError(ProfileOperation operation, int attempts) {
    const auto service = configuredService(operation);
    const SlingError error(
        SlingErrorKind::totalTimeout,
        "the deadline of the call has passed, in attempt " + std::to_string(attempts));
    return std::make_exception_ptr(
        error.with({.operation = std::string(rawValue(operation)),
                    .method = service ? service->method : std::string(),
                    .pathTemplate = service ? std::string(service->url.path()) : std::string(),
                    .requestID = {}}));
}

}  // namespace

Attempts::Attempts(HouseholdState& household, ProfileOperation operation, bool repeats,
                   std::optional<nanoseconds> deadline)
    : household_(household), operation_(operation), repeats_(repeats), limit_(deadline) {}

void Attempts::cancel() noexcept {
    static_cast<void>(claimEnd(true));
}

void Attempts::abort(const std::exception_ptr& error) {
    if (claimEnd(true)) fail(error);
}

bool Attempts::succeeded(bool wasSent) noexcept {
    if (!claimEnd(false)) return false;
    if (wasSent) household_.retries().noteSuccess();
    return true;
}

bool Attempts::claimEnd(bool unsubscribes) noexcept {
    Rest rest;
    {
        const std::scoped_lock lock(mutex_);
        if (std::exchange(hasEnded_, true)) return false;
        rest = std::exchange(rest_, {});
    }
    for (const auto task : {rest.repeat, rest.deadline})
        if (task != 0) household_.scheduler()->cancel(task);
    if (unsubscribes && rest.attempt) rest.attempt->unsubscribe();
    ended();
    return true;
}

void Attempts::start() {
    started_ = household_.scheduler()->steadyTime();
    if (limit_) limitTime();
}

void Attempts::attempt() try {
    const rxcpp::composite_subscription begun;
    rxcpp::composite_subscription former = begun;  // let go of without the lock
    {
        const std::scoped_lock lock(mutex_);
        if (hasEnded_) return;
        if (rest_.attempt)
            std::swap(*rest_.attempt, former);
        else
            rest_.attempt.emplace(begun);
    }
    send(begun);
} catch (...) {
    abort(std::current_exception());  // A lack of memory: not for the thread that tries again.
}

bool Attempts::hasEnded() const {
    const std::scoped_lock lock(mutex_);
    return hasEnded_;
}

void Attempts::failed(const std::exception_ptr& error) {
    if (!repeats_) return abort(error);
    auto& retries = household_.retries();
    const auto& scheduler = *household_.scheduler();
    const auto service = configuredService(operation_);
    const auto decision =
        retries.decide({.error = error,
                        .method = service ? std::string_view(service->method) : std::string_view(),
                        .attempt = attempt_,
                        .now = scheduler.steadyTime(),
                        .deadline = later(started_, limit_.value_or(retries.policy().deadline)),
                        .wallTime = scheduler.wallTime()});
    if (const auto* const repeat = std::get_if<Retries::Repeat>(&decision))
        return repeatLater(*repeat, error);
    const auto& reason = std::get<Retries::Stands>(decision).reason;
    if (!reason.empty())
        household_.log([&] {
            return HouseholdEvent{HouseholdEvent::Kind::givenUp, operation_, attempt_,
                                  retries.policy().maxAttempts,  {},         reason};
        });
    abort(error);
}

void Attempts::repeatLater(const Retries::Repeat& repeat, const std::exception_ptr& error) try {
    ++attempt_;
    household_.log([&] {
        return HouseholdEvent{HouseholdEvent::Kind::repeat,
                              operation_,
                              attempt_,
                              household_.retries().policy().maxAttempts,
                              repeat.delay,
                              repeat.reason};
    });
    if (attempt_ == 2 && !limit_) limitTime();
    keep(&Rest::repeat, schedule(repeat.delay, &Attempts::attempt));
} catch (...) {
    abort(error);  // Nobody can wait, so it is not repeated.
}

Scheduler::TaskID Attempts::schedule(nanoseconds delay, void (Attempts::*task)()) {
    return household_.scheduler()->after(
        delay, [self = shared_from_this(), task] { (self.get()->*task)(); });
}

void Attempts::keep(Scheduler::TaskID Rest::* place, Scheduler::TaskID task) {
    {
        const std::scoped_lock lock(mutex_);
        if (!hasEnded_) {
            rest_.*place = task;
            return;
        }
    }
    household_.scheduler()->cancel(task);
}

void Attempts::limitTime() {
    const auto& scheduler = *household_.scheduler();
    const auto limit = limit_.value_or(household_.retries().policy().deadline);
    const auto left = later(started_, limit) - scheduler.steadyTime();
    keep(&Rest::deadline, schedule(left, &Attempts::timeIsUp));
}

void Attempts::timeIsUp() try { abort(timeoutError(operation_, attempt_)); } catch (...) {
    abort(std::current_exception());
}

}  // namespace KestrinHousehold::internal
