#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include <curl/curl.h>

#include <HalvardSling/curl/internal/SocketTraffic.hpp>
#include <internal/Guarded.hpp>

namespace HalvardSling::internal {

/// The sockets of libcurl's connections, and which origins flood them.
///
/// libcurl reads from an HTTP/2 connection until there is either nothing more or something for a
/// request. A server that sends frames that are for no request, as fast as they are read, keeps it
/// there for ever: no time limit, no cancellation and no other connection has its turn. From
/// outside, such connections are those that bring much while the thread is busy, of which hardly
/// anything reaches a request. Their end is the only thing that lets libcurl go on. Then the origin
/// has to rest, so that one that does so again and again leaves most of the time to the others.
class CurlSockets {
  public:
    /// Opens a socket for a connection. libcurl's thread, like all that does not say otherwise.
    /// @return CURL_SOCKET_BAD if the system has none, or the origin has to rest
    [[nodiscard]] curl_socket_t open(const std::string& origin,
                                     const curl_sockaddr& address) noexcept;

    int close(curl_socket_t descriptor) noexcept;

    /// Something of a reply has reached its request.
    void noteDelivered(std::size_t bytes) noexcept {
        // No other thread writes, so nothing is lost in between.
        delivered_.store(delivered_.load(std::memory_order_relaxed) + bytes,
                         std::memory_order_relaxed);
    }

    /// How many requests libcurl has from now on.
    void noteInFlight(std::size_t requests) noexcept {
        inFlight_.store(requests, std::memory_order_relaxed);
    }

    /// A reply was given up of which so many bytes may be under way: those are no flood.
    void noteGivenUp(std::uint64_t bytes) noexcept {
        givenUp_.fetch_add(bytes, std::memory_order_relaxed);
    }

    /// Looks at the sockets, and aborts the connections to an origin that has flooded them for some
    /// looks. To be called at regular times; any thread.
    /// @param isBusy  whether libcurl's thread is at work at this moment
    void look(bool isBusy) noexcept;

    /// What lies between two looks.
    static constexpr std::chrono::milliseconds interval{20};

  private:
    using Clock = std::chrono::steady_clock;

    struct Account {
        std::size_t sockets = 0;    ///< open ones
        std::uint64_t read = 0;     ///< bytes since the last look
        std::uint64_t sent = 0;     ///< likewise
        std::uint64_t wasted = 0;   ///< bytes that were for no request
        int floodedLooks = 0;       ///< how often the origin was found sending such bytes in plenty
        Clock::time_point rests{};  ///< until then
    };
    using Accounts = std::map<std::string, Account>;  // by origin
    struct Socket {
        SocketTraffic traffic{};  ///< at the last look
        Accounts::iterator account;
    };
    using Sockets = std::map<int, Socket>;  // by descriptor

    /// What libcurl's thread and the one that looks share.
    struct Books {
        Accounts accounts{};
        Sockets sockets{};
        std::uint64_t deliveredBefore = 0;  ///< at the last look
        std::uint64_t underWay = 0;         ///< what may still come of replies that were given up

        Sockets::iterator erase(Sockets::iterator socket) noexcept;
        void takeTraffic() noexcept;
        void abort(Accounts::iterator account) noexcept;
        [[nodiscard]] bool floods(Account& account, std::uint64_t delivered, std::uint64_t gathered,
                                  bool isBusy) noexcept;
    };

    [[nodiscard]] bool mayOpen(const std::string& origin) noexcept;
    void add(int descriptor, const std::string& origin) noexcept;

    std::atomic<std::uint64_t> delivered_{0};
    std::atomic<std::uint64_t> givenUp_{0};
    std::atomic<std::size_t> inFlight_{0};
    KestrinInternal::Guarded<Books> books_;
};

}  // namespace HalvardSling::internal
