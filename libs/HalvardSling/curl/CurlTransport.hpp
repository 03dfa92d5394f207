#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include <HalvardSling/Export.hpp>
#include <HalvardSling/transport/TransferLog.hpp>
#include <HalvardSling/transport/Transport.hpp>

namespace HalvardSling {

namespace internal {
class TransferLoop;
}

/// Sends requests with libcurl, all on one thread of its own that starts with the first request
/// and sleeps without any wake-up while nothing is open. A second thread watches over it.
///
/// Connections are kept and used again; over TLS, HTTP/2 puts the requests for one host onto one
/// connection. Peers are verified, TLS is 1.2 or later, the proxy and netrc settings of the
/// environment are ignored. gzip is decoded.
///
/// Beyond the contract of `Transport`:
///  - Completions are called one after the other on that thread. One that throws ends the program,
///    like any exception that leaves a thread.
///  - A request that changes something (any method but GET, HEAD, OPTIONS and TRACE) reaches the
///    service at most once. A reading one is sent again if a kept connection turns out to be closed
///    before a byte of the reply has come.
///  - A reply that is not whole is none: the request fails with `connectionLost`, however the reply
///    is framed and wherever it was cut, also within gzip. A body over TLS of which nothing but the
///    connection's end says where it ends is not whole. Before libcurl 8.1.0 the same goes for a
///    body over HTTP/2 that has neither a length nor gzip and with which the connection ends; then
///    a reading request is sent once more, for many a service ends its connections in that way.
///    Such a libcurl does not tell of an HTTP/2 body without either whose stream alone was reset
///    without an error code, or whose connection ends while it carries others: who reads the body
///    has to notice that.
///  - Of a status of 400 or above only the status is needed; the body is what could be read of it.
///  - A head with a control character, or with lengths that contradict each other, is malformed. A
///    field whose name is none is left out.
///  - Once something has come over an idle HTTP/1 connection, that is not used again.
///  - Of a reply with an error status no more than `ErrorReply::maxBodyBytes` of the body are read.
///  - Content-Length, Transfer-Encoding and Expect of a request's headers are not sent: the framing
///    is the transport's business. The body of a HEAD request is not sent either.
///  - A redirect is followed by GET after 303, and after 301 and 302 where the method was POST,
///    otherwise by the same method and body. To another origin only GET and HEAD follow, with none
///    but the headers that `RequestPolicy::maxRedirects` names; never from https to http.
///  - A server that floods its connections with what is for no request, and so keeps the thread
///    busy, loses them after about 150 ms: its requests end with `connectionLost`, and for a second
///    further ones with `cannotConnect`. Until then time limits, cancellations and other requests
///    may be late by as much. On Linux; elsewhere nothing notices.
///  - In a process that was forked after the first request every request ends at once with
///    `cannotConnect`, and the destructor does nothing; the process that forked it goes on.
///  - It may be destroyed from inside a completion: the open transfers still end with `cancelled`,
///    on its thread, which then ends by itself; the exit of the process waits for that.
class HALVARD_SLING_EXPORT CurlTransport final : public Transport {
  public:
    /// What an application may choose; what is not set is the default.
    struct Options {
        /// How many transfers are in flight at most; the others wait in the order they came.
        std::size_t maxInFlight = 64;
        /// A file of certificates (PEM) to trust instead of the system's; empty: the system's.
        std::string caBundleFile{};
        /// The proxy to use, e.g. "http://proxy.example:3128"; empty: none.
        std::string proxy{};
        /// What "User-Agent" says where a request does not; empty: nothing is sent.
        std::string userAgent = defaultUserAgent();
        /// Told of every transfer that ends; empty: nobody is.
        TransferLogHook log{};
    };

    /// @throws std::system_error, std::runtime_error, std::bad_alloc if the process has no file or
    ///         no memory left for it, or libcurl cannot be set up
    CurlTransport();
    /// The same with options. @throws as above
    explicit CurlTransport(Options options);
    ~CurlTransport() override;

    TransferID send(CheckedRequest request, TransportCompletion completion) override;
    void cancel(TransferID transfer) noexcept override;

    void abandon() noexcept override;

    /// "KestrinProfile/" and the version.
    [[nodiscard]] static std::string defaultUserAgent();

  private:
    std::shared_ptr<internal::TransferLoop> loop_;
};

}  // namespace HalvardSling
