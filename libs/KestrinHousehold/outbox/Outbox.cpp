#include <algorithm>
#include <map>
#include <mutex>
#include <new>
#include <optional>
#include <random>
#include <set>
#include <utility>

#include <KestrinHousehold/outbox/Outbox.hpp>
#include <KestrinHousehold/outbox/internal/Comparison.hpp>
#include <KestrinHousehold/outbox/internal/DeliveryFailure.hpp>
#include <KestrinHousehold/outbox/internal/EntryLane.hpp>
#include <KestrinHousehold/outbox/internal/EventStream.hpp>
#include <KestrinHousehold/time/TimerThread.hpp>
#include <internal/HTTPDate.hpp>

namespace KestrinHousehold {

using HalvardSling::Observable;
using HalvardSling::Response;
using internal::Comparison;
using internal::DeliveryFailure;
using internal::EntryLane;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using Kind = OutboxEvent::Kind;
using Number = std::int64_t;

namespace {

template <class T>
using Subscriber = rxcpp::subscriber<T>;

template <class T>
void fail(const Subscriber<T>& subscriber, OutboxError::Case value, const std::string& detail) {
    subscriber.on_error(std::make_exception_ptr(OutboxError(value, detail)));
}

DeliveryFailure noList() {
    DeliveryFailure failure;
    failure.text = "the service's reply is no list";
    return failure;
}

/// Requests do not follow redirects unless they are told to: such a reply, of a network's sign-in
/// page for instance, says that the service has done nothing.
DeliveryFailure noSuccess(int status) {
    DeliveryFailure failure;
    failure.text = "the reply has status " + std::to_string(status);
    return failure;
}

bool isSuccess(int status) {
    return status >= 200 && status < 300;
}

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

/// Everything behind an outbox. Nothing of the application's is called with `mutex_` held, but the
/// scheduler.
class [[gnu::visibility("hidden")]] Outbox::Core : public std::enable_shared_from_this<Core> {
  public:
    Core(std::shared_ptr<OutboxStore> store, std::shared_ptr<OutboxDelivery> delivery,
         std::shared_ptr<Scheduler> scheduler, OutboxOptions options)
        : store_(std::move(store)),
          delivery_(std::move(delivery)),
          scheduler_(scheduler ? std::move(scheduler) : std::make_shared<TimerThread>()),
          options_(std::move(options)) {}

    void close();

    void add(OutboxWrite write, const Subscriber<OutboxEntry>& subscriber);
    void drop(Number number, const Subscriber<bool>& subscriber);
    void tellOpening(const Subscriber<OutboxOpening>& subscriber);
    void tellSettled(const Subscriber<OutboxState>& subscriber);
    [[nodiscard]] std::vector<OutboxEntry> entries() const;
    [[nodiscard]] std::vector<OutboxEntry> refused() const;
    void networkIsBack();
    void bindIsNew(const std::string& profileID);
    [[nodiscard]] Observable<OutboxEvent> events() { return events_->observable(); }

    /// Tells the application's log what happens from now on.
    void logEvents() {
        if (options_.log)
            events_->observable().subscribe(
                [log = options_.log](const OutboxEvent& event) { log(event); });
    }

    /// Opens the store soon, and does what waits for it.
    void requestWork();

  private:
    /// A profile's entries, and what is being done about the first of them.
    struct Lane {
        EntryLane entries;
        bool isStarting = false;    ///< a thread is in `run`
        bool awaitsReply = false;   ///< a request is on its way
        std::uint64_t request = 0;  ///< its number
        std::optional<rxcpp::composite_subscription> lifetime{};
        bool isUnderWay = false;            ///< the first entry was begun
        bool isComparing = false;           ///< the request asks for what the service has
        std::vector<OutboxWrite> writes{};  ///< what is still to be sent for it, the next one last
        bool waitsForBind = false;
        bool bindCame = false;  ///< since the request under way was made
        int failures = 0;
        Scheduler::TaskID retry = 0;
        bool hasNoTimer = false;   ///< none was to be had: the next write or network begins again
        bool isForgotten = false;  ///< the store was opened anew since
    };
    using LanePointer = std::shared_ptr<Lane>;

