#include <algorithm>
#include <cstdlib>
#include <limits>
#include <map>
#include <mutex>
#include <pthread.h>
#include <set>
#include <signal.h>
#include <stdexcept>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include <curl/curl.h>

#include <HalvardSling/curl/CurlTransport.hpp>
#include <HalvardSling/curl/internal/CurlExchange.hpp>
#include <HalvardSling/curl/internal/CurlExchangePool.hpp>
#include <HalvardSling/http/internal/Redirect.hpp>
#include <HalvardSling/transport/internal/WakePipe.hpp>

namespace HalvardSling {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t minKept = 8;
constexpr int maxInt = std::numeric_limits<int>::max();

struct MultiCleanup {
    void operator()(CURLM* multi) const noexcept { curl_multi_cleanup(multi); }
};
using MultiHandle = std::unique_ptr<CURLM, MultiCleanup>;

/// A request that waits for a free place among those in flight.
struct Waiting {
    TransferID transfer;
    CheckedRequest request;
    Clock::time_point accepted;
    Clock::time_point deadline;
};

/// The requests that wait, first come first served, and the next moment at which one gives up.
class WaitingLine {
  public:
    void add(Waiting waiting) {
        deadlines_.emplace(waiting.deadline, waiting.transfer);
        const TransferID transfer = waiting.transfer;
        waiting_.emplace(transfer, std::move(waiting));
    }

    [[nodiscard]] std::optional<Waiting> take(TransferID transfer) {
        return take(waiting_.find(transfer));
    }

    /// The one that came first; transfers are numbered in the order they came.
    [[nodiscard]] std::optional<Waiting> takeFirst() { return take(waiting_.begin()); }

    /// One whose deadline has passed.
    [[nodiscard]] std::optional<Waiting> takeExpired(Clock::time_point now) {
        if (deadlines_.empty() || deadlines_.begin()->first > now) return std::nullopt;
        return take(deadlines_.begin()->second);
    }

    [[nodiscard]] std::optional<Clock::time_point> nextDeadline() const {
        if (deadlines_.empty()) return std::nullopt;
        return deadlines_.begin()->first;
    }

    [[nodiscard]] bool empty() const noexcept { return waiting_.empty(); }

  private:
    using Map = std::map<TransferID, Waiting>;

    std::optional<Waiting> take(Map::iterator at) {
        if (at == waiting_.end()) return std::nullopt;
        deadlines_.erase({at->second.deadline, at->first});
        return std::move(waiting_.extract(at).mapped());
    }

    Map waiting_;
    std::set<std::pair<Clock::time_point, TransferID>> deadlines_;
};

/// A transfer in flight.
struct Transfer {
    Waiting order;
    Clock::time_point started;
    int redirects = 0;
    std::unique_ptr<CurlExchange> exchange{};
};
using Flight = std::unordered_map<TransferID, Transfer>;

std::chrono::microseconds timeBetween(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration_cast<std::chrono::microseconds>(to - from);
}

/// What a log may know of a transfer.
/// @param transfer  null: it was not in flight
TransferLog logOf(const Waiting& order, const TransportResult& result, const Transfer* transfer) {
    TransferLog log;
    log.transfer = order.transfer;
    log.method = order.request->method;
    log.origin = order.request.url().origin().text();
    log.pathTemplate = order.request->pathTemplate;
    if (const auto* const response = std::get_if<Response>(&result))
        log.status = response->status();
    else
        log.error = std::get<SlingError>(result).kind();
    log.waited = timeBetween(order.accepted, transfer ? transfer->started : Clock::now());
    if (transfer) {
        log.redirects = transfer->redirects;
        transfer->exchange->describe(log);
    }
    return log;
}

Clock::time_point deadlineOf(const TransportRequest& request, Clock::time_point from) {
    return from + std::clamp(request.policy.totalTimeout, milliseconds(0), milliseconds(maxInt));
}

milliseconds until(Clock::time_point moment, Clock::time_point now) {
    return std::chrono::ceil<milliseconds>(std::max(moment, now) - now);
}

SlingError cancelledError() {
    return {SlingErrorKind::cancelled, "the transport was shut down while the request was open"};
}

SlingError expiredError() {
    return {SlingErrorKind::totalTimeout,
            "the request's time was up while it waited for others to end; nothing was sent"};
}

/// How many connections, and exchanges, are kept for the next request.
std::size_t keptOf(const CurlTransport::Options& options) {
    return std::clamp<std::size_t>(options.maxInFlight, minKept, maxInt);
}

void setUpCurl() {
    // libcurl's own clean-up is left to the exit of the process: an application may use it, too.
    static const CURLcode result = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (result != CURLE_OK) throw std::runtime_error("libcurl could not be set up");
}

/// A TLS library may write to a connection that its peer has closed. The signal for it, which ends
/// a process, is of no use beside the error.
void blockBrokenPipeSignal() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

/// The threads of transports that were destroyed from inside a completion. They end by themselves,
/// and the exit of the process waits for them: no thread may be busy with libcurl while libcurl and
/// what it stands on are taken down.
class Orphans {
  public:
    static Orphans& instance() {
        // Never destroyed, for a thread may come at any time.
        static Orphans* const orphans = [] {
            static_cast<void>(std::atexit([] { instance().join(); }));
            return new Orphans;
        }();
        return *orphans;
    }

