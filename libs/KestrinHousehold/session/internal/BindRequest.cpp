#include <exception>
#include <utility>

#include <KestrinHousehold/session/internal/BindRequest.hpp>
#include <KestrinHousehold/session/internal/Forbidden.hpp>
#include <KestrinProfile/model/ProfileError.hpp>
#include <KestrinProfile/service/Profile.hpp>

namespace KestrinHousehold::internal {

using KestrinConfigManager::AnonymousBind;
using KestrinProfile::ProfileError;
using KestrinProfile::ProfileOperation;

BindRequest::BindRequest(std::shared_ptr<ProfileBind> bind)
    : Attempts(bind->household(), ProfileOperation::anonymousBind, true, std::nullopt),
      bind_(std::move(bind)) {}

void BindRequest::begin() try {
    if (hasEnded()) return;  // Nobody waits any more, and there may be a newer bind.
    // What is still held there is refused or expired; the parent's would be taken for the reply.
    bind_->household().drop(bind_->profileID());
    start();
    attempt();
} catch (...) {
    abort(std::current_exception());  // else those that wait for it would wait for ever
}

void BindRequest::send(const rxcpp::composite_subscription& attempt) {
    const auto self = std::static_pointer_cast<BindRequest>(shared_from_this());
    KestrinProfile::Profile()
        .requestAnonymousBind(bind_->profileID())
        .subscribe(
            attempt, [self](AnonymousBind bind) { self->arrived(std::move(bind)); },
            [self](const std::exception_ptr& error) {
                if (isForbidden(error)) self->bind_->household().restoreBinds();
                self->failed(error);
            });
}

void BindRequest::arrived(AnonymousBind bind) try {
    if (bind.profileID == bind_->profileID()) {
        if (succeeded()) bind_->obtained(*this, std::move(bind));
        return;
    }
    // Another profile's: nobody knows whose token that is, so nobody uses it.
    bind_->household().drop(bind.profileID);
    bind_->household().restoreBinds();
    abort(std::make_exception_ptr(ProfileError(ProfileError::anonymousBindSerializationError)));
} catch (...) {
    const auto error = std::current_exception();  // A lack of memory.
    abort(error);
    bind_->failed(*this, error);  // if it had ended already
}

void BindRequest::fail(const std::exception_ptr& error) {
    bind_->failed(*this, error);
}

}  // namespace KestrinHousehold::internal