    /// A write that is not on the disk yet.
    struct Incoming {
        OutboxEntry entry;
        Subscriber<OutboxEntry> subscriber;
        bool isAccepted = false;
    };
    struct Dropping {
        Number number;
        Subscriber<bool> subscriber;
        bool isDropped = false;
    };
    /// What waits for the store.
    struct Waiting {
        std::vector<Incoming> incoming{};
        std::vector<Dropping> drops{};

        [[nodiscard]] bool isEmpty() const { return incoming.empty() && drops.empty(); }
    };
    /// What one commit is about.
    struct Batch {
        Waiting waiting{};
        std::vector<Number> removals{};
        std::vector<OutboxEntry> refusals{};
        std::vector<OutboxEntry> changed{};
        std::vector<LanePointer> lanes{};
        OutboxStore::Change change{};
        std::vector<OutboxEvent> events{};
        std::uint64_t beginning = 0;  ///< the one that `removals` and `refusals` are from
        bool isStored = false;

        [[nodiscard]] bool isEmpty() const {
            return waiting.isEmpty() && removals.empty() && refusals.empty();
        }
    };
    struct Request {
        OutboxWrite write;
        bool isComparing = false;
        std::uint64_t number = 0;
        rxcpp::composite_subscription lifetime{};
    };
    using Events = std::vector<OutboxEvent>;
    /// Holds `storeMutex_`, until somebody is told of what was done: a handler may ask for more, or
    /// end the outbox.
    using Storing = std::unique_lock<std::mutex>;
    /// Somebody is in `work`.
    struct Working {
        explicit Working(Core& core) : core_(core) {
            const std::scoped_lock lock(core_.mutex_);
            core_.isWorkRequested_ = false;
            ++core_.working_;
        }
        Working(const Working&) = delete;
        Working& operator=(const Working&) = delete;
        ~Working() {
            const std::scoped_lock lock(core_.mutex_);
            --core_.working_;
        }

      private:
        Core& core_;
    };

    // The store. On one thread at a time.
    [[nodiscard]] bool scheduleWork();
    void work();
    [[nodiscard]] bool workOnce();
    [[nodiscard]] bool open(Storing storing);
    void loaded(OutboxStore::Loaded found, const Waiting& waiting, Storing storing);
    void notLoaded(const OutboxError& error, const Waiting& waiting, Storing storing);
    void takeBatch(Batch& batch);
    void planIncoming(Batch& batch, Incoming& incoming);
    void takeDrop(Batch& batch, Dropping& dropping);
    [[nodiscard]] bool storeNext(Storing storing);
    [[nodiscard]] bool store(Batch& batch, Storing storing);
    void kept(Batch& batch, Storing storing);
    void notKept(Batch& batch, const OutboxError& error, Storing storing);
    static void tellStored(const Waiting& waiting, const std::exception_ptr& noRoom);
    [[nodiscard]] Waiting takeWaiting();
    static void failAll(const Waiting& waiting, const std::exception_ptr& error);

    // A lack of memory.
    template <class Work>
    void withMemory(const Work& work);
    void beginAnew();

