#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include <curl/curl.h>

#include <HalvardSling/CurlExchange.hpp>
#include <HalvardSling/URL.hpp>

namespace HalvardSling {

namespace {

constexpr long receiveBufferBytes = 256L * 1024;
constexpr int firstErrorStatus = 400;
constexpr std::size_t usualFields = 16;

/// What a result of libcurl means before the request was handed to a connection, and after.
struct Meaning {
    CURLcode code;
    SlingErrorKind before;
    SlingErrorKind after;
};

using enum SlingErrorKind;

constexpr std::array meanings{
    Meaning{CURLE_UNSUPPORTED_PROTOCOL, malformedURL, malformedReply},  // after: HTTP/0.9
    Meaning{CURLE_URL_MALFORMAT, malformedURL, malformedURL},
    Meaning{CURLE_COULDNT_RESOLVE_PROXY, nameNotResolved, nameNotResolved},
    Meaning{CURLE_COULDNT_RESOLVE_HOST, nameNotResolved, nameNotResolved},
    Meaning{CURLE_WEIRD_SERVER_REPLY, cannotConnect, malformedReply},
    Meaning{CURLE_BAD_CONTENT_ENCODING, malformedReply, malformedReply},
    // The length of a line of the reply's head is the one size that libcurl limits by itself.
    Meaning{CURLE_OUT_OF_MEMORY, cannotConnect, tooLarge},
    Meaning{CURLE_FILESIZE_EXCEEDED, tooLarge, tooLarge},
    Meaning{CURLE_OPERATION_TIMEDOUT, connectTimeout, connectionLost},
    Meaning{CURLE_SSL_CONNECT_ERROR, tls, tls},
    Meaning{CURLE_SSL_ENGINE_NOTFOUND, tls, tls},
    Meaning{CURLE_SSL_ENGINE_SETFAILED, tls, tls},
    Meaning{CURLE_SSL_CERTPROBLEM, tls, tls},
    Meaning{CURLE_SSL_CIPHER, tls, tls},
    Meaning{CURLE_PEER_FAILED_VERIFICATION, tls, tls},
    Meaning{CURLE_USE_SSL_FAILED, tls, tls},
    Meaning{CURLE_SSL_ENGINE_INITFAILED, tls, tls},
    Meaning{CURLE_SSL_CACERT_BADFILE, tls, tls},
    Meaning{CURLE_SSL_CRL_BADFILE, tls, tls},
    Meaning{CURLE_SSL_ISSUER_ERROR, tls, tls},
    Meaning{CURLE_SSL_PINNEDPUBKEYNOTMATCH, tls, tls},
    Meaning{CURLE_SSL_INVALIDCERTSTATUS, tls, tls},
    Meaning{CURLE_SSL_CLIENTCERT, tls, tls},
};

SlingErrorKind meaningOf(CURLcode code, bool begun) {
    const auto* const found = std::ranges::find(meanings, code, &Meaning::code);
    if (found != meanings.end()) return begun ? found->after : found->before;
    return begun ? connectionLost : cannotConnect;
}

std::string_view sentence(SlingErrorKind kind) {
    static constexpr std::array<std::pair<SlingErrorKind, std::string_view>, 9> sentences{{
        {cannotConnect, "no connection could be made"},
        {nameNotResolved, "the host's name could not be resolved"},
        {tls, "no trustworthy TLS connection could be made"},
        {connectTimeout, "connecting took too long"},
        {totalTimeout, "the reply took too long"},
        {connectionLost, "the connection was lost before the reply was whole"},
        {tooLarge, "the reply is larger than allowed"},
        {malformedURL, "the URL cannot be used"},
        {malformedReply, "the reply is not valid HTTP"},
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

constexpr bool isBlank(char c) noexcept {
    return c == ' ' || c == '\t';
}

std::string_view trimmed(std::string_view text) noexcept {
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

/// Header fields that say how the message is framed.
bool isFraming(std::string_view name) {
    static constexpr std::array<std::string_view, 3> framing{"Content-Length", "Transfer-Encoding",
                                                             "Expect"};
    return std::ranges::any_of(framing, [&](auto each) { return Headers::sameName(each, name); });
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

/// Sets options of one handle and remembers whether one of those that matter was refused.
class CurlExchange::Options {
  public:
    explicit Options(CURL* easy) : easy_(easy) {}

    template <class Value>
    void operator()(CURLoption option, Value value) {
        const CURLcode code = curl_easy_setopt(easy_, option, value);
        if (result_ == CURLE_OK) result_ = code;
    }

    /// For what a libcurl that was built without it can do without.
    template <class Value>
    void ifAvailable(CURLoption option, Value value) {
        curl_easy_setopt(easy_, option, value);
    }

    [[nodiscard]] CURLcode result() const { return result_; }

  private:
    CURL* easy_;
    CURLcode result_ = CURLE_OK;
};

void CurlExchange::ListFree::operator()(curl_slist* list) const noexcept {
    curl_slist_free_all(list);
}

CurlExchange::Scheme CurlExchange::schemeOf(const TransportRequest& request) noexcept {
    return Headers::sameName(std::string_view(request.url).substr(0, 5), "http:") ? Scheme::http
                                                                                  : Scheme::https;
}

int CurlExchange::setUp(void* easy, Scheme scheme, const CurlTransport::Options& options) {
    Options set(easy);
    setSafety(set, scheme, options);
    setConnection(set, scheme, options);
    setCallbacks(set);
    return set.result();
}

std::optional<SlingError> CurlExchange::prepare(void* easy,
                                                std::shared_ptr<const TransportRequest> request,
                                                Span span, void* owner) {
    const auto now = std::chrono::steady_clock::now();
    easy_ = easy;
    request_ = std::move(request);
    deadline_ = span.deadline;
    offset_ = std::chrono::duration_cast<std::chrono::microseconds>(now - span.started);
    if (auto problem = problemOfRequest(*request_)) return problem;
    if (easy == nullptr)
        return SlingError(SlingErrorKind::cannotConnect,
                          "libcurl refuses an option that a safe transfer needs");
    Options set(easy);
    set(CURLOPT_PRIVATE, owner);
    set(CURLOPT_TIMEOUT_MS,
        milliseconds(std::chrono::ceil<std::chrono::milliseconds>(span.deadline - now)));
    set(CURLOPT_CONNECTTIMEOUT_MS, milliseconds(request_->connectTimeout));
    setRequest(set);
    if (set.result() != CURLE_OK) return failure(set.result());
    return std::nullopt;
}

void* CurlExchange::ownerOf(void* easy) {
    return infoOf<void*>(easy, CURLINFO_PRIVATE);
}

void CurlExchange::setSafety(Options& set, Scheme scheme, const CurlTransport::Options& options) {
    set(CURLOPT_PROTOCOLS_STR, scheme == Scheme::http ? "http" : "https");
    set(CURLOPT_FOLLOWLOCATION, 0L);
    set(CURLOPT_PATH_AS_IS, 1L);
    set(CURLOPT_HTTP09_ALLOWED, 0L);
    set(CURLOPT_DISALLOW_USERNAME_IN_URL, 1L);
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
    set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    if (!options.caBundleFile.empty()) {
        set(CURLOPT_CAINFO, options.caBundleFile.c_str());
        set.ifAvailable(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    }
    // An empty text, unlike none at all, keeps libcurl from asking the environment.
    set(CURLOPT_PROXY, options.proxy.c_str());
    set(CURLOPT_NOPROXY, "");
    set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    set(CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
}

void CurlExchange::setConnection(Options& set, Scheme scheme,
                                 const CurlTransport::Options& options) {
    set(CURLOPT_NOSIGNAL, 1L);
    set.ifAvailable(CURLOPT_BUFFERSIZE, receiveBufferBytes);
    // Without it, aborting a transfer would wait for the system's name lookup.
    set.ifAvailable(CURLOPT_QUICK_EXIT, 1L);
    set.ifAvailable(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
    // Wait for a connection that is being made: HTTP/2 may put this request onto it. In cleartext,
    // where that cannot be, libcurl would wait for the connection's first reply.
    set.ifAvailable(CURLOPT_PIPEWAIT, scheme == Scheme::http ? 0L : 1L);
    set.ifAvailable(CURLOPT_ACCEPT_ENCODING, "gzip");
    if (!options.userAgent.empty()) set(CURLOPT_USERAGENT, options.userAgent.c_str());
}

void CurlExchange::setCallbacks(Options& set) {
    set(CURLOPT_HEADERFUNCTION, &CurlExchange::onHeader);
    set(CURLOPT_WRITEFUNCTION, &CurlExchange::onBody);
    set(CURLOPT_PREREQFUNCTION, &CurlExchange::onSend);
}

void CurlExchange::setRequest(Options& set) {
    set(CURLOPT_URL, escapedForRequestLine(request_->url).c_str());
    setMethod(set);
    headerLines_ = headerLines();
    set(CURLOPT_HTTPHEADER, headerLines_.get());
    for (const CURLoption each : {CURLOPT_HEADERDATA, CURLOPT_WRITEDATA, CURLOPT_PREREQDATA})
        set(each, static_cast<void*>(this));
}

void CurlExchange::setMethod(Options& set) const {
    const bool isHead = request_->method == "HEAD";
    const bool hasBody = !isHead && (request_->body || hasContent(request_->method));
    // In this order: the later ones change what libcurl concludes from the earlier ones.
    set(CURLOPT_NOBODY, isHead ? 1L : 0L);
    if (hasBody) {
        set(CURLOPT_POSTFIELDSIZE_LARGE,
            static_cast<curl_off_t>(request_->body ? request_->body->size() : 0));
        set(CURLOPT_POSTFIELDS, request_->body ? request_->body->data() : "");
    } else if (!isHead) {
        set(CURLOPT_HTTPGET, 1L);
    }
    const std::string_view implied = isHead ? "HEAD" : hasBody ? "POST" : "GET";
    set(CURLOPT_CUSTOMREQUEST, request_->method == implied ? nullptr : request_->method.c_str());
}

CurlExchange::List CurlExchange::headerLines() const {
    List lines;
    const auto append = [&](const std::string& line) {
        lines.reset(curl_slist_append(lines.release(), line.c_str()));
    };
    // "Name:" takes away what libcurl sends of its own accord, "Name;" sends an empty value.
    if (request_->body || hasContent(request_->method)) {
        append("Expect:");
        if (!request_->headers.value("Content-Type")) append("Content-Type:");
    }
    if (!request_->sendsUserAgent && !request_->headers.value("User-Agent")) append("User-Agent:");
    for (const auto& [name, value] : request_->headers) {
        if (isFraming(name)) continue;
        append(trimmed(value).empty() ? name + ';' : name + ": " + value);
    }
    return lines;
}

int CurlExchange::onSend(void* self, char*, char*, int, int) {
    auto& exchange = *static_cast<CurlExchange*>(self);
    const bool again = std::exchange(exchange.begun_, true);
    // libcurl repeats a request by itself when a kept connection was closed under it.
    return again && !exchange.request_->isIdempotent() ? CURL_PREREQFUNC_ABORT : CURL_PREREQFUNC_OK;
}

std::size_t CurlExchange::onHeader(char* data, std::size_t, std::size_t size, void* self) {
    return static_cast<CurlExchange*>(self)->takeHeaderLine({data, size}) ? size : 0;
}

std::size_t CurlExchange::onBody(char* data, std::size_t, std::size_t size, void* self) {
    if (size == 0) return 0;
    // Anything but the size ends the transfer.
    return static_cast<CurlExchange*>(self)->takeBody({data, size}) ? size : 0;
}

bool CurlExchange::takeHeaderLine(std::string_view line) {
    headerBytes_ += line.size();
    tooLarge_ = headerBytes_ > request_->maxHeaderBytes;
    if (tooLarge_) return false;
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
        line.remove_suffix(1);
    switch (reading_) {
        case Reading::statusLine:
            parts_.headers = {};
            parts_.headers.reserve(usualFields);
            reading_ = Reading::fields;
            break;
        case Reading::fields:
            if (!line.empty()) {
                takeField(line);
                break;
            }
            parts_.status = static_cast<int>(infoOf<long>(easy_, CURLINFO_RESPONSE_CODE));
            reading_ = parts_.status < 200 ? Reading::statusLine : Reading::body;
            break;
        case Reading::body:
            break;  // a trailer
    }
    return true;
}

void CurlExchange::takeField(std::string_view line) {
    const std::size_t colon = line.find(':');
    if (colon == 0 || colon == std::string_view::npos || isBlank(line.front())) return;
    parts_.headers.add(std::string(trimmed(line.substr(0, colon))),
                       std::string(trimmed(line.substr(colon + 1))));
}

bool CurlExchange::takeBody(std::string_view data) {
    const bool isError = parts_.status >= firstErrorStatus;
    const std::size_t cap = isError ? std::min(request_->maxBodyBytes, ErrorReply::maxBodyBytes)
                                    : request_->maxBodyBytes;
    if (parts_.body.empty()) {
        const auto announced = infoOf<curl_off_t>(easy_, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T);
        if (announced > 0) parts_.body.reserve(std::min(cap, static_cast<std::size_t>(announced)));
    }
    const std::size_t room = cap - parts_.body.size();
    parts_.body.append(data.substr(0, room));
    if (data.size() <= room) return true;
    (isError ? cut_ : tooLarge_) = true;
    return false;
}

Timings CurlExchange::timingsOf(void* easy) const {
    const auto time = [&](CURLINFO info) {
        const std::chrono::microseconds stage(infoOf<curl_off_t>(easy, info));
        return stage.count() > 0 ? offset_ + stage : stage;
    };
    Timings timings;
    timings.firstByte = time(CURLINFO_STARTTRANSFER_TIME_T);
    timings.total = time(CURLINFO_TOTAL_TIME_T);
    if (isReused(easy)) return timings;
    timings.nameLookup = time(CURLINFO_NAMELOOKUP_TIME_T);
    timings.connect = time(CURLINFO_CONNECT_TIME_T);
    timings.tlsHandshake = time(CURLINFO_APPCONNECT_TIME_T);
    return timings;
}

SlingErrorKind CurlExchange::kindOf(int code) const {
    // libcurl counts time in milliseconds of a start of its own.
    constexpr std::chrono::milliseconds slack{5};
    if (tooLarge_) return tooLarge;
    if (code == CURLE_OPERATION_TIMEDOUT && std::chrono::steady_clock::now() + slack >= deadline_)
        return totalTimeout;
    return meaningOf(static_cast<CURLcode>(code), begun_);
}

SlingError CurlExchange::failure(int code) const {
    const auto kind = kindOf(code);
    const auto origin = originOf(request_->url);
    std::string text = request_->method + ' ' + (origin ? origin->text() : std::string()) +
                       request_->pathTemplate + ": " + std::string(sentence(kind));
    if (!tooLarge_)
        text += std::string(" (") + curl_easy_strerror(static_cast<CURLcode>(code)) + ')';
    return {kind, std::move(text)};
}

TransportResult CurlExchange::result(void* easy, int code) {
    // libcurl takes a head that the connection's end cut off for a whole reply.
    if (code == CURLE_OK && reading_ != Reading::body) code = CURLE_PARTIAL_FILE;
    if (code != CURLE_OK && !cut_) return failure(code);
    parts_.effectiveURL = request_->url;
    parts_.timings = timingsOf(easy);
    return Response(std::move(parts_));
}

void CurlExchange::describe(void* easy, TransferLog& log) const {
    log.bytesSent = bytesOf(easy, CURLINFO_SIZE_UPLOAD_T);
    log.bytesReceived = bytesOf(easy, CURLINFO_SIZE_DOWNLOAD_T);
    log.timings = timingsOf(easy);
    log.reusedConnection = begun_ && isReused(easy);
    log.httpVersion = httpVersionOf(easy);
}

}  // namespace HalvardSling
