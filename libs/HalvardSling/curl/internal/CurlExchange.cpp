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

/// CURLE_TOO_LARGE, which libcurl has from 8.6.0 on.
constexpr auto lineTooLong = static_cast<CURLcode>(100);

constexpr std::array meanings{
    Meaning{CURLE_UNSUPPORTED_PROTOCOL, malformedURL, malformedReply},  // after: HTTP/0.9
    Meaning{CURLE_URL_MALFORMAT, malformedURL, malformedURL},
    Meaning{CURLE_COULDNT_RESOLVE_PROXY, nameNotResolved, nameNotResolved},
    Meaning{CURLE_COULDNT_RESOLVE_HOST, nameNotResolved, nameNotResolved},
    Meaning{CURLE_WEIRD_SERVER_REPLY, cannotConnect, malformedReply},
    Meaning{CURLE_BAD_CONTENT_ENCODING, malformedReply, malformedReply},
    // The length of a line of the reply's head is the one size that libcurl limits by itself.
    Meaning{CURLE_OUT_OF_MEMORY, outOfMemory, tooLarge},
    Meaning{lineTooLong, cannotConnect, tooLarge},
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

/// A control character: parsers disagree about what a line with one means.
bool isForbiddenInHead(char c) noexcept {
    return (static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7F;
}

/// Whether a head's lengths, if it has any, say one thing and libcurl understands it.
bool hasUsableLength(const Headers& headers) {
    constexpr std::size_t mostDigits = 18;
    const auto length = headers.value("Content-Length");
    if (!length) return true;
    const bool isNumber = !length->empty() && length->size() <= mostDigits &&
                          std::ranges::all_of(*length, KestrinInternal::isDigit);
    return isNumber && std::ranges::all_of(headers, [&](const auto& field) {
               return !Headers::sameName(field.first, "Content-Length") || field.second == *length;
           });
}

/// Whether a body over HTTP/1.1 says by itself where it ends.
bool isChunked(const Headers& headers) {
    const auto coding = headers.value("Transfer-Encoding");
    return coding && KestrinInternal::equalsIgnoringCase(*coding, "chunked");
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

CurlExchange::CurlExchange(CurlHandle handle, std::string_view userAgent,
                           CurlConnections& connections)
    : userAgent_(userAgent), connections_(connections), handle_(std::move(handle)) {}

CURLcode CurlExchange::setUpHandle() {
    CurlOptions set = handle_.setUp();
    connections_.use(set);
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
    request_ = std::move(request);
    transfer_ = transfer;
    span_ = span;
    const CURLcode code = easy() != nullptr ? CURLE_OK : setUpHandle();
    if (code == CURLE_OUT_OF_MEMORY) return failure(code);
    if (code != CURLE_OK)
        return SlingError(SlingErrorKind::cannotConnect,
                          "libcurl refuses an option that a safe transfer needs");
    CurlOptions set(easy());
    setTimeLimit(set);
    set(CURLOPT_CONNECTTIMEOUT_MS, milliseconds(current().policy.connectTimeout));
    set(CURLOPT_FRESH_CONNECT, isElsewhere_ ? 1L : 0L);
    setRequest(set);
    handle_.setURL(set, checked().url());
    if (set.result() != CURLE_OK) return failure(set.result());
    return std::nullopt;
}

/// libcurl counts from when it is given the handle.
void CurlExchange::setTimeLimit(CurlOptions& set) {
    const auto now = std::chrono::steady_clock::now();
    offset_ = std::chrono::duration_cast<std::chrono::microseconds>(now - span_.started);
    set(CURLOPT_TIMEOUT_MS,
        milliseconds(std::chrono::ceil<std::chrono::milliseconds>(span_.deadline - now)));
}

void CurlExchange::prepareAnew() {
    CurlOptions set(easy());
    setTimeLimit(set);
}

bool CurlExchange::goesElsewhere(CURLcode code) const {
    if (isElsewhere_) return false;
    return isSpoilt_ || (code == CURLE_OK && reading_ == Reading::body && !isBodyWhole() &&
                         sharesConnection() && !decoder_ && current().isSafe());
}

bool CurlExchange::prepareElsewhere() noexcept {
    return taken([this] {
        CheckedRequest request = *request_;
        clear(HandleUse::once);
        isElsewhere_ = true;
        return !prepare(std::move(request), span_, transfer_);
    });
}

TransferID CurlExchange::transferOf(CURL* easy) {
    return static_cast<const CurlExchange*>(infoOf<void*>(easy, CURLINFO_PRIVATE))->transfer_;
}

void CurlExchange::clear(HandleUse use) {
    if (use == HandleUse::once) handle_.release();
    request_.reset();
    reading_ = Reading::statusLine;
    begun_ = isSpoilt_ = isElsewhere_ = isConnected_ = hasMore_ = false;
    refusal_.reset();
    headerBytes_ = 0;
    decoder_.reset();
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
    set(CURLOPT_HTTPHEADER, headerLines_.of(checked(), hasBody, userAgent_));
}

// No exception may pass through libcurl. Anything but the size ends the transfer.

int CurlExchange::onSend(void* self, char* remoteIP, char* localIP, int remotePort,
                         int localPort) noexcept {
    auto& exchange = *static_cast<CurlExchange*>(self);
    const bool sends = exchange.taken(
        [&] { return exchange.maySend({localIP, localPort, remoteIP, remotePort}); });
    return sends ? CURL_PREREQFUNC_OK : CURL_PREREQFUNC_ABORT;
}

/// Whether a request may go over the connection that libcurl has chosen.
bool CurlExchange::maySend(CurlConnections::Addresses connection) {
    // libcurl repeats a request by itself when a kept connection was closed under it.
    if (begun_ && !current().isSafe()) return false;
    connection_ = std::move(connection);
    if (!isReused(easy())) {
        connections_.add(connection_);
        isConnected_ = origin().scheme == "https";
    }
    // What came without being asked for would be taken for the reply.
    isSpoilt_ = isReused(easy()) && !connections_.isFit(connection_);
    begun_ = begun_ || !isSpoilt_;
    return !isSpoilt_;
}

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
        return refuse(outOfMemory);
    }
}

/// @return false
bool CurlExchange::refuse(SlingErrorKind reason) noexcept {
    refusal_ = reason;
    return false;
}

bool CurlExchange::takeHeaderLine(std::string_view line) {
    headerBytes_ += line.size();
    if (headerBytes_ > current().policy.maxHeaderBytes) return refuse(tooLarge);
    for (const char end : {'\n', '\r'})
        if (line.ends_with(end)) line.remove_suffix(1);
    if (std::ranges::any_of(line, isForbiddenInHead)) return refuse(malformedReply);
    switch (reading_) {
        case Reading::statusLine:
            if (line.starts_with("HTTP/1")) connections_.noteHTTP1(connection_);
            parts_.headers = {};
            parts_.headers.reserve(usualFields, usualFieldBytes);
            reading_ = Reading::fields;
            break;
        case Reading::fields:
            if (line.empty()) return takeEndOfHead();
            takeField(line);
            break;
        case Reading::body:
            break;  // a trailer
    }
    return true;
}

/// Takes a field whose name is one. What follows a folded line is not its value's rest.
void CurlExchange::takeField(std::string_view line) {
    const std::size_t colon = line.find(':');
    const bool isFolded = line.front() == ' ' || line.front() == '\t';
    if (colon == std::string_view::npos || isFolded) return;
    const auto name = trimmed(line.substr(0, colon));
    if (Headers::isValidName(name)) parts_.headers.add(name, trimmed(line.substr(colon + 1)));
}

bool CurlExchange::takeEndOfHead() {
    parts_.status = static_cast<int>(infoOf<long>(easy(), CURLINFO_RESPONSE_CODE));
    reading_ = parts_.status < 200 ? Reading::statusLine : Reading::body;
    return reading_ == Reading::statusLine || hasUsableLength(parts_.headers) ||
           refuse(malformedReply);
}

bool CurlExchange::takeBody(std::string_view data) {
    hasMore_ = hasMore_ || (hasFilledBuffer() && sharesConnection());
    const auto takeDecoded = [this](std::string_view part) { return this->takeDecoded(part); };
    if (parts_.body.empty() && !decoder_ && !beginBody()) return false;
    if (!decoder_) return takeDecoded(data);
    decoder_->decode(data, takeDecoded);
    if (decoder_->state() == GzipDecoder::State::broken) return refuse(malformedReply);
    return !refusal_;
}

/// Looks how the body is coded.
bool CurlExchange::beginBody() {
    const auto codings = parts_.headers.value("Content-Encoding").value_or("identity");
    if (KestrinInternal::equalsIgnoringCase(codings, "identity")) return true;
    static constexpr std::array<std::string_view, 3> known{"gzip", "x-gzip", "deflate"};
    if (std::ranges::none_of(
            known, [&](auto each) { return KestrinInternal::equalsIgnoringCase(codings, each); }))
        return refuse(malformedReply);
    decoder_.emplace();
    return true;
}

bool CurlExchange::takeDecoded(std::string_view data) {
    const std::size_t cap = isErrorStatus()
                                ? std::min(current().policy.maxBodyBytes, ErrorReply::maxBodyBytes)
                                : current().policy.maxBodyBytes;
    const std::size_t room = cap - parts_.body.size();
    makeRoom(parts_.body.size() + std::min(data.size(), room), cap);
    parts_.body.append(data.substr(0, room));
    return data.size() <= room || refuse(tooLarge);
}

bool CurlExchange::isErrorStatus() const noexcept {
    return reading_ == Reading::body && parts_.status >= firstErrorStatus;
}

/// Reserves memory for the body in few steps: as much as is announced, but no more than a few times
/// of what has come, for nobody has to send what he announces.
void CurlExchange::makeRoom(std::size_t size, std::size_t cap) {
    if (size <= parts_.body.capacity()) return;
    const auto announced = announcedLength();
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
    if (refusal_) return *refusal_;
    if (code == CURLE_OPERATION_TIMEDOUT &&
        std::chrono::steady_clock::now() + slack >= span_.deadline)
        return totalTimeout;
    return meaningOf(code, begun_);
}

SlingError CurlExchange::failure(CURLcode code) const {
    const auto kind = kindOf(code);
    std::string text = checked().url().origin().text() + ": " + std::string(sentence(kind));
    if (!refusal_) text += std::string(" (") + curl_easy_strerror(code) + ')';
    return {kind, std::move(text)};
}

TransportResult CurlExchange::result(CURLcode code) {
    // libcurl takes a head that the connection's end cut off for a whole reply.
    if (code == CURLE_OK && (reading_ != Reading::body || !isBodyWhole()))
        code = CURLE_PARTIAL_FILE;
    // Over TLS newer versions of libcurl tell if an end was not the server's. A coded body knows
    // its own, and needs no other where nothing but the connection's end follows.
    if (code == CURLE_RECV_ERROR && decoder_ && isBodyWhole() && announcedLength() < 0 &&
        isEndedByConnection())
        code = CURLE_OK;
    // A status that says what went wrong counts, whatever became of its explanation.
    if (code != CURLE_OK && (!isErrorStatus() || refusal_ == outOfMemory)) return failure(code);
    parts_.effectiveURL = current().url;
    parts_.timings = timings();
    return Response(std::move(parts_));
}

/// Whether the body has come to its end, of a reply that libcurl takes for whole.
bool CurlExchange::isBodyWhole() const {
    if (decoder_) return decoder_->state() == GzipDecoder::State::ended;
    const bool hasBody = current().method != "HEAD" && parts_.status != 204 && parts_.status != 304;
    return !hasBody || announcedLength() >= 0 || !isEndedByConnection();
}

/// Less than 0: no length was given.
curl_off_t CurlExchange::announcedLength() const {
    return infoOf<curl_off_t>(easy(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T);
}

/// Whether the end of the connection was what ended the body, and may have cut it.
bool CurlExchange::isEndedByConnection() const {
    // In cleartext nothing else could have been the end, and over TLS libcurl 7.88.1 does not tell
    // whether the end was the server's.
    if (!sharesConnection()) return origin().scheme == "https" && !isChunked(parts_.headers);
    // Such a libcurl takes the end of a connection that broke the protocol for the end of its
    // streams.
    constexpr unsigned mended = 0x080100;
    return curl_version_info(CURLVERSION_NOW)->version_num < mended &&
           !connections_.isOpen(connection_);
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

std::uint64_t CurlExchange::leavesUnderWay(bool isWhole) const {
    if (!begun_ || isWhole || reading_ != Reading::body || !sharesConnection()) return 0;
    constexpr std::uint64_t unknown = std::numeric_limits<std::uint32_t>::max();
    const auto announced = announcedLength();
    const std::uint64_t received = bytesOf(easy(), CURLINFO_SIZE_DOWNLOAD_T);
    const auto all = announced < 0 ? unknown : static_cast<std::uint64_t>(announced);
    return all - std::min(all, received);
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