    // Sending.
    void runAll();
    void run(const LanePointer& lane);
    [[nodiscard]] std::optional<Request> nextRequest(Lane& lane, Events& events);
    [[nodiscard]] bool begin(Lane& lane, Events& events);
    void start(const LanePointer& lane, const Request& request);
    void replied(const LanePointer& lane, std::uint64_t request, const Response& reply);
    void failed(const LanePointer& lane, std::uint64_t request, const std::exception_ptr& error);
    void completed(const LanePointer& lane, std::uint64_t request);
    void goOn(const LanePointer& lane);
    void queue(Events events);
    void tell();
    [[nodiscard]] bool ends(Lane& lane, std::uint64_t request);
    void compared(Lane& lane, const KestrinProfile::UserProfile& list, Events& events);
    void finish(Lane& lane, Kind kind, std::string text, Events& events);
    void awaitBind(Lane& lane, const DeliveryFailure& failure, Events& events);
    void refuse(Lane& lane, const DeliveryFailure& failure, Events& events);
    void postpone(const LanePointer& lane, const DeliveryFailure& failure, Events& events);
    void fail(const LanePointer& lane, const DeliveryFailure& failure, Events& events);
    void noteDate(const HalvardSling::Headers& headers);
    [[nodiscard]] Scheduler::WallTime serviceTimeOf(const OutboxEntry& entry) const;
    [[nodiscard]] nanoseconds ageOf(const OutboxEntry& entry) const;
    void removeSoon();
    void workAfter(nanoseconds delay);
    [[nodiscard]] std::optional<rxcpp::composite_subscription> takeLifetime();

    // With the lock held.
    [[nodiscard]] LanePointer laneOf(const std::string& profileID);
    [[nodiscard]] std::size_t waiting() const;
    [[nodiscard]] bool isSettled() const;
    void tellSettledOnes();

    std::shared_ptr<OutboxStore> store_;
    const std::shared_ptr<OutboxDelivery> delivery_;
    const std::shared_ptr<Scheduler> scheduler_;
    const OutboxOptions options_;
    const std::shared_ptr<internal::EventStream<OutboxEvent>> events_ =
        std::make_shared<internal::EventStream<OutboxEvent>>();

    std::mutex storeMutex_;
    mutable std::mutex mutex_;
    std::unique_ptr<TimerThread> disk_ = std::make_unique<TimerThread>();
    bool isWorkRequested_ = false;
    int telling_ = 0;  ///< how many threads have events to tell
    int working_ = 0;  ///< how many threads are in `work`, or how often one is
    bool isOpen_ = false;
    bool isClosed_ = false;
    OutboxOpening opening_;
    std::optional<OutboxError> openingError_;
    std::vector<Subscriber<OutboxOpening>> awaitOpening_;
    std::vector<Subscriber<OutboxState>> awaitSettled_;

    std::map<std::string, LanePointer> lanes_;
    std::map<Number, OutboxEntry> refused_;
    Number last_ = 0;
    std::vector<Incoming> incoming_;
    std::vector<Dropping> drops_;
    std::vector<Number> removals_;
    std::vector<OutboxEntry> refusals_;
    Scheduler::TaskID removal_ = 0;
    std::optional<milliseconds> clockDifference_;
    std::minstd_rand random_{std::random_device()()};
    std::uint64_t requests_ = 0;
    std::uint64_t beginning_ = 0;  ///< how often it began anew

