#include <KestrinHousehold/session/internal/Forbidden.hpp>
#include <KestrinHousehold/session/internal/ProfileCall.hpp>

namespace KestrinHousehold::internal {

ProfileCall::ProfileCall(std::shared_ptr<const Actor> actor,
                         KestrinProfile::ProfileOperation operation, const CallOptions& options)
    : Attempts(*actor->household, operation, options.repeats, options.deadline),
      actor_(std::move(actor)) {}

// Who sends may let go of a call without an event: at the exit of the process, for one.
ProfileCall::~ProfileCall() {
    actor_->bind->leave(*this);
}

std::shared_ptr<ProfileCall> ProfileCall::shared() {
    return std::static_pointer_cast<ProfileCall>(shared_from_this());
}

void ProfileCall::begin() {
    start();
    auto answer = actor_->bind->begin(shared());
    if (answer.error) return abort(answer.error);
    if (!answer.bind) return leaveIfEnded();
    bind_ = std::move(answer.bind);
    mayRenew_ = true;
    attempt();
}

void ProfileCall::refusedOrFailed(const std::exception_ptr& error) {
    if (!isForbidden(error)) return failed(error);
    actor_->household->restoreBinds();
    if (!std::exchange(mayRenew_, false)) return abort(error);
    refusal_ = error;
    auto answer = actor_->bind->renew(shared(), bind_, error);
    if (answer.error) return abort(answer.error);
    if (answer.bind) return sendOnceMore(std::move(answer.bind));
    leaveIfEnded();
}

// Another thread may have ended the call before it had its place among those that wait.
void ProfileCall::leaveIfEnded() noexcept {
    if (hasEnded()) ended();
}

void ProfileCall::bindArrived(BindPointer bind) {
    if (refusal_) return sendOnceMore(std::move(bind));
    bind_ = std::move(bind);
    attempt();
}

void ProfileCall::bindFailed(const std::exception_ptr& error) {
    abort(refusal_ ? refusal_ : error);
}

void ProfileCall::sendOnceMore(BindPointer bind) {
    bind_ = std::move(bind);
    actor_->household->log([&] {
        return HouseholdEvent{HouseholdEvent::Kind::sentOnceMore, operation(), 0, 0, {}, "403"};
    });
    attempt();
}

void ProfileCall::ended() noexcept {
    actor_->bind->leave(*this);
}

}  // namespace KestrinHousehold::internal
