#pragma once

#include <exception>
#include <list>
#include <memory>
#include <utility>

#include <KestrinHousehold/session/ProfileSession.hpp>
#include <KestrinHousehold/session/internal/Attempts.hpp>
#include <KestrinHousehold/session/internal/ProfileBind.hpp>

namespace KestrinHousehold::internal {

/// Who acts, for all copies of a session.
struct Actor {
    std::shared_ptr<HouseholdState> household;
    std::shared_ptr<ProfileBind> bind;
};

/// One call of a session, from its subscription to its end: it gets the profile's bind, sends its
/// request with it, and once more with another if it is refused.
class ProfileCall : public Attempts {
  public:
    ~ProfileCall() override;

    /// Gets the bind, and sends the request.
    void begin();

  protected:
    ProfileCall(std::shared_ptr<const Actor> actor, KestrinProfile::ProfileOperation operation,
                const CallOptions& options);

    [[nodiscard]] const KestrinConfigManager::AnonymousBind& bind() const noexcept {
        return *bind_;
    }

    /// An attempt has failed.
    void refusedOrFailed(const std::exception_ptr& error);

  private:
    friend class ProfileBind;

    // The profile's bind calls these, for a call that waits for it.
    void bindArrived(BindPointer bind);
    void bindFailed(const std::exception_ptr& error);

    void sendOnceMore(BindPointer bind);
    void ended() noexcept override;
    void leaveIfEnded() noexcept;
    [[nodiscard]] std::shared_ptr<ProfileCall> shared();

    const std::shared_ptr<const Actor> actor_;
    BindPointer bind_;
    bool mayRenew_ = false;       ///< whether the bind was held before, and no other was tried
    std::exception_ptr refusal_;  ///< of the request, under the bind that was held

    // The bind's, under its lock: the neighbours among the calls that run, and the place among
    // those that wait.
    ProfileCall* previous_ = nullptr;
    ProfileCall* next_ = nullptr;
    bool isLinked_ = false;
    bool isWaiting_ = false;
    std::list<std::shared_ptr<ProfileCall>>::iterator place_;
};

/// A call with its request: a function of the bind and the brand that returns the observable.
template <class T, class Request>
class Call final : public ProfileCall {
  public:
    Call(std::shared_ptr<const Actor> actor, KestrinProfile::ProfileOperation operation,
         const CallOptions& options, Request request, rxcpp::subscriber<T> subscriber)
        : ProfileCall(std::move(actor), operation, options),
          brandID_(options.brandID),
          request_(std::move(request)),
          subscriber_(std::move(subscriber)) {}

  private:
    void send(const rxcpp::composite_subscription& attempt) override {
        const auto self = std::static_pointer_cast<Call>(shared_from_this());
        request_(bind(), brandID_)
            .subscribe(
                attempt, [self](T value) { self->deliver(std::move(value)); },
                [self](const std::exception_ptr& error) { self->refusedOrFailed(error); });
    }

    void deliver(T value) {
        // The call for the bind itself sends nothing.
        if (!succeeded(operation() != KestrinProfile::ProfileOperation::anonymousBind)) return;
        subscriber_.on_next(std::move(value));
        subscriber_.on_completed();
    }

    void fail(const std::exception_ptr& error) override { subscriber_.on_error(error); }

    const std::optional<std::string> brandID_;
    const Request request_;
    const rxcpp::subscriber<T> subscriber_;
};

/// The observable of a call.
template <class T, class Request>
[[nodiscard]] HalvardSling::Observable<T> callOf(std::shared_ptr<const Actor> actor,
                                                 CallOptions options,
                                                 KestrinProfile::ProfileOperation operation,
                                                 Request request) {
    return rxcpp::observable<>::create<T>(
        [actor = std::move(actor), options = std::move(options), operation,
         request = std::move(request)](const rxcpp::subscriber<T>& subscriber) {
            const auto call =
                std::make_shared<Call<T, Request>>(actor, operation, options, request, subscriber);
            // Whoever the call waits for holds it; the subscription only ends it.
            subscriber.add([weak = std::weak_ptr<ProfileCall>(call)] {
                if (const auto running = weak.lock()) running->cancel();
            });
            call->begin();
        });
}

}  // namespace KestrinHousehold::internal