    // Made while there is memory.
    const std::optional<OutboxError> lackOfMemory_{std::in_place, OutboxError::Case::notStored,
                                                   "there is not enough memory"};
    const std::exception_ptr withoutMemory_ = std::make_exception_ptr(*lackOfMemory_);
    const std::exception_ptr closed_ =
        std::make_exception_ptr(OutboxError(OutboxError::Case::closed));
};

Outbox::Core::LanePointer Outbox::Core::laneOf(const std::string& profileID) {
    const auto found = lanes_.find(profileID);
    if (found != lanes_.end()) return found->second;
    return lanes_.emplace(profileID, std::make_shared<Lane>()).first->second;
}

std::size_t Outbox::Core::waiting() const {
    std::size_t count = 0;
    for (const auto& [profile, lane] : lanes_)
        count += lane->entries.size();
    return count;
}

// What the application asks for.

void Outbox::Core::add(OutboxWrite write, const Subscriber<OutboxEntry>& subscriber) {
    if (const auto problem = problemOf(write))
        return KestrinHousehold::fail(subscriber, OutboxError::Case::invalidWrite, *problem);
    OutboxEntry entry;
    entry.write = std::move(write);
    entry.acceptedAt = std::chrono::floor<milliseconds>(scheduler_->wallTime());
    bool isKept = false;
    {
        const std::scoped_lock lock(mutex_);
        entry.clockDifference = clockDifference_;
        isKept = !isClosed_;
        if (isKept) incoming_.push_back({std::move(entry), subscriber});
    }
    if (!isKept) return subscriber.on_error(closed_);
    requestWork();
}

void Outbox::Core::drop(Number number, const Subscriber<bool>& subscriber) {
    {
        const std::scoped_lock lock(mutex_);
        drops_.push_back({number, subscriber});
    }
    requestWork();
}

void Outbox::Core::tellOpening(const Subscriber<OutboxOpening>& subscriber) {
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

void Outbox::Core::tellSettled(const Subscriber<OutboxState>& subscriber) {
    bool isClosed = false;
    {
        const std::scoped_lock lock(mutex_);
        isClosed = isClosed_;
        if (!isClosed) awaitSettled_.push_back(subscriber);
    }
    if (isClosed) return subscriber.on_error(closed_);
    tellSettledOnes();
}

std::vector<OutboxEntry> Outbox::Core::entries() const {
    const std::scoped_lock lock(mutex_);
    std::vector<OutboxEntry> all;
    for (const auto& [profile, lane] : lanes_)
        std::ranges::move(lane->entries.entries(), std::back_inserter(all));
    std::ranges::sort(all, {}, &OutboxEntry::number);
    return all;
}

std::vector<OutboxEntry> Outbox::Core::refused() const {
    const std::scoped_lock lock(mutex_);
    std::vector<OutboxEntry> all;
    all.reserve(refused_.size());
    for (const auto& [number, entry] : refused_)
        all.push_back(entry);
    return all;
}

void Outbox::Core::networkIsBack() {
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

void Outbox::Core::bindIsNew(const std::string& profileID) {
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

/// Does what may lack memory. Where it does, all begins anew.
template <class Work>
void Outbox::Core::withMemory(const Work& work) {
    try {
        work();
    } catch (const std::bad_alloc&) {
        beginAnew();
    }
}

/// Forgets all but what is in the store and what waits for it, as a restart does.
void Outbox::Core::beginAnew() {
    constexpr std::chrono::seconds again(5);
    std::map<std::string, LanePointer> lanes;
    std::vector<Subscriber<OutboxOpening>> opening;
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

// The store.

void Outbox::Core::requestWork() {
    {
        const std::scoped_lock lock(mutex_);
        if (std::exchange(isWorkRequested_, true) || scheduleWork()) return;
    }
    work();
}

/// Has it done on the thread of the store; false if there is none to be had.
bool Outbox::Core::scheduleWork() {
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

void Outbox::Core::work() {
    withMemory([this] {
        const Working working(*this);
        while (workOnce()) {
        }
    });
    withMemory([this] { runAll(); });
    tellSettledOnes();
}

/// Does what waits for the store; false if nothing does, or it failed.
bool Outbox::Core::workOnce() {
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

bool Outbox::Core::open(Storing storing) {
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

void Outbox::Core::notLoaded(const OutboxError& error, const Waiting& waiting, Storing storing) {
    const auto failure = std::make_exception_ptr(error);
    std::vector<Subscriber<OutboxOpening>> subscribers;
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

void Outbox::Core::loaded(OutboxStore::Loaded found, const Waiting& waiting, Storing storing) {
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
    std::vector<Subscriber<OutboxOpening>> subscribers;
    {
        const std::scoped_lock lock(mutex_);
        subscribers.swap(awaitOpening_);
    }
    for (const auto& subscriber : subscribers) {
        subscriber.on_next(opening);
        subscriber.on_completed();
    }
}

Outbox::Core::Waiting Outbox::Core::takeWaiting() {
    const std::scoped_lock lock(mutex_);
    return {std::exchange(incoming_, {}), std::exchange(drops_, {})};
}

/// Nothing that waits for the store gets what it waits for.
void Outbox::Core::failAll(const Waiting& waiting, const std::exception_ptr& error) {
    for (const auto& one : waiting.incoming)
        one.subscriber.on_error(error);
    for (const auto& one : waiting.drops)
        one.subscriber.on_error(error);
}

void Outbox::Core::takeBatch(Batch& batch) {
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

void Outbox::Core::planIncoming(Batch& batch, Incoming& incoming) {
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

void Outbox::Core::takeDrop(Batch& batch, Dropping& dropping) {
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

bool Outbox::Core::storeNext(Storing storing) {
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

bool Outbox::Core::store(Batch& batch, Storing storing) {
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

void Outbox::Core::kept(Batch& batch, Storing storing) {
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

void Outbox::Core::tellStored(const Waiting& waiting, const std::exception_ptr& noRoom) {
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

void Outbox::Core::notKept(Batch& batch, const OutboxError& error, Storing storing) {
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

// Sending.

void Outbox::Core::runAll() {
    std::vector<LanePointer> lanes;
    {
        const std::scoped_lock lock(mutex_);
        for (const auto& [profile, lane] : lanes_)
            lanes.push_back(lane);
    }
    for (const auto& lane : lanes)
        run(lane);
}

/// Makes requests of a profile until one is on its way, or none can be made. A delivery that
/// answers at once is not called from inside itself.
void Outbox::Core::run(const LanePointer& lane) {
    for (;;) {
        Events events;
        std::optional<Request> request;
        {
            const std::scoped_lock lock(mutex_);
            request = nextRequest(*lane, events);
            queue(std::move(events));
        }
        tell();
        if (!request) break;
        start(lane, *request);
        const std::scoped_lock lock(mutex_);
        lane->isStarting = false;
        if (lane->awaitsReply) return;
    }
    tellSettledOnes();
}

/// A lane is there only once the store is open.
std::optional<Outbox::Core::Request> Outbox::Core::nextRequest(Lane& lane, Events& events) {
    if (isClosed_ || lane.isForgotten || lane.isStarting || lane.awaitsReply || lane.waitsForBind ||
        lane.retry != 0 || lane.hasNoTimer)
        return std::nullopt;
    if (!lane.isUnderWay && !begin(lane, events)) return std::nullopt;
    lane.isStarting = true;
    lane.awaitsReply = true;
    lane.bindCame = false;
    lane.request = ++requests_;
    lane.lifetime.emplace();
    return Request{lane.writes.back(), lane.isComparing, lane.request, *lane.lifetime};
}

/// Begins with the first entry, unless there is none; those that have expired go.
bool Outbox::Core::begin(Lane& lane, Events& events) {
    for (;;) {
        const OutboxEntry* const entry = lane.entries.next();
        if (entry == nullptr) return false;
        const auto age = ageOf(*entry);
        lane.entries.begin();
        lane.isUnderWay = true;
        lane.writes = {entry->write};
        // One that is not accepted yet by this clock: the clock was set.
        const bool isLate = age > options_.compareAfter || age < nanoseconds(0);
        lane.isComparing = isLate && internal::isComparable(entry->write);
        if (age <= options_.maxAge) return true;
        finish(lane, Kind::expired, "it has waited for too long", events);
    }
}

void Outbox::Core::start(const LanePointer& lane, const Request& request) {
    const std::weak_ptr<Core> weak = weak_from_this();
    const auto number = request.number;
    const auto with = [weak](const auto& handle) {
        if (const auto core = weak.lock()) core->withMemory([&] { handle(*core); });
    };
    try {
        const auto replies =
            request.isComparing ? delivery_->lookUp(request.write) : delivery_->send(request.write);
        replies.subscribe(
            request.lifetime,
            [with, lane, number](const Response& reply) {
                with([&](Core& core) { core.replied(lane, number, reply); });
            },
            [with, lane, number](const std::exception_ptr& error) {
                with([&](Core& core) { core.failed(lane, number, error); });
            },
            [with, lane, number] { with([&](Core& core) { core.completed(lane, number); }); });
    } catch (...) {
        failed(lane, number, std::current_exception());
    }
}

/// Puts events behind those that are to be told, in the order of what happens here; `tell` follows
/// without the lock.
void Outbox::Core::queue(Events events) {
    events_->queue(std::move(events));
    ++telling_;
}

void Outbox::Core::tell() {
    events_->send();
    const std::scoped_lock lock(mutex_);
    --telling_;
}

/// Whether a request ends with this; false if it has ended.
bool Outbox::Core::ends(Lane& lane, std::uint64_t request) {
    if (isClosed_ || lane.isForgotten || !lane.awaitsReply || lane.request != request) return false;
    lane.awaitsReply = false;
    return true;
}

/// After the end of a request: on this thread, or on the one that has just begun it.
void Outbox::Core::goOn(const LanePointer& lane) {
    {
        const std::scoped_lock lock(mutex_);
        if (lane->isStarting) return;
    }
    run(lane);
}

void Outbox::Core::replied(const LanePointer& lane, std::uint64_t request, const Response& reply) {
    Events events;
    {
        const std::scoped_lock lock(mutex_);
        if (!ends(*lane, request)) return;
        noteDate(reply.headers());
        if (lane->isComparing) {
            const auto list = internal::listIn(reply);
            if (list)
                compared(*lane, *list, events);
            else
                postpone(lane, noList(), events);
        } else if (!isSuccess(reply.status())) {
            postpone(lane, noSuccess(reply.status()), events);
        } else {
            lane->writes.pop_back();
            if (lane->writes.empty()) finish(*lane, Kind::sent, "the service has it", events);
        }
        queue(std::move(events));
    }
    tell();
    goOn(lane);
}

void Outbox::Core::compared(Lane& lane, const KestrinProfile::UserProfile& list, Events& events) {
    lane.isComparing = false;
    const auto& entry = lane.entries.first();
    auto comparison = internal::compare(lane.writes.back(), serviceTimeOf(entry), list);
    if (comparison.verdict == Comparison::Verdict::alreadyThere)
        return finish(lane, Kind::sent, "the service had it already", events);
    if (comparison.verdict == Comparison::Verdict::stale)
        return finish(lane, Kind::droppedAsStale, "the service has something newer", events);
    lane.writes = std::move(comparison.writes);
    std::ranges::reverse(lane.writes);
}

void Outbox::Core::failed(const LanePointer& lane, std::uint64_t request,
                          const std::exception_ptr& error) {
    const auto failure = internal::deliveryFailure(error, scheduler_->wallTime());
    Events events;
    {
        const std::scoped_lock lock(mutex_);
        if (!ends(*lane, request)) return;
        noteDate(failure.headers);
        fail(lane, failure, events);
        queue(std::move(events));
    }
    tell();
    goOn(lane);
}

/// After the reply; without one, this is a failure.
void Outbox::Core::completed(const LanePointer& lane, std::uint64_t request) {
    {
        const std::scoped_lock lock(mutex_);
        if (!lane->awaitsReply || lane->request != request) return;
    }
    failed(lane, request, nullptr);
}

void Outbox::Core::fail(const LanePointer& lane, const DeliveryFailure& failure, Events& events) {
    if (failure.kind == DeliveryFailure::Kind::passing) return postpone(lane, failure, events);
    if (failure.kind == DeliveryFailure::Kind::needsBind) return awaitBind(*lane, failure, events);
    if (failure.kind == DeliveryFailure::Kind::refusal || !lane->isComparing)
        return refuse(*lane, failure, events);
    lane->isComparing = false;  // Nothing newer is there than what the entry says.
}

void Outbox::Core::awaitBind(Lane& lane, const DeliveryFailure& failure, Events& events) {
    lane.isUnderWay = false;
    lane.waitsForBind = !lane.bindCame;  // else it is made once more with the new one
    if (lane.waitsForBind)
        events.push_back({Kind::waitsForBind, lane.entries.first(), failure.text});
    lane.entries.end(scheduler_->wallTime());
}

void Outbox::Core::refuse(Lane& lane, const DeliveryFailure& failure, Events& events) {
    lane.isUnderWay = false;
    lane.failures = 0;
    auto entry = lane.entries.takeUnderWay(scheduler_->wallTime(), false);
    entry.refusal = failure.refusal;
    events.push_back({Kind::refused, entry, failure.text});
    refusals_.push_back(entry);
    refused_.insert_or_assign(entry.number, std::move(entry));
    while (refused_.size() > options_.maxRefused) {
        auto oldest = refused_.extract(refused_.begin());
        removals_.push_back(oldest.key());
        events.push_back(
            {Kind::forgotten, std::move(oldest.mapped()), "the list of refused entries is full"});
    }
    removeSoon();
}

/// The first entry stays, and is tried again later.
void Outbox::Core::postpone(const LanePointer& lane, const DeliveryFailure& failure,
                            Events& events) {
    constexpr int mostDoublings = 30;
    constexpr nanoseconds longestAsked = std::chrono::hours(24);
    const double factor = static_cast<double>(1U << std::min(lane->failures++, mostDoublings));
    const auto most = std::min(static_cast<double>(options_.firstDelay.count()) * factor,
                               static_cast<double>(options_.longestDelay.count()));
    const double share = 1 - std::uniform_real_distribution(0.0, 0.5)(random_);
    auto delay = nanoseconds(static_cast<nanoseconds::rep>(most * share));
    if (failure.retryAfter)
        delay = std::max(delay, std::min<nanoseconds>(*failure.retryAfter, longestAsked));
    lane->isUnderWay = false;
    events.push_back({Kind::delayed, lane->entries.first(), failure.text, {}, delay});
    lane->entries.end(scheduler_->wallTime());
    try {
        lane->retry = scheduler_->after(delay, [weak = weak_from_this(), lane] {
            const auto core = weak.lock();
            if (!core) return;
            {
                const std::scoped_lock lock(core->mutex_);
                lane->retry = 0;
            }
            core->withMemory([&] { core->run(lane); });
        });
    } catch (const std::exception&) {
        lane->hasNoTimer = true;
    }
}

/// The first entry is done with.
void Outbox::Core::finish(Lane& lane, Kind kind, std::string text, Events& events) {
    lane.isUnderWay = false;
    lane.isComparing = false;
    lane.failures = 0;
    auto entry = lane.entries.takeUnderWay(scheduler_->wallTime(), kind == Kind::sent);
    removals_.push_back(entry.number);
    events.push_back({kind, std::move(entry), std::move(text)});
    removeSoon();
}

/// Takes what was sent out of the store: at once if nothing else is to be sent, else some together.
void Outbox::Core::removeSoon() {
    constexpr std::size_t mostTogether = 256;
    const bool isNow = waiting() == 0 || removals_.size() >= mostTogether;
    if (!isNow && removal_ != 0) return;
    const auto delay = isNow ? nanoseconds(0) : options_.removalDelay;
    scheduler_->cancel(std::exchange(removal_, 0));
    workAfter(delay);
}

/// With no timer to be had the removals wait for the next commit.
void Outbox::Core::workAfter(nanoseconds delay) {
    try {
        removal_ = scheduler_->after(delay, [weak = weak_from_this()] {
            if (const auto core = weak.lock()) core->requestWork();
        });
    } catch (const std::exception&) {
        removal_ = 0;
    }
}

void Outbox::Core::noteDate(const HalvardSling::Headers& headers) {
    const auto now = scheduler_->wallTime();
    const auto text = headers.value("Date");
    const auto date = text ? KestrinInternal::parseHTTPDate(*text, now) : std::nullopt;
    if (!date) return;
    constexpr milliseconds middleOfSecond(500);
    clockDifference_ = std::chrono::floor<milliseconds>(*date + middleOfSecond - now);
}

/// When an entry was accepted, or an own earlier write of the same item had ended, by the service's
/// clock.
Scheduler::WallTime Outbox::Core::serviceTimeOf(const OutboxEntry& entry) const {
    const auto difference = entry.clockDifference ? entry.clockDifference : clockDifference_;
    return std::max(entry.acceptedAt, entry.ownUntil.value_or(entry.acceptedAt)) +
           difference.value_or(milliseconds(0));
}

nanoseconds Outbox::Core::ageOf(const OutboxEntry& entry) const {
    // Both times by the service's clock where it is known: then it does not matter if the device's
    // was set between.
    const auto before =
        entry.clockDifference && clockDifference_ ? *entry.clockDifference : milliseconds(0);
    const auto now =
        entry.clockDifference && clockDifference_ ? *clockDifference_ : milliseconds(0);
    return (scheduler_->wallTime() + now) - (entry.acceptedAt + before);
}

bool Outbox::Core::isSettled() const {
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

void Outbox::Core::tellSettledOnes() {
    std::vector<Subscriber<OutboxState>> subscribers;
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

void Outbox::Core::close() {
    std::unique_ptr<TimerThread> disk;
    std::vector<Subscriber<OutboxState>> settled;
    std::vector<Subscriber<OutboxOpening>> opening;
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
std::optional<rxcpp::composite_subscription> Outbox::Core::takeLifetime() {
    const std::scoped_lock lock(mutex_);
    std::optional<rxcpp::composite_subscription> lifetime;
    for (const auto& [profile, lane] : lanes_)
        if (!lifetime) lifetime.swap(lane->lifetime);
    return lifetime;
}

Outbox::Outbox(std::shared_ptr<OutboxStore> store, std::shared_ptr<OutboxDelivery> delivery,
               std::shared_ptr<Scheduler> scheduler, OutboxOptions options)
    : core_(std::make_shared<Core>(std::move(store), std::move(delivery), std::move(scheduler),
                                   std::move(options))) {
    core_->logEvents();
    core_->requestWork();
}

Outbox::~Outbox() {
    core_->close();
}

namespace {

/// An observable that asks the core of an outbox, unless that was destroyed.
template <class T, class Core, class Ask>
Observable<T> asking(const std::shared_ptr<Core>& core, Ask ask) {
    return rxcpp::observable<>::create<T>(
        [weak = std::weak_ptr<Core>(core), ask = std::move(ask)](const Subscriber<T>& subscriber) {
            if (const auto open = weak.lock())
                ask(*open, subscriber);
            else
                fail(subscriber, OutboxError::Case::closed, "");
        });
}

}  // namespace

Observable<OutboxOpening> Outbox::opening() const {
    return asking<OutboxOpening>(
        core_, [](Core& core, const auto& subscriber) { core.tellOpening(subscriber); });
}

Observable<OutboxEntry> Outbox::add(OutboxWrite write) const {
    return asking<OutboxEntry>(core_,
                               [write = std::move(write)](Core& core, const auto& subscriber) {
                                   core.add(write, subscriber);
                               });
}

Observable<bool> Outbox::drop(Number number) const {
    return asking<bool>(
        core_, [number](Core& core, const auto& subscriber) { core.drop(number, subscriber); });
}

Observable<OutboxState> Outbox::settled() const {
    return asking<OutboxState>(
        core_, [](Core& core, const auto& subscriber) { core.tellSettled(subscriber); });
}

Observable<OutboxEvent> Outbox::events() const {
    return core_->events();
}

std::vector<OutboxEntry> Outbox::entries() const {
    return core_->entries();
}

std::vector<OutboxEntry> Outbox::refused() const {
    return core_->refused();
}

void Outbox::networkIsBack() {
    const auto core = core_;  // a handler may end the outbox
    core->networkIsBack();
}

void Outbox::bindIsNew(const std::string& profileID) {
    const auto core = core_;  // as above
    core->bindIsNew(profileID);
}

}  // namespace KestrinHousehold
