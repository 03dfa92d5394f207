#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <limits>
#include <new>
#include <pthread.h>
#include <utility>
#include <variant>

#include <HalvardSling/http/internal/OutOfMemory.hpp>
#include <HalvardSling/http/internal/Redirect.hpp>
#include <HalvardSling/transport/internal/TransferLoop.hpp>

namespace HalvardSling::internal {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds longest{std::numeric_limits<int>::max()};

std::chrono::microseconds timeBetween(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration_cast<std::chrono::microseconds>(to - from);
}

SlingError cancelledError() {
    return {SlingErrorKind::cancelled, "the transport was shut down while the request was open"};
}

SlingError forkedError() {
    return {SlingErrorKind::cannotConnect,
            "the process was forked from one that had made requests, whose network thread it does "
            "not have; nothing was sent: make requests after the fork only, or replace the process "
            "(exec)"};
}

SlingError expiredError() {
    return {SlingErrorKind::totalTimeout,
            "the request's time was up while it waited for others to end; nothing was sent"};
}

/// The error that `make` makes, or the one that needs no memory.
SlingError errorOf(SlingError (*make)()) noexcept {
    try {
        return make();
    } catch (const std::bad_alloc&) {
        return outOfMemoryError();
    }
}

/// A TLS library may write to a connection that its peer has closed. The signal for it, which ends
/// a process, is of no use beside the error.
void blockBrokenPipeSignal() noexcept {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

/// The threads of transports that were destroyed from inside a completion. They end by themselves,
/// and the exit of the process waits for them: no thread may be busy with a network library while
/// that and what it stands on are taken down.
class Orphans {
  public:
    static Orphans& instance() {
        // Never destroyed, for a thread may come at any time.
        static Orphans* const orphans = [] {
            static_cast<void>(std::atexit([] { instance().join(); }));
            static_cast<void>(::pthread_atfork([] { instance().mutex_.lock(); },
                                               [] { instance().mutex_.unlock(); },
                                               [] { instance().loseAll(); }));
            return new Orphans;
        }();
        return *orphans;
    }

    /// @param thread  a list of one
    void add(std::list<std::thread> thread) noexcept {
        const std::scoped_lock lock(mutex_);
        for (auto& each : ended_)
            each.join();
        ended_.clear();
        running_.splice(running_.end(), thread);
    }

    /// The last word of a thread, whether it is an orphan or not.
    void noteEnd() noexcept {
        const std::scoped_lock lock(mutex_);
        const auto own = std::ranges::find(running_, std::this_thread::get_id(),
                                           [](const std::thread& each) { return each.get_id(); });
        if (own != running_.end()) ended_.splice(ended_.end(), running_, own);
    }

  private:
    /// In a process that was just forked, which has none of these threads.
    void loseAll() noexcept {
        lost_.splice(lost_.end(), running_);
        lost_.splice(lost_.end(), ended_);
        mutex_.unlock();
    }

    void join() {
        std::list<std::thread> threads;
        {
            const std::scoped_lock lock(mutex_);
            threads.splice(threads.end(), running_);
            threads.splice(threads.end(), ended_);
        }
        for (auto& each : threads)
            if (each.get_id() == std::this_thread::get_id())
                each.detach();
            else
                each.join();
    }

    std::mutex mutex_;
    std::list<std::thread> running_;
    std::list<std::thread> ended_;
    std::list<std::thread> lost_;
};

}  // namespace

TransferLoop::TransferLoop(std::unique_ptr<TransferEngine> engine, std::size_t maxInFlight,
                           TransferLogHook log)
    : engine_(std::move(engine)),
      maxInFlight_(std::max<std::size_t>(maxInFlight, 1)),
      log_(std::move(log)) {
    // Both are made once in a process, while there is memory.
    static_cast<void>(outOfMemoryError());
    static_cast<void>(Orphans::instance());
}

TransferID TransferLoop::send(CheckedRequest request, TransportCompletion completion) {
    if (process_.isForked()) {
        completion(forkedError());
        return 0;  // the name of no transfer
    }
    process_.claim();
    auto shared = shared_.lock();
    const TransferID id = ++shared->last;
    if (shared->ending != Ending::none) {
        const bool tells = shared->ending == Ending::cancelling;
        shared.unlock();
        if (tells) completion(cancelledError());
        return id;
    }
    if (shared->thread.empty()) {
        std::list<std::thread> started;
        started.emplace_back([self = shared_from_this()] { self->run(); });
        shared->thread = std::move(started);
    }
    const auto now = Clock::now();
    const auto deadline = now + std::clamp(request->policy.totalTimeout, milliseconds(0), longest);
    const auto added = shared->completions.emplace(id, std::move(completion)).first;
    try {
        shared->sent.add(id,
                         {.request = std::move(request), .accepted = now, .deadline = deadline});
    } catch (...) {
        shared->completions.erase(added);
        throw;
    }
    notify(std::move(shared));
    return id;
}

void TransferLoop::cancel(TransferID id) noexcept {
    if (process_.isForked()) return;
    // Destroyed after the lock was given back, for a completion may hold anything.
    TransportCompletion dropped;
    auto shared = shared_.lock();
    auto node = shared->completions.extract(id);
    if (node.empty()) return;
    dropped = std::exchange(node.mapped(), {});
    shared->cancelled.insert(std::move(node));
    notify(std::move(shared));
}

/// Gives the lock back, and wakes the thread if it would not see by itself that something has
/// changed.
void TransferLoop::notify(KestrinInternal::Guarded<Shared>::Lock shared) noexcept {
    if (!std::exchange(shared->asleep, false)) return;
    // Once the lock is given back a completion may destroy the transport, and the thread may end.
    const auto self = shared_from_this();
    shared.unlock();  // first, for the thread begins with taking it
    engine_->wake();
}

void TransferLoop::end(Ending ending) noexcept {
    // The thread that is not there holds this object for ever, and what it would do is undone.
    if (process_.isForked()) return;
    std::list<std::thread> ended;
    {
        auto shared = shared_.lock();
        if (shared->ending != Ending::silent) shared->ending = ending;
        if (shared->thread.empty()) return;
        ended = std::move(shared->thread);
        notify(std::move(shared));
    }
    if (std::this_thread::get_id() == ended.front().get_id())
        Orphans::instance().add(std::move(ended));
    else
        ended.front().join();
}

void TransferLoop::run() noexcept {
    const TransportThreadScope scope;
    blockBrokenPipeSignal();
    while (takeInbox()) {
        expireWaiting();
        startWaiting();
        engine_->perform();
        finishEnded();
        if (!engine_->hasMore() && maySleep()) engine_->wait(untilNextDeadline());
    }
    endOpenTransfers();
    Orphans::instance().noteEnd();
}

/// Takes in what other threads brought.
/// @return false if the thread is to end
bool TransferLoop::takeInbox() noexcept {
    Completions cancelled;
    Ending ending{};
    {
        const auto shared = shared_.lock();
        shared->asleep = false;
        waiting_.merge(std::move(shared->sent));
        cancelled.swap(shared->cancelled);
        ending = shared->ending;
    }
    for (const auto& [id, none] : cancelled)
        drop(id);
    return ending == Ending::none;
}

void TransferLoop::expireWaiting() noexcept {
    if (waiting_.empty()) return;
    const auto now = Clock::now();
    while (auto expired = waiting_.takeExpired(now))
        complete(std::move(expired), errorOf(&expiredError));
}

void TransferLoop::startWaiting() noexcept {
    while (hasRoom() && !waiting_.empty()) {
        const auto begun = inFlight_.insert(waiting_.takeFirst()).position;
        begun->second.started = Clock::now();
        if (auto problem = start(begun->first, begun->second))
            complete(inFlight_.extract(begun), *std::move(problem));
    }
}

std::optional<SlingError> TransferLoop::start(TransferID id, const Transfer& transfer) noexcept {
    try {
        return engine_->start(id, transfer);
    } catch (const std::bad_alloc&) {
        return outOfMemoryError();
    }
}

void TransferLoop::finishEnded() noexcept {
    while (const auto id = engine_->takeEnded()) {
        const auto ended = inFlight_.find(*id);
        TransportResult result = outOfMemoryError();
        try {
            result = engine_->result(*id);
            if (follow(*id, ended->second, result)) continue;
        } catch (const std::bad_alloc&) {
            result = outOfMemoryError();
        }
        complete(inFlight_.extract(ended), std::move(result));
    }
}

/// Sends what a redirect asks for. If it may not be followed, the result becomes the reason.
/// @return whether it was sent
bool TransferLoop::follow(TransferID id, Transfer& transfer, TransportResult& result) {
    const auto* const response = std::get_if<Response>(&result);
    if (response == nullptr || !isRedirect(response->status())) return false;
    const auto location = response->headers().value("Location");
    const bool follows = transfer.request->policy.maxRedirects > 0 || transfer.redirects > 0;
    if (!location || !follows) return false;
    auto next = redirected(transfer.request, response->status(), *location);
    if (auto* const error = std::get_if<SlingError>(&next)) {
        result = std::move(*error);
        return false;
    }
    transfer.request = std::get<CheckedRequest>(std::move(next));
    ++transfer.redirects;
    engine_->remove(id);
    auto problem = start(id, transfer);
    if (!problem) return true;
    result = *std::move(problem);
    return false;
}

void TransferLoop::drop(TransferID id) noexcept {
    auto node = inFlight_.extract(id);
    if (!node) node = waiting_.take(id);
    if (node) complete(std::move(node), errorOf(&cancelledError));
}

/// Takes the completion out: whoever does is the one that may call it.
/// @return absent if nobody is to be told anything any more; empty if the transfer was cancelled
std::optional<TransportCompletion> TransferLoop::claim(TransferID id) noexcept {
    const auto shared = shared_.lock();
    if (shared->ending == Ending::silent) return std::nullopt;
    auto node = shared->completions.extract(id);
    return node ? std::move(node.mapped()) : TransportCompletion();
}

/// Ends a transfer that neither waits nor is in flight any more. What a completion throws ends the
/// program here.
void TransferLoop::complete(TransferNode node, TransportResult result) noexcept {
    const TransferID id = node.key();
    if (const auto completion = claim(id)) {
        if (!*completion) result = errorOf(&cancelledError);
        log(id, node.mapped(), result);
        if (*completion) (*completion)(std::move(result));
    }
    engine_->remove(id);
}

void TransferLoop::log(TransferID id, const Transfer& transfer,
                       const TransportResult& result) noexcept {
    if (!log_) return;
    TransferLog record;
    try {
        record.transfer = id;
        record.method = transfer.request->method;
        record.origin = transfer.request.url().origin().text();
        record.pathTemplate = transfer.request->pathTemplate;
        if (const auto* const response = std::get_if<Response>(&result))
            record.status = response->status();
        else
            record.error = std::get<SlingError>(result).kind();
        record.waited = timeBetween(transfer.accepted, transfer.started.value_or(Clock::now()));
        record.redirects = transfer.redirects;
        engine_->describe(id, record);
    } catch (const std::bad_alloc&) {
        return;
    }
    log_(record);
}

/// Whether nothing is left to do before the engine has something to do. From then on others wake
/// the thread.
bool TransferLoop::maySleep() noexcept {
    if (hasRoom() && !waiting_.empty()) return false;
    const auto shared = shared_.lock();
    shared->asleep =
        shared->sent.empty() && shared->cancelled.empty() && shared->ending == Ending::none;
    return shared->asleep;
}

milliseconds TransferLoop::untilNextDeadline() const noexcept {
    const auto deadline = waiting_.nextDeadline();
    if (!deadline) return longest;
    const auto now = Clock::now();
    return std::min(longest, std::chrono::ceil<milliseconds>(std::max(*deadline, now) - now));
}

void TransferLoop::endOpenTransfers() noexcept {
    while (!inFlight_.empty())
        drop(inFlight_.begin()->first);
    while (auto waiting = waiting_.takeFirst())
        complete(std::move(waiting), errorOf(&cancelledError));
    engine_->shutDown();

    // Let go of without the lock, for they may hold anything.
    Completions dropped;
    const auto shared = shared_.lock();
    dropped.swap(shared->completions);
}

}  // namespace HalvardSling::internal
