#include <algorithm>
#include <utility>

#include <KestrinHousehold/outbox/internal/OutboxCore.hpp>

namespace KestrinHousehold::internal {

using std::chrono::milliseconds;

OutboxCore::LanePointer OutboxCore::laneOf(const std::string& profileID) {
    const auto found = lanes_.find(profileID);
    if (found != lanes_.end()) return found->second;
    return lanes_.emplace(profileID, std::make_shared<Lane>()).first->second;
}

std::size_t OutboxCore::waiting() const {
    std::size_t count = 0;
    for (const auto& [profile, lane] : lanes_)
        count += lane->entries.size();
    return count;
}

// What the application asks for.

void OutboxCore::add(OutboxWrite write, const rxcpp::subscriber<OutboxEntry>& subscriber) {
    if (const auto problem = problemOf(write))
        return subscriber.on_error(
            std::make_exception_ptr(OutboxError(OutboxError::Case::invalidWrite, *problem)));
    OutboxEntry entry;
    entry.write = std::move(write);
    entry.acceptedAt = std::chrono::floor<milliseconds>(scheduler_->wallTime());
    bool isKept = false;
    {
        const std::scoped_lock lock(mutex_);
        entry.clockDifference = serviceClock_.difference();
        isKept = !isClosed_;
        if (isKept) incoming_.push_back({std::move(entry), subscriber});
    }
    if (!isKept) return subscriber.on_error(closed_);
    requestWork();
}

void OutboxCore::drop(std::int64_t number, const rxcpp::subscriber<bool>& subscriber) {
    {
        const std::scoped_lock lock(mutex_);
        drops_.push_back({number, subscriber});
    }
    requestWork();
}

void OutboxCore::tellOpening(const rxcpp::subscriber<OutboxOpening>& subscriber) {
    std::optional<OutboxError> error;
    OutboxOpening found;
    {
        const std::scoped_lock lock(mutex_);
        if (isClosed_) error.emplace(OutboxError::Case::closed);
        if (!error) error = openingError_;
        if (!isOpen_ && !error) return awaitOpening_.push_back(subscriber);
        found = opening_;
    }
    if (error) return subscriber.on_error(std::make_exception_ptr(*error));
    subscriber.on_next(found);
    subscriber.on_completed();
}

void OutboxCore::tellSettled(const rxcpp::subscriber<OutboxState>& subscriber) {
    bool isClosed = false;
    {
        const std::scoped_lock lock(mutex_);
        isClosed = isClosed_;
        if (!isClosed) awaitSettled_.push_back(subscriber);
    }
    if (isClosed) return subscriber.on_error(closed_);
    tellSettledOnes();
}

std::vector<OutboxEntry> OutboxCore::entries() const {
    const std::scoped_lock lock(mutex_);
    std::vector<OutboxEntry> all;
    for (const auto& [profile, lane] : lanes_)
        std::ranges::move(lane->entries.entries(), std::back_inserter(all));
    std::ranges::sort(all, {}, &OutboxEntry::number);
    return all;
}

std::vector<OutboxEntry> OutboxCore::refused() const {
    const std::scoped_lock lock(mutex_);
    std::vector<OutboxEntry> all;
    all.reserve(refused_.size());
    for (const auto& [number, entry] : refused_)
        all.push_back(entry);
    return all;
}

void OutboxCore::networkIsBack() {
    bool isOpen = false;
    bool isWorkLeft = false;
    {
        const std::scoped_lock lock(mutex_);
        isOpen = isOpen_;
        for (const auto& [profile, lane] : lanes_) {
            scheduler_->cancel(std::exchange(lane->retry, 0));
            lane->hasNoTimer = false;
            lane->failures = 0;
        }
        isWorkLeft = !isOpen || (removal_ == 0 && !(removals_.empty() && refusals_.empty()));
    }
    if (isOpen) withMemory([this] { runAll(); });
    if (isWorkLeft) requestWork();
}

void OutboxCore::bindIsNew(const std::string& profileID) {
    LanePointer lane;
    {
        const std::scoped_lock lock(mutex_);
        const auto found = lanes_.find(profileID);
        if (found == lanes_.end()) return;
        lane = found->second;
        lane->waitsForBind = false;
        lane->bindCame = true;
    }
    withMemory([&] { run(lane); });
}

// A lack of memory.

/// Forgets all but what is in the store and what waits for it, as a restart does.
void OutboxCore::beginAnew() {
    constexpr std::chrono::seconds again(5);
    std::map<std::string, LanePointer> lanes;
    std::vector<rxcpp::subscriber<OutboxOpening>> opening;
    Waiting waiting;
    {
        const std::scoped_lock lock(mutex_);
        for (const auto& [profile, lane] : lanes_) {
            scheduler_->cancel(std::exchange(lane->retry, 0));
            lane->isForgotten = true;
        }
        lanes.swap(lanes_);
        refused_.clear();
        removals_.clear();
        refusals_.clear();
        ++beginning_;
        isOpen_ = false;
        openingError_ = lackOfMemory_;
        opening.swap(awaitOpening_);
        scheduler_->cancel(std::exchange(removal_, 0));
        if (!isClosed_) workAfter(again);
        if (removal_ == 0) waiting = {std::exchange(incoming_, {}), std::exchange(drops_, {})};
    }
    for (const auto& [profile, lane] : lanes)
        if (const auto& lifetime = lane->lifetime) lifetime->unsubscribe();
    failAll(waiting, withoutMemory_);
    for (const auto& subscriber : opening)
        subscriber.on_error(withoutMemory_);
}

bool OutboxCore::isSettled() const {
    if (telling_ != 0) return false;
    const bool isStoring = isWorkRequested_ || working_ != 0 || !incoming_.empty() ||
                           !drops_.empty() || !removals_.empty() || !refusals_.empty();
    if (!isOpen_) return openingError_.has_value() && !isStoring;
    return !isStoring && std::ranges::all_of(lanes_, [](const auto& one) {
        const Lane& lane = *one.second;
        if (lane.isStarting || lane.awaitsReply) return false;
        return lane.entries.empty() || lane.waitsForBind || lane.retry != 0 || lane.hasNoTimer;
    });
}

void OutboxCore::tellSettledOnes() {
    std::vector<rxcpp::subscriber<OutboxState>> subscribers;
    OutboxState state;
    {
        const std::scoped_lock lock(mutex_);
        if (awaitSettled_.empty() || !isSettled()) return;
        subscribers.swap(awaitSettled_);
        state = {waiting(), refused_.size()};
    }
    for (const auto& subscriber : subscribers) {
        subscriber.on_next(state);
        subscriber.on_completed();
    }
}

void OutboxCore::close() {
    std::unique_ptr<TimerThread> disk;
    std::vector<rxcpp::subscriber<OutboxState>> settled;
    std::vector<rxcpp::subscriber<OutboxOpening>> opening;
    {
        const std::scoped_lock lock(mutex_);
        isClosed_ = true;
        for (const auto& [profile, lane] : lanes_)
            scheduler_->cancel(std::exchange(lane->retry, 0));
        disk.swap(disk_);
    }
    while (const auto lifetime = takeLifetime())
        lifetime->unsubscribe();
    disk.reset();  // waits for what is being stored, unless this is a handler of that
    work();        // and stores the rest
    {
        const std::scoped_lock storing(storeMutex_);
        const std::scoped_lock lock(mutex_);
        scheduler_->cancel(std::exchange(removal_, 0));
        store_.reset();
        settled.swap(awaitSettled_);
        opening.swap(awaitOpening_);
    }
    for (const auto& subscriber : settled)
        subscriber.on_error(closed_);
    for (const auto& subscriber : opening)
        subscriber.on_error(closed_);
    events_->complete();
}

/// That of a request which nobody has cancelled yet.
std::optional<rxcpp::composite_subscription> OutboxCore::takeLifetime() {
    const std::scoped_lock lock(mutex_);
    std::optional<rxcpp::composite_subscription> lifetime;
    for (const auto& [profile, lane] : lanes_)
        if (!lifetime) lifetime.swap(lane->lifetime);
    return lifetime;
}

}  // namespace KestrinHousehold::internal
