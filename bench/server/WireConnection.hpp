#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Bench {

/// One kept connection to a service on the loopback interface, with as little client as possible,
/// so that the service is what is measured: it sends texts and counts the bytes that come back.
class WireConnection {
  public:
    explicit WireConnection(std::uint16_t port);
    WireConnection(const WireConnection&) = delete;
    WireConnection(WireConnection&&) = delete;
    WireConnection& operator=(const WireConnection&) = delete;
    WireConnection& operator=(WireConnection&&) = delete;
    ~WireConnection();

    /// For poll().
    [[nodiscard]] int descriptor() const noexcept { return socket_; }

    /// Sends a request and reads its reply as HTTP/1.1 with "Content-Length", or without a body.
    [[nodiscard]] std::string exchange(std::string_view request);

    void send(std::string_view request) const;

    /// Receives what is there of a reply to the last `send`.
    /// @param size  the reply's length, known from `exchange`
    /// @return whether the reply is whole
    [[nodiscard]] bool receive(std::size_t size);

    /// Waits for the whole reply.
    void await(std::size_t size);

    /// Whether the last reply began with "HTTP/1.1 2".
    [[nodiscard]] bool succeeded() const noexcept { return succeeded_; }

  private:
    [[nodiscard]] std::string receiveSome() const;

    int socket_;
    std::size_t received_ = 0;
    bool succeeded_ = false;
};

}  // namespace Bench
