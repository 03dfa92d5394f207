#pragma once

#include <compare>
#include <map>
#include <set>
#include <string>
#include <utility>

#include <curl/curl.h>

namespace HalvardSling::internal {

class CurlOptions;

/// The connections that libcurl keeps for further requests, and their sockets. libcurl tells a
/// request no more of its connection than the addresses. Used on one thread.
class CurlConnections {
  public:
    /// Both ends of a connection.
    struct Addresses {
        std::string localIP;
        int localPort = 0;
        std::string remoteIP;
        int remotePort = 0;

        friend auto operator<=>(const Addresses&, const Addresses&) = default;
    };

    /// Has libcurl tell of each socket that a handle opens.
    /// @param set  sets options of the handle; this is referred to
    void use(CurlOptions& set);

    /// Notes that a connection is there.
    /// @throws std::bad_alloc
    void add(const Addresses& addresses);

    /// Whether `add` was called since the last time.
    [[nodiscard]] bool takeAdded() noexcept { return std::exchange(isAdded_, false); }

    /// Notes that HTTP/1 is spoken over a connection: nothing comes there unless it is asked for.
    void noteHTTP1(const Addresses& addresses) noexcept;

    /// Whether a connection may carry another request: it is known, and nothing has come over it
    /// that would be taken for the reply. Over TLS that may also be a session ticket that came
    /// late; then nothing is lost but a connection.
    [[nodiscard]] bool isFit(const Addresses& addresses) const noexcept;

    /// Whether libcurl has not yet closed a connection.
    /// @throws std::bad_alloc
    [[nodiscard]] bool isOpen(const Addresses& addresses) const;

  private:
    struct Connection {
        int socket;
        bool isHTTP1 = false;
    };

    static int onSocket(void* self, curl_socket_t socket, curlsocktype purpose) noexcept;
    void forget(int socket) noexcept;

    bool isAdded_ = false;
    std::set<int> unnamed_;  // sockets that may not be connected yet
    std::map<Addresses, Connection> connections_;
};

}  // namespace HalvardSling::internal
