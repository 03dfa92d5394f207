#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <HalvardSling/http/Response.hpp>
#include <HalvardSling/rx/Observable.hpp>
#include <KestrinHousehold/outbox/Outbox.hpp>
#include <KestrinHousehold/outbox/internal/DeliveryFailure.hpp>
#include <KestrinHousehold/outbox/internal/EntryLane.hpp>
#include <KestrinHousehold/outbox/internal/EventStream.hpp>
#include <KestrinHousehold/outbox/internal/ServiceClock.hpp>
#include <KestrinHousehold/time/TimerThread.hpp>
#include <KestrinProfile/model/UserProfile.hpp>

namespace KestrinHousehold::internal {

/// Everything behind an outbox. Nothing of the application's is called with `mutex_` held, but the
/// scheduler. OutboxStoring.cpp has its work with the store, OutboxSending.cpp that with the
/// service.
class OutboxCore : public std::enable_shared_from_this<OutboxCore> {
  public:
    OutboxCore(std::shared_ptr<OutboxStore> store, std::shared_ptr<OutboxDelivery> delivery,
               std::shared_ptr<Scheduler> scheduler, OutboxOptions options)
        : store_(std::move(store)),
          delivery_(std::move(delivery)),
          scheduler_(scheduler ? std::move(scheduler) : std::make_shared<TimerThread>()),
          options_(std::move(options)) {}

    void close();

    void add(OutboxWrite write, const rxcpp::subscriber<OutboxEntry>& subscriber);
    void drop(std::int64_t number, const rxcpp::subscriber<bool>& subscriber);
    void tellOpening(const rxcpp::subscriber<OutboxOpening>& subscriber);
    void tellSettled(const rxcpp::subscriber<OutboxState>& subscriber);
    [[nodiscard]] std::vector<OutboxEntry> entries() const;
    [[nodiscard]] std::vector<OutboxEntry> refused() const;
    void networkIsBack();
    void bindIsNew(const std::string& profileID);
    [[nodiscard]] HalvardSling::Observable<OutboxEvent> events() { return events_->observable(); }

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
        rxcpp::subscriber<OutboxEntry> subscriber;
        bool isAccepted = false;
    };
    struct Dropping {
        std::int64_t number;
        rxcpp::subscriber<bool> subscriber;
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
        std::vector<std::int64_t> removals{};
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
        explicit Working(OutboxCore& core) : core_(core) {
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
        OutboxCore& core_;
    };

    // OutboxStoring.cpp: the store. On one thread at a time.
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
    void removeSoon();
    void workAfter(std::chrono::nanoseconds delay);

    // A lack of memory.
    template <class Work>
    void withMemory(const Work& work);
    void beginAnew();

    // OutboxSending.cpp: the service.
    void runAll();
    void run(const LanePointer& lane);
    [[nodiscard]] std::optional<Request> nextRequest(Lane& lane, Events& events);
    [[nodiscard]] bool begin(Lane& lane, Events& events);
    void start(const LanePointer& lane, const Request& request);
    void replied(const LanePointer& lane, std::uint64_t request,
                 const HalvardSling::Response& reply);
    void failed(const LanePointer& lane, std::uint64_t request, const std::exception_ptr& error);
    void completed(const LanePointer& lane, std::uint64_t request);
    void goOn(const LanePointer& lane);
    void queue(Events events);
    void tell();
    [[nodiscard]] bool ends(Lane& lane, std::uint64_t request);
    void compared(Lane& lane, const KestrinProfile::UserProfile& list, Events& events);
    void finish(Lane& lane, OutboxEvent::Kind kind, std::string text, Events& events);
    void awaitBind(Lane& lane, const DeliveryFailure& failure, Events& events);
    void refuse(Lane& lane, const DeliveryFailure& failure, Events& events);
    void postpone(const LanePointer& lane, const DeliveryFailure& failure, Events& events);
    void fail(const LanePointer& lane, const DeliveryFailure& failure, Events& events);

    void tellSettledOnes();
    [[nodiscard]] std::optional<rxcpp::composite_subscription> takeLifetime();

    // With the lock held.
    [[nodiscard]] LanePointer laneOf(const std::string& profileID);
    [[nodiscard]] std::size_t waiting() const;
    [[nodiscard]] bool isSettled() const;

    std::shared_ptr<OutboxStore> store_;
    const std::shared_ptr<OutboxDelivery> delivery_;
    const std::shared_ptr<Scheduler> scheduler_;
    const OutboxOptions options_;
    const std::shared_ptr<EventStream<OutboxEvent>> events_ =
        std::make_shared<EventStream<OutboxEvent>>();

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
    std::vector<rxcpp::subscriber<OutboxOpening>> awaitOpening_;
    std::vector<rxcpp::subscriber<OutboxState>> awaitSettled_;

    std::map<std::string, LanePointer> lanes_;
    std::map<std::int64_t, OutboxEntry> refused_;
    std::int64_t last_ = 0;
    std::vector<Incoming> incoming_;
    std::vector<Dropping> drops_;
    std::vector<std::int64_t> removals_;
    std::vector<OutboxEntry> refusals_;
    Scheduler::TaskID removal_ = 0;
    ServiceClock serviceClock_;
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

/// Does what may lack memory. Where it does, all begins anew.
template <class Work>
void OutboxCore::withMemory(const Work& work) {
    try {
        work();
    } catch (const std::bad_alloc&) {
        beginAnew();
    }
}

}  // namespace KestrinHousehold::internal