    void add(std::thread thread) {
        const std::scoped_lock lock(mutex_);
        std::erase_if(threads_, [this](std::thread& each) {
            const bool ended = std::erase(ended_, each.get_id()) > 0;
            if (ended) each.join();
            return ended;
        });
        threads_.push_back(std::move(thread));
    }

    /// The last word of a thread, whether it is an orphan or not.
    void noteEnd() {
        const std::scoped_lock lock(mutex_);
        const auto isThis = [](const std::thread& each) {
            return each.get_id() == std::this_thread::get_id();
        };
        if (std::ranges::any_of(threads_, isThis)) ended_.push_back(std::this_thread::get_id());
    }

  private:
    void join() {
        std::vector<std::thread> threads;
        {
            const std::scoped_lock lock(mutex_);
            threads.swap(threads_);
        }
        for (auto& each : threads)
            if (each.get_id() == std::this_thread::get_id())
                each.detach();
            else
                each.join();
    }

    std::mutex mutex_;
    std::vector<std::thread> threads_;
    std::vector<std::thread::id> ended_;
};

}  // namespace

/// The thread, what it works on, and the way to it. The thread and the transport share it: when the
/// transport is destroyed from inside a completion, the thread goes on for a moment without it.
class CurlTransport::Loop : public std::enable_shared_from_this<Loop> {
  public:
    explicit Loop(Options options);

    TransferID send(CheckedRequest request, TransportCompletion completion);
    void cancel(TransferID transfer) noexcept;

    enum class Ending { none, cancelling, silent };
    /// Ends the thread, and waits for it unless this is the thread.
    void end(Ending ending) noexcept;

  private:
    struct Inbox {
        std::vector<Waiting> sent;
        std::vector<TransferID> cancelled;
    };

    // Any thread.
    void tell(std::unique_lock<std::mutex> lock) noexcept;
    [[nodiscard]] std::optional<TransportCompletion> claim(TransferID transfer);

    // The thread.
    void run() noexcept;
    [[nodiscard]] bool takeInbox();
    void accept(Waiting order);
    void expireWaiting();
    [[nodiscard]] bool hasFreePlace() const noexcept;
    void startWaiting();
    void start(Waiting order);
    void begin(Transfer transfer);
    void finishTransfers();
    void finish(Transfer& transfer, CURLcode code);
    [[nodiscard]] bool follow(Transfer& transfer, TransportResult& result);
    void drop(TransferID transfer);
    [[nodiscard]] Flight::node_type takeFromFlight(TransferID transfer, bool isWhole = false);
    [[nodiscard]] bool readOn();
    [[nodiscard]] bool maySleep();
    void poll();
    void endOpenTransfers();

    void deliver(const Waiting& order, TransportResult result, const Transfer* transfer = nullptr);

    const Options options_;

