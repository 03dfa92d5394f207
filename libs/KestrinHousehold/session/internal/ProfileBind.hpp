#pragma once

#include <chrono>
#include <exception>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <KestrinConfigManager/AnonymousBind.hpp>
#include <KestrinHousehold/session/internal/HouseholdState.hpp>
#include <KestrinProfile/model/ProfileOperation.hpp>

namespace KestrinHousehold::internal {

class BindRequest;
class ProfileCall;

/// One bind; another one is another object, even if it says the same.
using BindPointer = std::shared_ptr<const KestrinConfigManager::AnonymousBind>;

/// The bind of one profile: the one that is held, or the request for one and the calls that wait
/// for it; and all calls of the profile. Any thread; calls out without its lock.
class ProfileBind : public std::enable_shared_from_this<ProfileBind> {
  public:
    /// What a call gets that asks for the bind.
    struct Answer {
        BindPointer bind;          ///< null: see the others
        std::exception_ptr error;  ///< why there is none; null: the call waits, and is told
    };

    ProfileBind(std::shared_ptr<HouseholdState> household, std::string profileID);

    [[nodiscard]] const std::string& profileID() const noexcept { return profileID_; }
    [[nodiscard]] HouseholdState& household() const noexcept { return *household_; }

    /// The bind for a call that begins. It belongs to the profile's calls from now on.
    [[nodiscard]] Answer begin(const std::shared_ptr<ProfileCall>& call);

    /// A newer bind than the one under which a call was refused; the refusal itself if none could
    /// be had for it.
    [[nodiscard]] Answer renew(const std::shared_ptr<ProfileCall>& call, const BindPointer& refused,
                               const std::exception_ptr& refusal);

    /// A call has ended.
    void leave(ProfileCall& call) noexcept;

    /// The outcome of a request for the bind.
    void obtained(const BindRequest& request, KestrinConfigManager::AnonymousBind bind);
    void failed(const BindRequest& request, const std::exception_ptr& error);

    /// Takes over a bind that the configuration manager holds, unless there is one.
    void adopt(const KestrinConfigManager::AnonymousBind& held);

    /// The bind, if it can be used.
    [[nodiscard]] BindPointer usable() const;

    /// Forgets the bind.
    void forget();

    /// Forgets the bind, also if the configuration manager holds it still, so that the next call
    /// obtains another.
    void giveUp();

    /// Forgets the bind, and ends all calls.
    void close();

  private:
    using Bind = KestrinConfigManager::AnonymousBind;

    [[nodiscard]] bool isUsableLocked() const;
    void holdLocked(Bind bind);
    void adoptHeldLocked();
    void adoptLocked(const Bind& held);
    /// The bind, or a place among those that wait for it.
    [[nodiscard]] Answer obtain(std::unique_lock<std::mutex> lock,
                                const std::shared_ptr<ProfileCall>& call,
                                HouseholdEvent::Kind kind);
    [[nodiscard]] std::list<std::shared_ptr<ProfileCall>> takeWaitingLocked();

    const std::shared_ptr<HouseholdState> household_;
    const std::string profileID_;

    mutable std::mutex mutex_;
    bool isClosed_ = false;
    BindPointer held_;
    std::optional<std::chrono::sys_seconds> validUntil_;
    BindPointer refused_;  ///< the last that was
    bool isLost_ = false;  ///< whether no other could be had for it
    std::shared_ptr<BindRequest> request_;
    std::list<std::shared_ptr<ProfileCall>> waiting_;
    ProfileCall* calls_ = nullptr;  ///< the first of those that run
};

}  // namespace KestrinHousehold::internal
