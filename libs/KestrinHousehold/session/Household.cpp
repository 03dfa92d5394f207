#include <utility>

#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinHousehold/session/Household.hpp>
#include <KestrinHousehold/session/internal/ProfileCall.hpp>
#include <KestrinHousehold/session/internal/WarmUp.hpp>
#include <KestrinHousehold/time/TimerThread.hpp>

namespace KestrinHousehold {

using KestrinConfigManager::ConfigurationManager;

Household::Household() : Household(HouseholdOptions()) {}

Household::Household(HouseholdOptions options)
    : state_(std::make_shared<internal::HouseholdState>(
          std::move(options.retry),
          options.scheduler ? std::move(options.scheduler) : std::make_shared<TimerThread>(),
          std::move(options.log), std::move(options.random))) {
    try {
        state_->adoptHeldBinds();
    } catch (...) {
        state_->close();  // else it and its binds, which own each other, would stay
        throw;
    }
}

Household::Household(Household&&) noexcept = default;

Household& Household::operator=(Household&& other) noexcept {
    const Household former(std::move(*this));
    state_ = std::move(other.state_);
    return *this;
}

Household::~Household() {
    if (state_) state_->close();
}

ProfileSession Household::session() const {
    return session(ConfigurationManager::parentProfileID());
}

ProfileSession Household::session(const std::string& profileID) const {
    return ProfileSession(std::make_shared<const internal::Actor>(
        internal::Actor{state_, state_->bindOf(profileID)}));
}

HalvardSling::Observable<std::size_t> Household::warmUp() const {
    return internal::warmUp();
}

const std::shared_ptr<Scheduler>& Household::scheduler() const noexcept {
    return state_->scheduler();
}

}  // namespace KestrinHousehold