    std::mutex mutex_;
    // Guarded by the mutex:
    TransferID last_ = 0;
    std::unordered_map<TransferID, TransportCompletion> completions_;  // of all open transfers
    Inbox inbox_;
    Ending ending_ = Ending::none;
    bool asleep_ = false;  // the thread sleeps, or will without another look at these
    std::thread thread_;

    const WakePipe waking_;

    // The thread's own:
    MultiHandle multi_;
    WaitingLine waiting_;
    Flight inFlight_;
    bool leavesMore_ = false;  // whether a transfer left that did so, see `CurlExchange`
    CurlExchangePool exchanges_;
};

CurlTransport::Loop::Loop(Options options)
    : options_(std::move(options)),
      exchanges_(options_, keptOf(options_),
                 safeHandleUse(curl_version_info(CURLVERSION_NOW)->version_num)) {
    setUpCurl();
    multi_.reset(curl_multi_init());
    if (!multi_) throw std::bad_alloc();
    curl_multi_setopt(multi_.get(), CURLMOPT_MAXCONNECTS, static_cast<long>(keptOf(options_)));
    curl_multi_setopt(multi_.get(), CURLMOPT_PIPELINING, static_cast<long>(CURLPIPE_MULTIPLEX));
}

TransferID CurlTransport::Loop::send(CheckedRequest request, TransportCompletion completion) {
    std::unique_lock lock(mutex_);
    const TransferID transfer = ++last_;
    if (ending_ != Ending::none) {
        const bool tells = ending_ == Ending::cancelling;
        lock.unlock();
        if (tells) completion(cancelledError());
        return transfer;
    }
    if (!thread_.joinable()) thread_ = std::thread([self = shared_from_this()] { self->run(); });
    const auto now = Clock::now();
    const auto deadline = deadlineOf(*request, now);
    completions_.emplace(transfer, std::move(completion));
    inbox_.sent.push_back({transfer, std::move(request), now, deadline});
    tell(std::move(lock));
    return transfer;
}

void CurlTransport::Loop::cancel(TransferID transfer) noexcept {
    // Destroyed after the lock was given back, for a completion may hold anything.
    TransportCompletion dropped;
    std::unique_lock lock(mutex_);
    const auto found = completions_.find(transfer);
    if (found == completions_.end()) return;
    dropped = std::move(found->second);
    completions_.erase(found);
    inbox_.cancelled.push_back(transfer);
    tell(std::move(lock));
}

/// Gives the lock back, and wakes the thread where it would not see by itself that something was
/// put down.
void CurlTransport::Loop::tell(std::unique_lock<std::mutex> lock) noexcept {
    if (!std::exchange(asleep_, false)) return;
    // Once the lock is given back a completion may destroy the transport, and the thread may end.
    const auto self = shared_from_this();
    lock.unlock();  // first, for the thread begins with taking it
    waking_.wake();
}

void CurlTransport::Loop::end(Ending ending) noexcept {
    std::thread ended;
    {
        std::unique_lock lock(mutex_);
        if (ending_ != Ending::silent) ending_ = ending;
        if (!thread_.joinable()) return;
        ended = std::move(thread_);
        tell(std::move(lock));
    }
    if (std::this_thread::get_id() == ended.get_id())
        Orphans::instance().add(std::move(ended));
    else
        ended.join();
}

void CurlTransport::Loop::run() noexcept {
    const TransportThreadScope scope;
    blockBrokenPipeSignal();
    while (takeInbox()) {
        expireWaiting();
        startWaiting();
        int running = 0;
        curl_multi_perform(multi_.get(), &running);
        finishTransfers();
        if (!readOn() && maySleep()) poll();
    }
    endOpenTransfers();
    Orphans::instance().noteEnd();
}

/// Takes in what other threads brought.
/// @return false where the thread is to end
bool CurlTransport::Loop::takeInbox() {
    Inbox inbox;
    Ending ending{};
    {
        const std::scoped_lock lock(mutex_);
        asleep_ = false;
        inbox = std::exchange(inbox_, {});
        ending = ending_;
    }
    for (auto& order : inbox.sent)
        accept(std::move(order));
    for (const TransferID transfer : inbox.cancelled)
        drop(transfer);
    return ending == Ending::none;
}

