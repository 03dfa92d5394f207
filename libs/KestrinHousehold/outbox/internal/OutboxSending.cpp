// How an outbox sends what it holds.

#include <algorithm>
#include <random>
#include <utility>

#include <KestrinHousehold/outbox/internal/Backoff.hpp>
#include <KestrinHousehold/outbox/internal/Comparison.hpp>
#include <KestrinHousehold/outbox/internal/OutboxCore.hpp>

namespace KestrinHousehold::internal {

using HalvardSling::Response;
using std::chrono::nanoseconds;
using Kind = OutboxEvent::Kind;

namespace {

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

}  // namespace

void OutboxCore::runAll() {
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
void OutboxCore::run(const LanePointer& lane) {
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
std::optional<OutboxCore::Request> OutboxCore::nextRequest(Lane& lane, Events& events) {
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
bool OutboxCore::begin(Lane& lane, Events& events) {
    for (;;) {
        const OutboxEntry* const entry = lane.entries.next();
        if (entry == nullptr) return false;
        const auto age = serviceClock_.ageOf(*entry, scheduler_->wallTime());
        lane.entries.begin();
        lane.isUnderWay = true;
        lane.writes = {entry->write};
        // One that is not accepted yet by this clock: the clock was set.
        const bool isLate = age > options_.compareAfter || age < nanoseconds(0);
        lane.isComparing = isLate && isComparable(entry->write);
        if (age <= options_.maxAge) return true;
        finish(lane, Kind::expired, "it has waited for too long", events);
    }
}

void OutboxCore::start(const LanePointer& lane, const Request& request) {
    const std::weak_ptr<OutboxCore> weak = weak_from_this();
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
                with([&](OutboxCore& core) { core.replied(lane, number, reply); });
            },
            [with, lane, number](const std::exception_ptr& error) {
                with([&](OutboxCore& core) { core.failed(lane, number, error); });
            },
            [with, lane, number] {
                with([&](OutboxCore& core) { core.completed(lane, number); });
            });
    } catch (...) {
        failed(lane, number, std::current_exception());
    }
}

/// Puts events behind those that are to be told, in the order of what happens here; `tell` follows
/// without the lock.
void OutboxCore::queue(Events events) {
    events_->queue(std::move(events));
    ++telling_;
}

void OutboxCore::tell() {
    events_->send();
    const std::scoped_lock lock(mutex_);
    --telling_;
}

/// Whether a request ends with this; false if it has ended.
bool OutboxCore::ends(Lane& lane, std::uint64_t request) {
    if (isClosed_ || lane.isForgotten || !lane.awaitsReply || lane.request != request) return false;
    lane.awaitsReply = false;
    return true;
}

/// After the end of a request: on this thread, or on the one that has just begun it.
void OutboxCore::goOn(const LanePointer& lane) {
    {
        const std::scoped_lock lock(mutex_);
        if (lane->isStarting) return;
    }
    run(lane);
}

void OutboxCore::replied(const LanePointer& lane, std::uint64_t request, const Response& reply) {
    Events events;
    {
        const std::scoped_lock lock(mutex_);
        if (!ends(*lane, request)) return;
        serviceClock_.note(reply.headers(), scheduler_->wallTime());
        if (lane->isComparing) {
            const auto list = listIn(reply);
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

void OutboxCore::compared(Lane& lane, const KestrinProfile::UserProfile& list, Events& events) {
    lane.isComparing = false;
    const auto& entry = lane.entries.first();
    auto comparison = compare(lane.writes.back(), serviceClock_.timeOf(entry), list);
    if (comparison.verdict == Comparison::Verdict::alreadyThere)
        return finish(lane, Kind::sent, "the service had it already", events);
    if (comparison.verdict == Comparison::Verdict::stale)
        return finish(lane, Kind::droppedAsStale, "the service has something newer", events);
    lane.writes = std::move(comparison.writes);
    std::ranges::reverse(lane.writes);
}

void OutboxCore::failed(const LanePointer& lane, std::uint64_t request,
                        const std::exception_ptr& error) {
    const auto failure = deliveryFailure(error, scheduler_->wallTime());
    Events events;
    {
        const std::scoped_lock lock(mutex_);
        if (!ends(*lane, request)) return;
        serviceClock_.note(failure.headers, scheduler_->wallTime());
        fail(lane, failure, events);
        queue(std::move(events));
    }
    tell();
    goOn(lane);
}

/// After the reply; without one, this is a failure.
void OutboxCore::completed(const LanePointer& lane, std::uint64_t request) {
    {
        const std::scoped_lock lock(mutex_);
        if (!lane->awaitsReply || lane->request != request) return;
    }
    failed(lane, request, nullptr);
}

void OutboxCore::fail(const LanePointer& lane, const DeliveryFailure& failure, Events& events) {
    if (failure.kind == DeliveryFailure::Kind::passing) return postpone(lane, failure, events);
    if (failure.kind == DeliveryFailure::Kind::needsBind) return awaitBind(*lane, failure, events);
    if (failure.kind == DeliveryFailure::Kind::refusal || !lane->isComparing)
        return refuse(*lane, failure, events);
    lane->isComparing = false;  // Nothing newer is there than what the entry says.
}

void OutboxCore::awaitBind(Lane& lane, const DeliveryFailure& failure, Events& events) {
    lane.isUnderWay = false;
    lane.waitsForBind = !lane.bindCame;  // else it is made once more with the new one
    if (lane.waitsForBind)
        events.push_back({Kind::waitsForBind, lane.entries.first(), failure.text});
    lane.entries.end(scheduler_->wallTime());
}

void OutboxCore::refuse(Lane& lane, const DeliveryFailure& failure, Events& events) {
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
void OutboxCore::postpone(const LanePointer& lane, const DeliveryFailure& failure, Events& events) {
    const double random = std::uniform_real_distribution(0.0, 1.0)(random_);
    const auto delay = backoff(options_, ++lane->failures, failure.retryAfter, random);
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
void OutboxCore::finish(Lane& lane, Kind kind, std::string text, Events& events) {
    lane.isUnderWay = false;
    lane.isComparing = false;
    lane.failures = 0;
    auto entry = lane.entries.takeUnderWay(scheduler_->wallTime(), kind == Kind::sent);
    removals_.push_back(entry.number);
    events.push_back({kind, std::move(entry), std::move(text)});
    removeSoon();
}

}  // namespace KestrinHousehold::internal
