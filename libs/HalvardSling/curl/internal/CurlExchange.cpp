#include <algorithm>
#include <array>
#include <limits>
#include <new>
#include <utility>

#include <HalvardSling/curl/internal/CurlExchange.hpp>
#include <HalvardSling/curl/internal/CurlOptions.hpp>
#include <HalvardSling/curl/internal/CurlSockets.hpp>
#include <internal/ASCII.hpp>

namespace HalvardSling::internal {

namespace {

constexpr int firstErrorStatus = 400;
constexpr std::size_t usualFields = 16;
constexpr std::size_t usualFieldBytes = 512;

/// What a result of libcurl means before the request was handed to a connection, and after.
struct Meaning {
    CURLcode code;
    SlingErrorKind before;
    SlingErrorKind after;
};

using enum SlingErrorKind;
using KestrinInternal::trimmed;

constexpr std::array meanings{
    Meaning{CURLE_UNSUPPORTED_PROTOCOL, malformedURL, malformedReply},  // after: HTTP/0.9
    Meaning{CURLE_URL_MALFORMAT, malformedURL, malformedURL},
    Meaning{CURLE_COULDNT_RESOLVE_PROXY, nameNotResolved, nameNotResolved},
    Meaning{CURLE_COULDNT_RESOLVE_HOST, nameNotResolved, nameNotResolved},
    Meaning{CURLE_WEIRD_SERVER_REPLY, cannotConnect, malformedReply},
    Meaning{CURLE_BAD_CONTENT_ENCODING, malformedReply, malformedReply},
    // The length of a line of the reply's head is the one size that libcurl limits by itself.
    Meaning{CURLE_OUT_OF_MEMORY, outOfMemory, tooLarge},
    Meaning{CURLE_FILESIZE_EXCEEDED, tooLarge, tooLarge},
    Meaning{CURLE_OPERATION_TIMEDOUT, connectTimeout, connectionLost},
};

constexpr std::array tlsFailures{CURLE_SSL_CONNECT_ERROR,
                                 CURLE_SSL_ENGINE_NOTFOUND,
                                 CURLE_SSL_ENGINE_SETFAILED,
                                 CURLE_SSL_CERTPROBLEM,
                                 CURLE_SSL_CIPHER,
                                 CURLE_PEER_FAILED_VERIFICATION,
                                 CURLE_USE_SSL_FAILED,
                                 CURLE_SSL_ENGINE_INITFAILED,
                                 CURLE_SSL_CACERT_BADFILE,
                                 CURLE_SSL_CRL_BADFILE,
                                 CURLE_SSL_ISSUER_ERROR,
                                 CURLE_SSL_PINNEDPUBKEYNOTMATCH,
                                 CURLE_SSL_INVALIDCERTSTATUS,
                                 CURLE_SSL_CLIENTCERT};

SlingErrorKind meaningOf(CURLcode code, bool begun) {
    const auto* const found = std::ranges::find(meanings, code, &Meaning::code);
    if (found != meanings.end()) return begun ? found->after : found->before;
    if (std::ranges::find(tlsFailures, code) != tlsFailures.end()) return tls;
    return begun ? connectionLost : cannotConnect;
}

std::string_view sentence(SlingErrorKind kind) {
    static constexpr std::array<std::pair<SlingErrorKind, std::string_view>, 10> sentences{{
        {cannotConnect, "no connection could be made"},
        {nameNotResolved, "the host's name could not be resolved"},
        {tls, "no trustworthy TLS connection could be made"},
        {connectTimeout, "connecting took too long"},
        {totalTimeout, "the reply took too long"},
        {connectionLost, "the connection was lost before the reply was whole"},
        {tooLarge, "the reply is larger than allowed"},
        {malformedURL, "the URL cannot be used"},
        {malformedReply, "the reply is not valid HTTP"},
        {outOfMemory, "there is not enough memory for it"},
    }};
    const auto* const found =
        std::ranges::find(sentences, kind, &std::pair<SlingErrorKind, std::string_view>::first);
    return found != sentences.end() ? found->second : name(kind);
}

constexpr long milliseconds(std::chrono::milliseconds time) {
    // Zero would mean "no limit" to libcurl.
    return static_cast<long>(std::clamp<std::chrono::milliseconds::rep>(
        time.count(), 1, std::numeric_limits<int>::max()));
}

bool hasContent(std::string_view method) {
    return method == "POST" || method == "PUT" || method == "PATCH";
}

template <class Value>
Value infoOf(CURL* easy, CURLINFO info) {
    Value value{};
    curl_easy_getinfo(easy, info, &value);
    return value;
}

bool isReused(CURL* easy) {
    return infoOf<long>(easy, CURLINFO_NUM_CONNECTS) == 0;
}

std::string httpVersionOf(CURL* easy) {
    static constexpr std::array<std::pair<long, std::string_view>, 3> versions{
        {{CURL_HTTP_VERSION_1_0, "1.0"},
         {CURL_HTTP_VERSION_1_1, "1.1"},
         {CURL_HTTP_VERSION_2_0, "2"}}};
    const auto version = infoOf<long>(easy, CURLINFO_HTTP_VERSION);
    const auto* const found =
        std::ranges::find(versions, version, &std::pair<long, std::string_view>::first);
    return found != versions.end() ? std::string(found->second) : std::string();
}

std::uint64_t bytesOf(CURL* easy, CURLINFO info) {
    return static_cast<std::uint64_t>(infoOf<curl_off_t>(easy, info));
}

}  // namespace

CurlExchange::CurlExchange(CurlHandle handle, std::string_view userAgent)
    : userAgent_(userAgent), handle_(std::move(handle)) {}

CURLcode CurlExchange::setUpHandle() {
    CurlOptions set = handle_.setUp();
    set(CURLOPT_HEADERFUNCTION, &CurlExchange::onHeader);
    set(CURLOPT_WRITEFUNCTION, &CurlExchange::onBody);
    set(CURLOPT_PREREQFUNCTION, &CurlExchange::onSend);
    for (const CURLoption each :
         {CURLOPT_HEADERDATA, CURLOPT_WRITEDATA, CURLOPT_PREREQDATA, CURLOPT_PRIVATE})
        set(each, static_cast<void*>(this));
    if (set.result() != CURLE_OK) handle_.release();
    return set.result();
}

std::optional<SlingError> CurlExchange::prepare(CheckedRequest request, Span span,
                                                TransferID transfer) {
    const auto now = std::chrono::steady_clock::now();
    request_ = std::move(request);
    transfer_ = transfer;
    deadline_ = span.deadline;
    offset_ = std::chrono::duration_cast<std::chrono::microseconds>(now - span.started);
    const CURLcode code = easy() != nullptr ? CURLE_OK : setUpHandle();
    if (code == CURLE_OUT_OF_MEMORY) return failure(code);
    if (code != CURLE_OK)
        return SlingError(SlingErrorKind::cannotConnect,
                          "libcurl refuses an option that a safe transfer needs");
    CurlOptions set(easy());
    set(CURLOPT_TIMEOUT_MS,
        milliseconds(std::chrono::ceil<std::chrono::milliseconds>(span.deadline - now)));
    set(CURLOPT_CONNECTTIMEOUT_MS, milliseconds(current().policy.connectTimeout));
    setRequest(set);
    handle_.setURL(set, request_->url());
    if (set.result() != CURLE_OK) return failure(set.result());
    return std::nullopt;
}

TransferID CurlExchange::transferOf(CURL* easy) {
    return static_cast<const CurlExchange*>(infoOf<void*>(easy, CURLINFO_PRIVATE))->transfer_;
}

void CurlExchange::clear(HandleUse use) {
    if (use == HandleUse::once) handle_.release();
    request_.reset();
    reading_ = Reading::statusLine;
    begun_ = tooLarge_ = cut_ = outOfMemory_ = hasMore_ = false;
    headerBytes_ = 0;
    parts_ = {};
}

void CurlExchange::setRequest(CurlOptions& set) {
    const bool isHead = current().method == "HEAD";
    const bool hasBody = !isHead && (current().body || hasContent(current().method));
    // In this order: the later ones change what libcurl concludes from the earlier ones.
    set(CURLOPT_NOBODY, isHead ? 1L : 0L);
    if (hasBody) {
        set(CURLOPT_POSTFIELDSIZE_LARGE,
            static_cast<curl_off_t>(current().body ? current().body->size() : 0));
        set(CURLOPT_POSTFIELDS, current().body ? current().body->data() : "");
    } else if (!isHead) {
        set(CURLOPT_HTTPGET, 1L);
    }
    const std::string_view implied = isHead ? "HEAD" : hasBody ? "POST" : "GET";
    set(CURLOPT_CUSTOMREQUEST, current().method == implied ? nullptr : current().method.c_str());
    set(CURLOPT_HTTPHEADER, headerLines_.of(*request_, hasBody, userAgent_));
}

int CurlExchange::onSend(void* self, char*, char*, int, int) noexcept {
    auto& exchange = *static_cast<CurlExchange*>(self);
    const bool again = std::exchange(exchange.begun_, true);
    // libcurl repeats a request by itself when a kept connection was closed under it.
    return again && !exchange.current().isSafe() ? CURL_PREREQFUNC_ABORT : CURL_PREREQFUNC_OK;
}

// No exception may pass through libcurl. Anything but the size ends the transfer.

std::size_t CurlExchange::onHeader(char* data, std::size_t, std::size_t size, void* self) noexcept {
    auto& exchange = *static_cast<CurlExchange*>(self);
    exchange.handle_.sockets().noteDelivered(size);
    return exchange.taken([&] { return exchange.takeHeaderLine({data, size}); }) ? size : 0;
}

std::size_t CurlExchange::onBody(char* data, std::size_t, std::size_t size, void* self) noexcept {
    if (size == 0) return 0;
    auto& exchange = *static_cast<CurlExchange*>(self);
    exchange.handle_.sockets().noteDelivered(size);
    return exchange.taken([&] { return exchange.takeBody({data, size}); }) ? size : 0;
}

template <class Take>
bool CurlExchange::taken(Take take) noexcept {
    try {
        return take();
    } catch (const std::bad_alloc&) {
        outOfMemory_ = true;
        return false;
    }
}

bool CurlExchange::takeHeaderLine(std::string_view line) {
    headerBytes_ += line.size();
    tooLarge_ = headerBytes_ > current().policy.maxHeaderBytes;
    if (tooLarge_) return false;
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
        line.remove_suffix(1);
    switch (reading_) {
        case Reading::statusLine:
            parts_.headers = {};
            parts_.headers.reserve(usualFields, usualFieldBytes);
            reading_ = Reading::fields;
            break;
        case Reading::fields:
            if (!line.empty()) {
                takeField(line);
                break;
            }
            parts_.status = static_cast<int>(infoOf<long>(easy(), CURLINFO_RESPONSE_CODE));
            reading_ = parts_.status < 200 ? Reading::statusLine : Reading::body;
            break;
        case Reading::body:
            break;  // a trailer
    }
    return true;
}

void CurlExchange::takeField(std::string_view line) {
    const std::size_t colon = line.find(':');
    const bool isFolded = line.front() == ' ' || line.front() == '\t';
    if (colon == 0 || colon == std::string_view::npos || isFolded) return;
    parts_.headers.add(trimmed(line.substr(0, colon)), trimmed(line.substr(colon + 1)));
}

bool CurlExchange::takeBody(std::string_view data) {
    const bool isError = parts_.status >= firstErrorStatus;
    const std::size_t cap = isError
                                ? std::min(current().policy.maxBodyBytes, ErrorReply::maxBodyBytes)
                                : current().policy.maxBodyBytes;
    hasMore_ = hasMore_ || (hasFilledBuffer() && sharesConnection());
    const std::size_t room = cap - parts_.body.size();
    makeRoom(parts_.body.size() + std::min(data.size(), room), cap);
    parts_.body.append(data.substr(0, room));
    if (data.size() <= room) return true;
    (isError ? cut_ : tooLarge_) = true;
    return false;
}

/// Reserves memory for the body in few steps: as much as is announced, but no more than a few times
/// of what has come, for nobody has to send what he announces.
void CurlExchange::makeRoom(std::size_t size, std::size_t cap) {
    if (size <= parts_.body.capacity()) return;
    const auto announced = infoOf<curl_off_t>(easy(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T);
    const std::size_t expected =
        announced > 0 ? std::min(cap, static_cast<std::size_t>(announced)) : 0;
    const std::size_t trusted = std::max(4 * size, CurlHandle::receiveBufferBytes);
    if (expected > size) parts_.body.reserve(std::min(expected, trusted));
}

Timings CurlExchange::timings() const {
    const auto time = [&](CURLINFO info) {
        const std::chrono::microseconds stage(infoOf<curl_off_t>(easy(), info));
        return stage.count() > 0 ? offset_ + stage : stage;
    };
    Timings timings;
    timings.firstByte = time(CURLINFO_STARTTRANSFER_TIME_T);
    timings.total = time(CURLINFO_TOTAL_TIME_T);
    if (isReused(easy())) return timings;
    timings.nameLookup = time(CURLINFO_NAMELOOKUP_TIME_T);
    timings.connect = time(CURLINFO_CONNECT_TIME_T);
    timings.tlsHandshake = time(CURLINFO_APPCONNECT_TIME_T);
    return timings;
}

SlingErrorKind CurlExchange::kindOf(CURLcode code) const {
    // libcurl counts time in milliseconds of a start of its own.
    constexpr std::chrono::milliseconds slack{5};
    if (outOfMemory_) return outOfMemory;
    if (tooLarge_) return tooLarge;
    if (code == CURLE_OPERATION_TIMEDOUT && std::chrono::steady_clock::now() + slack >= deadline_)
        return totalTimeout;
    return meaningOf(code, begun_);
}

SlingError CurlExchange::failure(CURLcode code) const {
    const auto kind = kindOf(code);
    std::string text = request_->url().origin().text() + ": " + std::string(sentence(kind));
    if (!tooLarge_ && !outOfMemory_) text += std::string(" (") + curl_easy_strerror(code) + ')';
    return {kind, std::move(text)};
}

TransportResult CurlExchange::result(CURLcode code) {
    // libcurl takes a head that the connection's end cut off for a whole reply.
    if (code == CURLE_OK && reading_ != Reading::body) code = CURLE_PARTIAL_FILE;
    if (code != CURLE_OK && !cut_) return failure(code);
    parts_.effectiveURL = current().url;
    parts_.timings = timings();
    return Response(std::move(parts_));
}

bool CurlExchange::sharesConnection() const {
    const auto version = infoOf<long>(easy(), CURLINFO_HTTP_VERSION);
    return version != CURL_HTTP_VERSION_1_0 && version != CURL_HTTP_VERSION_1_1;
}

bool CurlExchange::hasFilledBuffer() const {
    return headerBytes_ + bytesOf(easy(), CURLINFO_SIZE_DOWNLOAD_T) >=
           CurlHandle::receiveBufferBytes;
}

bool CurlExchange::leavesMore(bool isWhole) const {
    return begun_ && sharesConnection() && (!isWhole || hasFilledBuffer());
}

void CurlExchange::readOn() const noexcept {
    // The end of a pause is what makes libcurl look into its buffers. It refuses a pause where
    // there is no connection yet.
    if (!begun_ || curl_easy_pause(easy(), CURLPAUSE_RECV) != CURLE_OK) return;
    curl_easy_pause(easy(), CURLPAUSE_CONT);
}

void CurlExchange::describe(TransferLog& log) const {
    log.bytesSent = bytesOf(easy(), CURLINFO_SIZE_UPLOAD_T);
    log.bytesReceived = bytesOf(easy(), CURLINFO_SIZE_DOWNLOAD_T);
    log.timings = timings();
    log.reusedConnection = begun_ && isReused(easy());
    log.httpVersion = httpVersionOf(easy());
}

}  // namespace HalvardSling::internal