/// Begins what need not wait.
void CurlTransport::Loop::accept(Waiting order) {
    if (waiting_.empty() && hasFreePlace())
        start(std::move(order));
    else
        waiting_.add(std::move(order));
}

void CurlTransport::Loop::expireWaiting() {
    const auto now = Clock::now();
    while (const auto expired = waiting_.takeExpired(now))
        deliver(*expired, expiredError());
}

bool CurlTransport::Loop::hasFreePlace() const noexcept {
    return inFlight_.size() < std::max<std::size_t>(options_.maxInFlight, 1);
}

void CurlTransport::Loop::startWaiting() {
    while (hasFreePlace()) {
        auto first = waiting_.takeFirst();
        if (!first) return;
        start(*std::move(first));
    }
}

void CurlTransport::Loop::start(Waiting order) {
    const auto now = Clock::now();
    if (order.deadline <= now) return deliver(order, expiredError());
    begin({.order = std::move(order), .started = now});
}

void CurlTransport::Loop::begin(Transfer begun) {
    const TransferID id = begun.order.transfer;
    Transfer& transfer = inFlight_.emplace(id, std::move(begun)).first->second;
    const auto& request = transfer.order.request;
    transfer.exchange = exchanges_.take(request.url().origin());
    auto problem = transfer.exchange->prepare(
        request, {.started = transfer.started, .deadline = transfer.order.deadline}, id);
    if (!problem && curl_multi_add_handle(multi_.get(), transfer.exchange->easy()) != CURLM_OK)
        problem = SlingError(SlingErrorKind::cannotConnect, "libcurl took no further transfer");
    if (!problem) return;
    const auto ended = inFlight_.extract(id);
    deliver(ended.mapped().order, std::move(*problem), &ended.mapped());
}

void CurlTransport::Loop::finishTransfers() {
    int left = 0;
    while (const CURLMsg* const message = curl_multi_info_read(multi_.get(), &left)) {
        if (message->msg != CURLMSG_DONE) continue;
        const CURLcode code = message->data.result;
        auto ended =
            takeFromFlight(CurlExchange::transferOf(message->easy_handle), code == CURLE_OK);
        finish(ended.mapped(), code);
    }
}

/// @param isWhole  whether it ended with a whole reply
/// @return empty where the transfer is not in flight
Flight::node_type CurlTransport::Loop::takeFromFlight(TransferID transfer, bool isWhole) {
    auto node = inFlight_.extract(transfer);
    if (node.empty()) return node;
    const auto& exchange = *node.mapped().exchange;
    curl_multi_remove_handle(multi_.get(), exchange.easy());
    leavesMore_ |= exchange.leavesMore(isWhole);
    return node;
}

/// Sees to it that libcurl hands out what it may have in hand, and would keep while the thread
/// sleeps.
/// @return whether it takes another round
bool CurlTransport::Loop::readOn() {
    const bool left = std::exchange(leavesMore_, false);
    bool again = left;
    for (const auto& [id, transfer] : inFlight_) {
        if (left) transfer.exchange->readOn();
        again |= transfer.exchange->mayHaveMore();
    }
    return again;
}

void CurlTransport::Loop::finish(Transfer& transfer, CURLcode code) {
    auto result = transfer.exchange->result(code);
    if (follow(transfer, result)) return;
    deliver(transfer.order, std::move(result), &transfer);
    // A handle that failed may still hold what it worked with; a new one is cheap.
    if (code == CURLE_OK) exchanges_.keep(std::move(transfer.exchange));
}

