#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <HalvardSling/rx/Observable.hpp>
#include <KestrinHousehold/Export.hpp>
#include <KestrinHousehold/outbox/OutboxDelivery.hpp>
#include <KestrinHousehold/outbox/OutboxEntry.hpp>
#include <KestrinHousehold/outbox/OutboxError.hpp>
#include <KestrinHousehold/outbox/OutboxEvent.hpp>
#include <KestrinHousehold/outbox/OutboxOptions.hpp>
#include <KestrinHousehold/outbox/OutboxStore.hpp>
#include <KestrinHousehold/outbox/OutboxWrite.hpp>
#include <KestrinHousehold/time/Scheduler.hpp>

namespace KestrinHousehold {

namespace internal {
class OutboxCore;
}  // namespace internal

/// What an outbox found when it was opened.
struct OutboxOpening {
    std::size_t waiting = 0;              ///< how many entries wait
    std::size_t refused = 0;              ///< how many the service has refused
    std::vector<std::string> warnings{};  ///< what of the store was damaged, for people

    friend bool operator==(const OutboxOpening&, const OutboxOpening&) = default;
};

/// How an outbox stands once it does nothing.
struct OutboxState {
    std::size_t waiting = 0;  ///< how many entries wait; for a new bind, the network or the service
    std::size_t refused = 0;  ///< how many the service has refused

    friend bool operator==(const OutboxState&, const OutboxState&) = default;
};

/// Keeps writes of lists until the service has taken them. docs/outbox.md has the promises and the
/// rules.
///
/// It sends as soon as it was made: one request at a time for each profile, in the order in which
/// the writes were accepted, without those that a later one makes needless. After a restart it goes
/// on with what the store holds.
///
/// All members may be called from any thread. The work with the store is done on a thread that
/// exists only while there is some; requests are made from any. Observables emit on the thread on
/// which what they tell of happened; a handler must not block. While nothing waits there is neither
/// a thread nor a timer.
class KESTRIN_HOUSEHOLD_EXPORT Outbox {
  public:
    /// Opens the store and begins to send.
    /// @param store      where entries are kept; not null
    /// @param delivery   how the service is reached; not null
    /// @param scheduler  who waits; null: a `TimerThread` of its own
    /// @param options    its bounds and times
    Outbox(std::shared_ptr<OutboxStore> store, std::shared_ptr<OutboxDelivery> delivery,
           std::shared_ptr<Scheduler> scheduler = {}, OutboxOptions options = {});
    Outbox(const Outbox&) = delete;
    Outbox& operator=(const Outbox&) = delete;

    /// Stores what was added before, on the calling thread, cancels the request under way (its
    /// entry stays) and ends. May be called from a handler of its own observables.
    ~Outbox();

    /// Emits what was found when the store was opened, once it is; fails with `OutboxError`, also
    /// while a later call may succeed.
    [[nodiscard]] HalvardSling::Observable<OutboxOpening> opening() const;

    /// Accepts a write: emits its entry once it is on the disk. What was emitted is sent, however
    /// the process ends. Fails with `OutboxError`, and then nothing of it is kept.
    [[nodiscard]] HalvardSling::Observable<OutboxEntry> add(OutboxWrite write) const;

    /// What happens from the subscription on, until the outbox is destroyed, which completes it.
    [[nodiscard]] HalvardSling::Observable<OutboxEvent> events() const;

    /// The entries that wait, by their numbers, those that are being sent included.
    [[nodiscard]] std::vector<OutboxEntry> entries() const;

    /// The entries that the service has refused, the oldest first.
    [[nodiscard]] std::vector<OutboxEntry> refused() const;

    /// Drops an entry that waits or was refused; emits whether there was one that could be: what is
    /// being sent cannot. Fails with `OutboxError` if the store fails; the entry then is not sent
    /// before the next start.
    [[nodiscard]] HalvardSling::Observable<bool> drop(std::int64_t number) const;

    /// Tries at once what waits for the service. To be called when the network is back.
    void networkIsBack();

    /// Goes on with a profile's entries that wait for a bind. To be called when it has signed in
    /// again, for example.
    void bindIsNew(const std::string& profileID);

    /// Emits once nothing is being sent or stored: all is sent, or waits for something. The events
    /// of what happened before have been told then.
    [[nodiscard]] HalvardSling::Observable<OutboxState> settled() const;

  private:
    std::shared_ptr<internal::OutboxCore> core_;
};

}  // namespace KestrinHousehold
