#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <HalvardSling/http/SlingError.hpp>
#include <KestrinHousehold/retry/internal/Retries.hpp>
#include <KestrinHousehold/session/HouseholdLog.hpp>
#include <KestrinHousehold/time/Scheduler.hpp>

namespace KestrinHousehold::internal {

class ProfileBind;

/// What all sessions of a household share. It and its binds hold each other until `close`.
class HouseholdState : public std::enable_shared_from_this<HouseholdState> {
  public:
    HouseholdState(RetryPolicy retry, std::shared_ptr<Scheduler> scheduler, HouseholdLogHook log,
                   std::function<double()> random);

    [[nodiscard]] Retries& retries() noexcept { return retries_; }
    [[nodiscard]] const std::shared_ptr<Scheduler>& scheduler() const noexcept {
        return scheduler_;
    }

    /// Tells the application, if it wants to know.
    /// @param make  returns the event
    template <class Make>
    void log(Make make) const {
        if (log_) log_(make());
    }

    /// The bind of a profile, made on first use.
    [[nodiscard]] std::shared_ptr<ProfileBind> bindOf(const std::string& profileID);

    /// Takes over the binds that the configuration manager holds, where there are none.
    void adoptHeldBinds();

    /// Gives the configuration manager back what it has dropped after a refusal.
    void restoreBinds();

    /// Takes a profile's bind from the configuration manager, so that it is not given back.
    void drop(const std::string& profileID);

    /// Forgets the bind of a profile that is gone, here and in the configuration manager.
    void forget(const std::string& profileID);

    /// Ends all calls, for good.
    void close();

  private:
    [[nodiscard]] std::shared_ptr<ProfileBind> bindLocked(const std::string& profileID);
    [[nodiscard]] std::vector<std::shared_ptr<ProfileBind>> allBinds() const;

    Retries retries_;
    const std::shared_ptr<Scheduler> scheduler_;
    const HouseholdLogHook log_;
    std::mutex managerMutex_;  // giving back and dropping come one after the other
    mutable std::mutex mutex_;
    bool isClosed_ = false;
    std::map<std::string, std::shared_ptr<ProfileBind>, std::less<>> binds_;
};

/// Why a call of a household that has ended fails.
[[nodiscard]] std::exception_ptr closedError();

}  // namespace KestrinHousehold::internal