/// Sends what a redirect asks for. Where it may not be followed, the result becomes the reason.
/// @return whether it was sent
bool CurlTransport::Loop::follow(Transfer& transfer, TransportResult& result) {
    const auto* const response = std::get_if<Response>(&result);
    if (response == nullptr || !internal::isRedirect(response->status())) return false;
    const auto& request = transfer.order.request;
    const auto location = response->headers().value("Location");
    const bool follows = request->policy.maxRedirects > 0 || transfer.redirects > 0;
    if (!location || !follows) return false;
    auto next = internal::redirected(request, response->status(), *location);
    if (auto* const error = std::get_if<SlingError>(&next)) {
        result = std::move(*error);
        return false;
    }
    exchanges_.keep(std::move(transfer.exchange));
    Waiting order = transfer.order;
    order.request = std::get<CheckedRequest>(std::move(next));
    begin({.order = std::move(order),
           .started = transfer.started,
           .redirects = transfer.redirects + 1});
    return true;
}

void CurlTransport::Loop::drop(TransferID transfer) {
    if (const auto open = takeFromFlight(transfer)) {
        deliver(open.mapped().order, cancelledError(), &open.mapped());
    } else if (const auto waiting = waiting_.take(transfer)) {
        deliver(*waiting, cancelledError());
    }
}

/// Whether nothing is left to do before libcurl has something to do. From then on others wake the
/// thread.
bool CurlTransport::Loop::maySleep() {
    if (hasFreePlace() && !waiting_.empty()) return false;
    const std::scoped_lock lock(mutex_);
    asleep_ = inbox_.sent.empty() && inbox_.cancelled.empty() && ending_ == Ending::none;
    return asleep_;
}

void CurlTransport::Loop::poll() {
    // No moment to wait for means: until libcurl has something to do, or somebody wakes us.
    milliseconds timeout{maxInt};
    if (const auto deadline = waiting_.nextDeadline())
        timeout = std::min(timeout, until(*deadline, Clock::now()));
    curl_waitfd woken{.fd = waking_.descriptor(), .events = CURL_WAIT_POLLIN, .revents = 0};
    curl_multi_poll(multi_.get(), &woken, 1, static_cast<int>(timeout.count()), nullptr);
    if (woken.revents != 0) waking_.clear();
}

void CurlTransport::Loop::endOpenTransfers() {
    std::vector<TransferID> open;
    open.reserve(inFlight_.size());
    for (const auto& [transfer, each] : inFlight_)
        open.push_back(transfer);
    std::ranges::sort(open);
    for (const TransferID transfer : open)
        drop(transfer);
    while (const auto waiting = waiting_.takeFirst())
        deliver(*waiting, cancelledError());
    exchanges_.clear();
    multi_.reset();

    // Let go of without the lock, for they may hold anything.
    std::unordered_map<TransferID, TransportCompletion> dropped;
    const std::scoped_lock lock(mutex_);
    dropped = std::move(completions_);
}

/// Takes the completion out: whoever does is the one that may call it.
/// @return absent where nobody is to be told anything any more
std::optional<TransportCompletion> CurlTransport::Loop::claim(TransferID transfer) {
    const std::scoped_lock lock(mutex_);
    if (ending_ == Ending::silent) return std::nullopt;
    auto node = completions_.extract(transfer);
    return node.empty() ? TransportCompletion() : std::move(node.mapped());
}

void CurlTransport::Loop::deliver(const Waiting& order, TransportResult result,
                                  const Transfer* transfer) {
    const auto completion = claim(order.transfer);
    if (!completion) return;
    if (!*completion) result = cancelledError();
    if (options_.log) options_.log(logOf(order, result, transfer));
    if (*completion) (*completion)(std::move(result));
}

CurlTransport::CurlTransport() : CurlTransport(Options{}) {}

CurlTransport::CurlTransport(Options options) : loop_(std::make_shared<Loop>(std::move(options))) {}

CurlTransport::~CurlTransport() {
    loop_->end(Loop::Ending::cancelling);
}

TransferID CurlTransport::send(CheckedRequest request, TransportCompletion completion) {
    return loop_->send(std::move(request), std::move(completion));
}

void CurlTransport::cancel(TransferID transfer) noexcept {
    loop_->cancel(transfer);
}

void CurlTransport::abandon() noexcept {
    loop_->end(Loop::Ending::silent);
}

std::string CurlTransport::defaultUserAgent() {
    return "KestrinProfile/" KESTRIN_VERSION;
}

}  // namespace HalvardSling
