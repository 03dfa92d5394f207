#include <algorithm>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

#include <HalvardSling/curl/internal/CurlEngine.hpp>
#include <HalvardSling/http/internal/OutOfMemory.hpp>

namespace HalvardSling::internal {

namespace {

constexpr std::size_t minKept = 8;
constexpr std::size_t maxKept = std::numeric_limits<int>::max();

/// How many connections, and exchanges, are kept for the next request.
std::size_t keptOf(const CurlTransport::Options& options) {
    return std::clamp(options.maxInFlight, minKept, maxKept);
}

void setUpCurl() {
    // libcurl's own clean-up is left to the exit of the process: an application may use it, too.
    static const CURLcode result = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (result != CURLE_OK) throw std::runtime_error("libcurl could not be set up");
}

}  // namespace

CurlEngine::CurlEngine(CurlTransport::Options options)
    : options_(std::move(options)),
      exchanges_(options_, sockets_, keptOf(options_),
                 safeHandleUse(curl_version_info(CURLVERSION_NOW)->version_num)) {
    setUpCurl();
    multi_.reset(curl_multi_init());
    if (!multi_) throw std::bad_alloc();
    curl_multi_setopt(multi_.get(), CURLMOPT_MAXCONNECTS, static_cast<long>(keptOf(options_)));
    curl_multi_setopt(multi_.get(), CURLMOPT_PIPELINING, static_cast<long>(CURLPIPE_MULTIPLEX));
}

std::optional<SlingError> CurlEngine::start(TransferID id, const Transfer& transfer) {
    Running& running = running_[id];
    running.exchange = exchanges_.take(transfer.request.url().origin());
    const CurlExchange::Span span{.started = transfer.started.value_or(transfer.accepted),
                                  .deadline = transfer.deadline};
    if (auto problem = running.exchange->prepare(transfer.request, span, id)) return problem;
    const CURLMcode code = add(running);
    if (code == CURLM_OUT_OF_MEMORY) return outOfMemoryError();
    if (code != CURLM_OK)
        return SlingError(SlingErrorKind::cannotConnect, "libcurl took no further transfer");
    return std::nullopt;
}

CURLMcode CurlEngine::add(Running& running) noexcept {
    const CURLMcode code = curl_multi_add_handle(multi_.get(), running.exchange->easy());
    running.isAdded = code == CURLM_OK;
    return code;
}

void CurlEngine::perform() noexcept {
    sockets_.noteInFlight(running_.size());
    int running = 0;
    curl_multi_perform(multi_.get(), &running);
    if (exchanges_.takeConnected()) restartWaiting();
}

/// A request over TLS waits for a connection that is being made, because HTTP/2 may take it, too.
/// If HTTP/1 is spoken there, newer versions of libcurl (8.14 does) let it wait for a reply over
/// it. So for each new connection one that waits begins again, and makes the next one.
void CurlEngine::restartWaiting() noexcept {
    for (const auto& [id, running] : running_) {
        if (!running.exchange->takeConnected() || stranded_) continue;
        if (const auto next = firstWaiting(running.exchange->origin())) restart(*next);
    }
}

std::optional<TransferID> CurlEngine::firstWaiting(const Origin& origin) const noexcept {
    std::optional<TransferID> first;
    for (const auto& [id, running] : running_)
        if ((!first || id < *first) && running.isAdded && running.exchange->awaitsConnection() &&
            running.exchange->origin() == origin)
            first = id;
    return first;
}

void CurlEngine::restart(TransferID id) noexcept {
    Running& running = running_.find(id)->second;
    curl_multi_remove_handle(multi_.get(), running.exchange->easy());
    running.exchange->prepareAnew();
    if (add(running) == CURLM_OK) return;
    running.ended = CURLE_OUT_OF_MEMORY;
    stranded_ = id;
}

std::optional<TransferID> CurlEngine::takeEnded() noexcept {
    if (stranded_) return std::exchange(stranded_, std::nullopt);
    int left = 0;
    while (const CURLMsg* const message = curl_multi_info_read(multi_.get(), &left)) {
        if (message->msg != CURLMSG_DONE) continue;
        const TransferID id = CurlExchange::transferOf(message->easy_handle);
        Running& running = running_.find(id)->second;
        const CURLcode code = message->data.result;
        running.ended = code;
        leave(running);
        if (!sendElsewhere(running, code)) return id;
    }
    return std::nullopt;
}

/// Sends a request once more if it has to go to another connection.
bool CurlEngine::sendElsewhere(Running& running, CURLcode code) noexcept {
    if (!running.exchange->goesElsewhere(code) || !running.exchange->prepareElsewhere() ||
        add(running) != CURLM_OK)
        return false;
    running.ended.reset();
    return true;
}

/// Takes the handle from libcurl, which aborts the transfer if it has not ended.
void CurlEngine::leave(Running& running) noexcept {
    if (!std::exchange(running.isAdded, false)) return;
    curl_multi_remove_handle(multi_.get(), running.exchange->easy());
    const bool isWhole = running.ended == CURLE_OK;
    leavesMore_ |= running.exchange->leavesMore(isWhole);
    sockets_.noteGivenUp(running.exchange->leavesUnderWay(isWhole));
}

TransportResult CurlEngine::result(TransferID id) {
    const Running& running = running_.at(id);
    return running.exchange->result(running.ended.value_or(CURLE_ABORTED_BY_CALLBACK));
}

void CurlEngine::describe(TransferID id, TransferLog& log) const {
    const auto running = running_.find(id);
    if (running != running_.end() && running->second.exchange)
        running->second.exchange->describe(log);
}

void CurlEngine::remove(TransferID id) noexcept {
    auto node = running_.extract(id);
    if (!node) return;
    Running& running = node.mapped();
    leave(running);
    // A handle that failed may still hold what it worked with; a new one is cheap.
    if (running.ended == CURLE_OK) exchanges_.keep(std::move(running.exchange));
}

/// libcurl may have something in hand that it would keep while the thread sleeps: has it handed out
/// what there is.
bool CurlEngine::hasMore() noexcept {
    const bool left = std::exchange(leavesMore_, false);
    bool more = left;
    for (const auto& [id, running] : running_) {
        if (left) running.exchange->readOn();
        more |= running.exchange->mayHaveMore();
    }
    return more;
}

void CurlEngine::wait(std::chrono::milliseconds limit) noexcept {
    curl_waitfd woken{.fd = wakePipe_.descriptor(), .events = CURL_WAIT_POLLIN, .revents = 0};
    watchdog_.noteRest();
    curl_multi_poll(multi_.get(), &woken, 1, static_cast<int>(limit.count()), nullptr);
    watchdog_.noteWork();
    if (woken.revents != 0) wakePipe_.clear();
}

void CurlEngine::shutDown() noexcept {
    running_.clear();
    exchanges_.clear();
    multi_.reset();
    watchdog_.stop();
}

}  // namespace HalvardSling::internal
