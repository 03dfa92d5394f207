#include <algorithm>
#include <utility>
#include <vector>

#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinHousehold/session/internal/BindRequest.hpp>
#include <KestrinHousehold/session/internal/ProfileBind.hpp>
#include <KestrinHousehold/session/internal/ProfileCall.hpp>

namespace KestrinHousehold::internal {

using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::ConfigurationManager;
using KestrinProfile::ProfileOperation;

ProfileBind::ProfileBind(std::shared_ptr<HouseholdState> household, std::string profileID)
    : household_(std::move(household)), profileID_(std::move(profileID)) {}

ProfileBind::Answer ProfileBind::begin(const std::shared_ptr<ProfileCall>& call) {
    std::unique_lock lock(mutex_);
    if (isClosed_) return {nullptr, closedError()};
    call->next_ = std::exchange(calls_, call.get());
    if (call->next_ != nullptr) call->next_->previous_ = call.get();
    call->isLinked_ = true;
    return obtain(std::move(lock), call, HouseholdEvent::Kind::bindRequested);
}

ProfileBind::Answer ProfileBind::renew(const std::shared_ptr<ProfileCall>& call,
                                       const BindPointer& refused,
                                       const std::exception_ptr& refusal) {
    std::unique_lock lock(mutex_);
    if (isClosed_ || (isLost_ && refused_ == refused)) return {nullptr, refusal};
    if (held_ == refused) {
        held_.reset();
        refused_ = refused;
        isLost_ = false;
    }
    return obtain(std::move(lock), call, HouseholdEvent::Kind::bindRenewed);
}

ProfileBind::Answer ProfileBind::obtain(std::unique_lock<std::mutex> lock,
                                        const std::shared_ptr<ProfileCall>& call,
                                        HouseholdEvent::Kind kind) {
    if (!isUsableLocked() && !request_) adoptHeldLocked();
    if (isUsableLocked()) return {held_, nullptr};
    call->place_ = waiting_.insert(waiting_.end(), call);
    call->isWaiting_ = true;
    if (request_) return {};
    request_ = std::make_shared<BindRequest>(shared_from_this());
    const auto request = request_;
    lock.unlock();
    household_->log([&] {
        return HouseholdEvent{
            kind, ProfileOperation::anonymousBind,
            0,    0,
            {},   kind == HouseholdEvent::Kind::bindRenewed ? "403" : "none is held"};
    });
    request->begin();
    return {};
}

void ProfileBind::leave(ProfileCall& call) noexcept {
    std::shared_ptr<ProfileCall> waiting;  // let go of without the lock
    std::shared_ptr<BindRequest> unwanted;
    {
        const std::scoped_lock lock(mutex_);
        if (std::exchange(call.isLinked_, false)) {
            (call.previous_ == nullptr ? calls_ : call.previous_->next_) = call.next_;
            if (call.next_ != nullptr) call.next_->previous_ = call.previous_;
        }
        if (std::exchange(call.isWaiting_, false)) {
            waiting = std::move(*call.place_);
            waiting_.erase(call.place_);
            if (waiting_.empty()) unwanted = std::move(request_);
        }
    }
    if (unwanted) unwanted->cancel();
}

void ProfileBind::obtained(const BindRequest& request, AnonymousBind bind) {
    std::shared_ptr<BindRequest> done;
    std::list<std::shared_ptr<ProfileCall>> waiting;
    BindPointer held;
    {
        const std::scoped_lock lock(mutex_);
        if (isClosed_) return;
        const bool isWanted = request_.get() == &request;
        if (isWanted || !held_) holdLocked(std::move(bind));
        if (!isWanted) return;
        done = std::move(request_);
        waiting = takeWaitingLocked();
        held = held_;
    }
    for (const auto& call : waiting)
        call->bindArrived(held);
}

void ProfileBind::failed(const BindRequest& request, const std::exception_ptr& error) {
    std::shared_ptr<BindRequest> done;
    std::list<std::shared_ptr<ProfileCall>> waiting;
    {
        const std::scoped_lock lock(mutex_);
        if (request_.get() != &request) return;
        done = std::move(request_);
        isLost_ = true;
        waiting = takeWaitingLocked();
    }
    for (const auto& call : waiting)
        call->bindFailed(error);
}

std::list<std::shared_ptr<ProfileCall>> ProfileBind::takeWaitingLocked() {
    for (const auto& call : waiting_)
        call->isWaiting_ = false;
    return std::exchange(waiting_, {});
}

bool ProfileBind::isUsableLocked() const {
    using std::chrono::seconds;
    return held_ && (!validUntil_ || std::chrono::ceil<seconds>(
                                         household_->scheduler()->wallTime()) <= *validUntil_);
}

void ProfileBind::holdLocked(AnonymousBind bind) {
    const auto validUntil = bind.validUntil();
    held_ = std::make_shared<const AnonymousBind>(std::move(bind));
    validUntil_ = validUntil;
}

void ProfileBind::adoptHeldLocked() {
    const auto held = ConfigurationManager::sharedInstance().heldBinds().binds;
    const auto own = std::ranges::find(held, profileID_, &AnonymousBind::profileID);
    if (own != held.end()) adoptLocked(*own);
}

void ProfileBind::adoptLocked(const AnonymousBind& held) {
    const bool wasRefused = refused_ && refused_->token == held.token;
    if (!wasRefused && held.isValid(household_->scheduler()->wallTime())) holdLocked(held);
}

void ProfileBind::adopt(const AnonymousBind& held) {
    const std::scoped_lock lock(mutex_);
    if (!isClosed_ && !isUsableLocked() && !request_) adoptLocked(held);
}

BindPointer ProfileBind::usable() const {
    const std::scoped_lock lock(mutex_);
    return isUsableLocked() ? held_ : nullptr;
}

void ProfileBind::forget() {
    const std::scoped_lock lock(mutex_);
    held_.reset();
}

void ProfileBind::giveUp() {
    const std::scoped_lock lock(mutex_);
    if (isClosed_ || request_) return;
    if (!isUsableLocked()) adoptHeldLocked();
    if (!held_) return;
    refused_ = std::exchange(held_, nullptr);
    isLost_ = false;
}

void ProfileBind::close() {
    std::vector<std::shared_ptr<Attempts>> running;
    std::shared_ptr<BindRequest> request;
    {
        const std::scoped_lock lock(mutex_);
        isClosed_ = true;
        held_.reset();
        request = std::move(request_);
        // A call that is just being destroyed waits for the lock, and has no owner any more.
        for (ProfileCall* call = calls_; call != nullptr; call = call->next_)
            if (auto owned = call->weak_from_this().lock()) running.push_back(std::move(owned));
    }
    if (request) request->cancel();
    for (const auto& call : running)
        call->abort(closedError());
}

}  // namespace KestrinHousehold::internal
