#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <kestrin-profile-server/http/RequestLine.hpp>
#include <kestrin-profile-server/http/Responder.hpp>
#include <kestrin-profile-server/tls/TLSIdentity.hpp>

namespace KestrinProfileServer {

struct HttpSettings {
    std::string host = "127.0.0.1";
    std::uint16_t port = 8480;
    unsigned threads = 1;
    /// How long a client may take for a request, or for reading the reply; also how long a
    /// connection may be idle.
    std::chrono::milliseconds transferTimeout{30000};
    /// How many clients are connected at most; further ones wait until one of them has gone.
    std::size_t maxConnections = 512;
    /// What the bodies and the large replies of all connections together may take, in bytes.
    std::size_t memoryLimit = std::size_t{64} * 1024 * 1024;
    /// Otherwise each request is a line on the standard error, as `requestLine` writes it.
    bool isQuiet = false;
    LogFormat logFormat = LogFormat::text;
    /// Absent: in cleartext.
    std::optional<TLSIdentity> tls;
};

/// Whether only programs on this computer reach what listens on the host.
[[nodiscard]] bool isLoopbackHost(const std::string& host);

/// Listens, reads requests, has them answered and writes the replies. Every connection belongs to
/// one of the threads.
class HttpServer {
  public:
    /// Takes the address, where clients wait from now on; throws StartError when it cannot.
    explicit HttpServer(const HttpSettings& settings);
    /// Stops.
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    /// Begins to serve.
    /// @param responder  lives until `stop` has returned
    void start(const Responder& responder);

    /// Where clients on this computer reach it, like http://127.0.0.1:8080.
    [[nodiscard]] std::string baseURL() const;

    /// Takes no more connections, answers the requests that are running, and returns then.
    void stop();

  private:
    class Implementation;
    std::unique_ptr<Implementation> implementation_;
};

}  // namespace KestrinProfileServer
