// What an outbox does with its store.

#include <algorithm>
#include <utility>

#include <KestrinHousehold/outbox/internal/OutboxCore.hpp>

namespace KestrinHousehold::internal {

using std::chrono::nanoseconds;
using Kind = OutboxEvent::Kind;

namespace {

/// The error of a store, whatever it threw.
OutboxError storeError(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const OutboxError& known) {
        return known;
    } catch (const std::exception& other) {
        return OutboxError(OutboxError::Case::notStored, other.what());
    } catch (...) {
        return OutboxError(OutboxError::Case::notStored, "an unknown error");
    }
}

}  // namespace

void OutboxCore::requestWork() {
    {
        const std::scoped_lock lock(mutex_);
        if (std::exchange(isWorkRequested_, true) || scheduleWork()) return;
    }
    work();
}

/// Has it done on the thread of the store; false if there is none to be had.
bool OutboxCore::scheduleWork() {
    if (!disk_) return false;
    try {
        disk_->after(nanoseconds(0), [weak = weak_from_this()] {
            if (const auto core = weak.lock()) core->work();
        });
    } catch (const std::exception&) {
        return false;
    }
    return true;
}

void OutboxCore::work() {
    withMemory([this] {
        const Working working(*this);
        while (workOnce()) {
        }
    });
    withMemory([this] { runAll(); });
    tellSettledOnes();
}

/// Does what waits for the store; false if nothing does, or it failed.
bool OutboxCore::workOnce() {
    Storing storing(storeMutex_);
    if (!store_) {
        storing.unlock();
        failAll(takeWaiting(), closed_);
        return false;
    }
    bool isOpen = false;
    {
        const std::scoped_lock lock(mutex_);
        isOpen = isOpen_;
        // Nobody is left who would learn what is in it.
        if (!isOpen && isClosed_ && incoming_.empty() && drops_.empty()) return false;
    }
    return isOpen ? storeNext(std::move(storing)) : open(std::move(storing));
}

bool OutboxCore::open(Storing storing) {
    const Waiting waiting = takeWaiting();  // what comes from now on has another try
    try {
        OutboxStore::Loaded found;
        try {
            found = store_->load();
        } catch (...) {
            notLoaded(storeError(std::current_exception()), waiting, std::move(storing));
            return false;
        }
        loaded(std::move(found), waiting, std::move(storing));
        return true;
    } catch (const std::bad_alloc&) {
        failAll(waiting, withoutMemory_);
        throw;
    }
}

void OutboxCore::notLoaded(const OutboxError& error, const Waiting& waiting, Storing storing) {
    const auto failure = std::make_exception_ptr(error);
    std::vector<rxcpp::subscriber<OutboxOpening>> subscribers;
    {
        const std::scoped_lock lock(mutex_);
        openingError_ = error;
        subscribers.swap(awaitOpening_);
    }
    storing.unlock();
    for (const auto& subscriber : subscribers)
        subscriber.on_error(failure);
    failAll(waiting, failure);
}

void OutboxCore::loaded(OutboxStore::Loaded found, const Waiting& waiting, Storing storing) {
    Events events;
    for (const auto& warning : found.warnings)
        events.push_back({Kind::storeFailed, {}, warning});
    OutboxOpening opening;
    {
        const std::scoped_lock lock(mutex_);
        for (auto& entry : found.entries) {
            last_ = std::max(last_, entry.number);
            if (entry.refusal)
                refused_.insert_or_assign(entry.number, std::move(entry));
            else
                laneOf(entry.write.profileID)->entries.restore(std::move(entry));
        }
        opening_ = {this->waiting(), refused_.size(), std::move(found.warnings)};
        opening = opening_;
        incoming_.insert(incoming_.begin(), waiting.incoming.begin(), waiting.incoming.end());
        drops_.insert(drops_.begin(), waiting.drops.begin(), waiting.drops.end());
        isOpen_ = true;
        openingError_.reset();
    }
    storing.unlock();
    events_->queue(std::move(events));
    events_->send();
    std::vector<rxcpp::subscriber<OutboxOpening>> subscribers;
    {
        const std::scoped_lock lock(mutex_);
        subscribers.swap(awaitOpening_);
    }
    for (const auto& subscriber : subscribers) {
        subscriber.on_next(opening);
        subscriber.on_completed();
    }
}

OutboxCore::Waiting OutboxCore::takeWaiting() {
    const std::scoped_lock lock(mutex_);
    return {std::exchange(incoming_, {}), std::exchange(drops_, {})};
}

/// Nothing that waits for the store gets what it waits for.
void OutboxCore::failAll(const Waiting& waiting, const std::exception_ptr& error) {
    for (const auto& one : waiting.incoming)
        one.subscriber.on_error(error);
    for (const auto& one : waiting.drops)
        one.subscriber.on_error(error);
}

void OutboxCore::takeBatch(Batch& batch) {
    const std::scoped_lock lock(mutex_);
    batch.beginning = beginning_;
    batch.waiting.incoming.swap(incoming_);
    batch.waiting.drops.swap(drops_);
    for (auto& incoming : batch.waiting.incoming)
        planIncoming(batch, incoming);
    for (auto& dropping : batch.waiting.drops)
        takeDrop(batch, dropping);
    batch.removals.insert(batch.removals.end(), removals_.begin(), removals_.end());
    removals_.clear();
    batch.refusals = std::exchange(refusals_, {});
    scheduler_->cancel(std::exchange(removal_, 0));

    auto& change = batch.change;
    change.remove = batch.removals;
    for (const auto& refusal : batch.refusals)
        if (refused_.contains(refusal.number)) change.put.push_back(refusal);
    for (const auto& [profile, lane] : lanes_)
        std::ranges::move(lane->entries.takeChanged(), std::back_inserter(batch.changed));
    change.put.insert(change.put.end(), batch.changed.begin(), batch.changed.end());
    for (const auto& lane : batch.lanes) {
        std::ranges::move(lane->entries.planned(), std::back_inserter(change.put));
        std::ranges::copy(lane->entries.leaving(), std::back_inserter(change.remove));
    }
}

