#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include <HalvardSling/rx/Observable.hpp>
#include <KestrinHousehold/Export.hpp>
#include <KestrinHousehold/retry/RetryPolicy.hpp>
#include <KestrinHousehold/session/HouseholdLog.hpp>
#include <KestrinHousehold/session/ProfileSession.hpp>
#include <KestrinHousehold/time/Scheduler.hpp>

namespace KestrinHousehold {

class HouseholdDelivery;

namespace internal {
class HouseholdState;
}

/// What an application makes of its household; everything is optional.
struct HouseholdOptions {
    RetryPolicy retry;                     ///< which requests are repeated
    std::shared_ptr<Scheduler> scheduler;  ///< who waits; null: a `TimerThread` of its own
    HouseholdLogHook log;                  ///< told what happens beside the requests; may be empty
    /// Random numbers from 0 up to but not including 1, for the delays; empty: the library's own.
    /// Called from any thread.
    std::function<double()> random;
};

/// The household whose profiles act: the sessions of all its profiles share the binds that it
/// obtains, the budget for repeats and the scheduler. The configuration is that of
/// `KestrinConfigManager::ConfigurationManager::sharedInstance()`, as it is at the time of each
/// attempt. An application has one household while somebody is signed in.
///
/// Binds. The household takes over the binds that the configuration manager holds when it and each
/// of its sessions are made, and when it has none of its own for a profile; those that it obtains
/// are stored there, too. A reply with status 403 makes the manager drop all binds: the household
/// keeps its own, and puts them back. It never selects a profile, except that the first bind that
/// is stored selects its own, as always.
///
/// Its end ends every running call with `SlingErrorKind::cancelled`, on the thread that destroys
/// it; nothing is repeated, and no bind obtained, after that. It does not wait for a handler that
/// runs on another thread. Calls made later through a session that is left fail in the same way.
///
/// All members but the destructor and assignments may be called from any thread.
class KESTRIN_HOUSEHOLD_EXPORT Household {
  public:
    /// A household with the default options.
    Household();
    /// A household with options.
    explicit Household(HouseholdOptions options);
    Household(const Household&) = delete;
    Household& operator=(const Household&) = delete;
    /// Takes a household over; of the other one only its end is left.
    Household(Household&&) noexcept;
    /// Ends this household, and takes the other one over.
    Household& operator=(Household&&) noexcept;
    /// Ends every running call, as above.
    ~Household();

    /// The session of the household's parent, as it is configured now.
    [[nodiscard]] ProfileSession session() const;

    /// The session of a profile. Sends nothing, and does not ask whether there is such a profile.
    [[nodiscard]] ProfileSession session(const std::string& profileID) const;

    /// Connects to the hosts of the configured services, so that later calls find a connection and
    /// save the round trips of TCP and TLS: for the start of the application, before it knows what
    /// to ask for. What each host gets is a HEAD request for "/", without a token and without the
    /// services' own headers; what it answers does not matter.
    ///
    /// Cold: nothing happens before it is subscribed to, and unsubscribing ends it. Emits how many
    /// hosts have answered, once all have or could not be reached, and completes; never fails.
    [[nodiscard]] HalvardSling::Observable<std::size_t> warmUp() const;

    /// Who waits for this household; never null.
    [[nodiscard]] const std::shared_ptr<Scheduler>& scheduler() const noexcept;

  private:
    friend class HouseholdDelivery;

    std::shared_ptr<internal::HouseholdState> state_;
};

}  // namespace KestrinHousehold
