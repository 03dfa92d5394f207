#include <algorithm>
#include <optional>
#include <utility>

#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinHousehold/session/internal/HouseholdState.hpp>
#include <KestrinHousehold/session/internal/ProfileBind.hpp>

namespace KestrinHousehold::internal {

using HalvardSling::SlingError;
using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::ConfigurationManager;

HouseholdState::HouseholdState(RetryPolicy retry, std::shared_ptr<Scheduler> scheduler,
                               HouseholdLogHook log, std::function<double()> random)
    : retries_(std::move(retry), std::move(random)),
      scheduler_(std::move(scheduler)),
      log_(std::move(log)) {}

std::shared_ptr<ProfileBind> HouseholdState::bindOf(const std::string& profileID) {
    adoptHeldBinds();
    const std::scoped_lock lock(mutex_);
    return bindLocked(profileID);
}

std::shared_ptr<ProfileBind> HouseholdState::bindLocked(const std::string& profileID) {
    const auto found = binds_.find(profileID);
    if (found != binds_.end()) return found->second;
    auto bind = std::make_shared<ProfileBind>(shared_from_this(), profileID);
    if (isClosed_)
        bind->close();
    else
        binds_.emplace(profileID, bind);
    return bind;
}

void HouseholdState::adoptHeldBinds() {
    for (const auto& held : ConfigurationManager::sharedInstance().heldBinds().binds) {
        std::shared_ptr<ProfileBind> bind;
        {
            const std::scoped_lock lock(mutex_);
            bind = bindLocked(held.profileID);
        }
        bind->adopt(held);
    }
}

std::vector<std::shared_ptr<ProfileBind>> HouseholdState::allBinds() const {
    const std::scoped_lock lock(mutex_);
    std::vector<std::shared_ptr<ProfileBind>> all;
    all.reserve(binds_.size());
    for (const auto& [profileID, bind] : binds_)
        all.push_back(bind);
    return all;
}

void HouseholdState::restoreBinds() {
    auto& manager = ConfigurationManager::sharedInstance();
    const std::scoped_lock lock(managerMutex_);
    const auto held = manager.heldBinds().binds;
    for (const auto& each : allBinds())
        if (const auto bind = each->usable();
            bind &&
            std::ranges::find(held, bind->profileID, &AnonymousBind::profileID) == held.end())
            manager.storeBind(*bind);
}

void HouseholdState::forget(const std::string& profileID) {
    std::shared_ptr<ProfileBind> bind;
    {
        const std::scoped_lock lock(mutex_);
        bind = bindLocked(profileID);
    }
    bind->forget();
    drop(profileID);
}

void HouseholdState::drop(const std::string& profileID) {
    const std::scoped_lock lock(managerMutex_);
    auto& manager = ConfigurationManager::sharedInstance();
    manager.setBindProfileID(profileID);
    manager.setBindToken(std::nullopt);
}

void HouseholdState::close() {
    std::map<std::string, std::shared_ptr<ProfileBind>, std::less<>> binds;
    {
        const std::scoped_lock lock(mutex_);
        isClosed_ = true;
        binds.swap(binds_);
    }
    for (const auto& [profileID, bind] : binds)
        bind->close();
}

std::exception_ptr closedError() {
    return std::make_exception_ptr(
        SlingError(HalvardSling::SlingErrorKind::cancelled, "the household was destroyed"));
}

}  // namespace KestrinHousehold::internal