void OutboxCore::planIncoming(Batch& batch, Incoming& incoming) {
    const auto lane = laneOf(incoming.entry.write.profileID);
    const auto used = waiting();
    const auto free = options_.maxEntries - std::min(used, options_.maxEntries);
    OutboxEntry entry = incoming.entry;
    entry.number = last_ + 1;
    const auto until = entry.acceptedAt + options_.longestRequest;
    if (!lane->entries.plan(entry, free, until)) return;
    incoming.entry.number = ++last_;
    incoming.isAccepted = true;
    if (std::ranges::find(batch.lanes, lane) == batch.lanes.end()) batch.lanes.push_back(lane);
}

void OutboxCore::takeDrop(Batch& batch, Dropping& dropping) {
    const auto number = dropping.number;
    std::optional<OutboxEntry> entry;
    if (auto node = refused_.extract(number)) entry = std::move(node.mapped());
    for (const auto& [profile, lane] : lanes_)
        if (!entry) entry = lane->entries.take(number);
    dropping.isDropped = entry.has_value();
    if (!entry) return;
    batch.removals.push_back(number);
    batch.events.push_back({Kind::dropped, std::move(*entry), "dropped by the application"});
}

bool OutboxCore::storeNext(Storing storing) {
    Batch batch;
    try {
        takeBatch(batch);
        return !batch.isEmpty() && store(batch, std::move(storing));
    } catch (const std::bad_alloc&) {
        if (batch.isStored)
            tellStored(batch.waiting, withoutMemory_);
        else
            failAll(batch.waiting, withoutMemory_);
        throw;
    }
}

bool OutboxCore::store(Batch& batch, Storing storing) {
    try {
        if (!batch.change.put.empty() || !batch.change.remove.empty()) store_->commit(batch.change);
    } catch (...) {
        notKept(batch, storeError(std::current_exception()), std::move(storing));
        return false;
    }
    batch.isStored = true;
    kept(batch, std::move(storing));
    return true;
}

void OutboxCore::kept(Batch& batch, Storing storing) {
    const std::string full =
        "it holds " + std::to_string(options_.maxEntries) + " entries, as many as it may";
    const auto noRoom = std::make_exception_ptr(OutboxError(OutboxError::Case::full, full));
    Events events = std::move(batch.events);
    {
        const std::scoped_lock lock(mutex_);
        for (const auto& lane : batch.lanes) {
            lane->hasNoTimer = false;
            for (auto& [entry, by] : lane->entries.keepPlan())
                events.push_back(
                    {Kind::superseded, std::move(entry), "a later entry makes it needless", by});
        }
        for (const auto& incoming : batch.waiting.incoming)
            if (!incoming.isAccepted) events.push_back({Kind::overflow, incoming.entry, full});
        events_->queue(std::move(events));
    }
    storing.unlock();
    events_->send();
    tellStored(batch.waiting, noRoom);
    runAll();
}

void OutboxCore::tellStored(const Waiting& waiting, const std::exception_ptr& noRoom) {
    for (const auto& [entry, subscriber, isAccepted] : waiting.incoming) {
        if (!isAccepted) {
            subscriber.on_error(noRoom);
            continue;
        }
        subscriber.on_next(entry);
        subscriber.on_completed();
    }
    for (const auto& [number, subscriber, isDropped] : waiting.drops) {
        subscriber.on_next(isDropped);
        subscriber.on_completed();
    }
}

void OutboxCore::notKept(Batch& batch, const OutboxError& error, Storing storing) {
    constexpr std::chrono::seconds again(5);
    Events events = std::move(batch.events);
    {
        const std::scoped_lock lock(mutex_);
        for (const auto& lane : batch.lanes)
            lane->entries.abandonPlan();
        if (batch.beginning == beginning_) {
            for (const auto& [profile, lane] : lanes_)
                lane->entries.putBackChanged(batch.changed);
            // What was sent leaves the store with a later commit.
            removals_.insert(removals_.begin(), batch.removals.begin(), batch.removals.end());
            refusals_.insert(refusals_.begin(), batch.refusals.begin(), batch.refusals.end());
        }
        if (!removals_.empty() || !refusals_.empty()) {
            events.push_back({Kind::storeFailed, {}, error.what()});
            if (removal_ == 0) workAfter(again);
        }
        events_->queue(std::move(events));
    }
    storing.unlock();
    failAll(batch.waiting, std::make_exception_ptr(error));
    events_->send();
}

/// Takes what was sent out of the store: at once if nothing else is to be sent, else some together.
void OutboxCore::removeSoon() {
    constexpr std::size_t mostTogether = 256;
    const bool isNow = waiting() == 0 || removals_.size() >= mostTogether;
    if (!isNow && removal_ != 0) return;
    const auto delay = isNow ? nanoseconds(0) : options_.removalDelay;
    scheduler_->cancel(std::exchange(removal_, 0));
    workAfter(delay);
}

/// With no timer to be had the removals wait for the next commit.
void OutboxCore::workAfter(nanoseconds delay) {
    try {
        removal_ = scheduler_->after(delay, [weak = weak_from_this()] {
            if (const auto core = weak.lock()) core->requestWork();
        });
    } catch (const std::exception&) {
        removal_ = 0;
    }
}

}  // namespace KestrinHousehold::internal
