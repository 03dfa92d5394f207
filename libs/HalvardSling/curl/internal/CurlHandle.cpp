#include <new>
#include <utility>

#include <HalvardSling/curl/internal/CurlHandle.hpp>
#include <HalvardSling/curl/internal/CurlOptions.hpp>
#include <HalvardSling/curl/internal/CurlSockets.hpp>

namespace HalvardSling::internal {

namespace {

void setSafety(CurlOptions& set, bool isSecure, const CurlTransport::Options& options) {
    set(CURLOPT_PROTOCOLS_STR, isSecure ? "https" : "http");
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

void setConnection(CurlOptions& set, bool isSecure) {
    set(CURLOPT_NOSIGNAL, 1L);
    set.ifAvailable(CURLOPT_BUFFERSIZE, static_cast<long>(CurlHandle::receiveBufferBytes));
    // Without it, aborting a transfer would wait for the system's name lookup.
    set.ifAvailable(CURLOPT_QUICK_EXIT, 1L);
    set.ifAvailable(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
    // Wait for a connection that is being made: HTTP/2 may put this request onto it. In cleartext,
    // where that cannot be, libcurl would wait for the connection's first reply.
    set.ifAvailable(CURLOPT_PIPEWAIT, isSecure ? 1L : 0L);
    // Replies are decoded here, for libcurl does not tell whether a gzip text was whole.
    set(CURLOPT_HTTP_CONTENT_DECODING, 0L);
}

}  // namespace

HandleUse safeHandleUse(unsigned version) noexcept {
    constexpr unsigned mended = 0x080100;
    return version < mended ? HandleUse::once : HandleUse::often;
}

CurlHandle::CurlHandle(Origin origin, const CurlTransport::Options& options, CurlSockets& sockets)
    : options_(options),
      sockets_(sockets),
      origin_(std::move(origin)),
      originText_(origin_.text()),
      parts_(curl_url()) {
    const auto parsed =
        curl_url_set(parts_.get(), CURLUPART_URL, originText_.c_str(), CURLU_DISALLOW_USER);
    if (!parts_ || parsed == CURLUE_OUT_OF_MEMORY) throw std::bad_alloc();
    if (parsed != CURLUE_OK) parts_.reset();
}

CurlOptions CurlHandle::setUp() {
    easy_.reset(curl_easy_init());
    if (!easy_) throw std::bad_alloc();
    const bool isSecure = origin_.scheme == "https";
    CurlOptions set(easy_.get());
    setSafety(set, isSecure, options_);
    setConnection(set, isSecure);
    setSockets(set);
    // A proxy is asked for the whole URL if the request is not tunnelled through it.
    if (options_.proxy.empty()) set(CURLOPT_CURLU, parts_.get());
    if (!parts_) set.fail(CURLE_URL_MALFORMAT);
    return set;
}

void CurlHandle::setSockets(CurlOptions& set) {
    set(CURLOPT_OPENSOCKETFUNCTION, &CurlHandle::onOpenSocket);
    set(CURLOPT_OPENSOCKETDATA, static_cast<void*>(this));
    // The connection may outlive the handle.
    set(CURLOPT_CLOSESOCKETFUNCTION, &CurlHandle::onCloseSocket);
    set(CURLOPT_CLOSESOCKETDATA, static_cast<void*>(&sockets_));
}

curl_socket_t CurlHandle::onOpenSocket(void* self, curlsocktype, curl_sockaddr* address) noexcept {
    auto& handle = *static_cast<CurlHandle*>(self);
    handle.hasSocket_ = true;
    return handle.sockets_.open(handle.originText_, *address);
}

int CurlHandle::onCloseSocket(void* sockets, curl_socket_t descriptor) noexcept {
    return static_cast<CurlSockets*>(sockets)->close(descriptor);
}

void CurlHandle::setURL(CurlOptions& set, const URL& url) {
    hasSocket_ = false;
    if (!options_.proxy.empty())
        set(CURLOPT_URL, url.text().c_str());
    else
        set(CURLOPT_REQUEST_TARGET, url.requestTarget().c_str());
}

}  // namespace HalvardSling::internal
