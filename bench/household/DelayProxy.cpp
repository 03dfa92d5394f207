#include "household/DelayProxy.hpp"

#include <algorithm>
#include <array>
#include <deque>
#include <list>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <optional>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace Bench {

namespace {

using Clock = std::chrono::steady_clock;

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

const sockaddr* generic(const sockaddr_in& address) {
    return static_cast<const sockaddr*>(static_cast<const void*>(&address));
}

int newSocket() {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (socket < 0) throw std::runtime_error("no socket can be had");
    return socket;
}

void sendAtOnce(int socket) {
    const int yes = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
}

bool sendAll(int socket, const std::string& bytes) {
    for (std::size_t done = 0; done < bytes.size();) {
        const auto count = ::send(socket, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (count <= 0) return false;
        done += static_cast<std::size_t>(count);
    }
    return true;
}

/// One direction of a connection. Empty bytes are the end.
struct Direction {
    struct Chunk {
        Clock::time_point due;
        std::string bytes;
    };

    int from;
    int to;
    std::string DelayProxy::Traffic::* record;
    Clock::time_point earliest;
    bool hasEnded = false;
    std::deque<Chunk> chunks{};

    /// What there is; empty at the end.
    [[nodiscard]] std::string read() {
        std::array<char, 65536> buffer;
        const auto count = ::recv(from, buffer.data(), buffer.size(), 0);
        hasEnded = count <= 0;
        return {buffer.data(), hasEnded ? 0 : static_cast<std::size_t>(count)};
    }

    void deliver() {
        while (!chunks.empty() && chunks.front().due <= Clock::now()) {
            const std::string bytes = std::move(chunks.front().bytes);
            chunks.pop_front();
            if (bytes.empty() || !sendAll(to, bytes)) shutdown(to, SHUT_WR);
        }
    }
};

struct Connection {
    Direction up;
    Direction down;

    [[nodiscard]] bool isOver() const {
        return up.hasEnded && down.hasEnded && up.chunks.empty() && down.chunks.empty();
    }
};

}  // namespace

class DelayProxy::Loop {
  public:
    explicit Loop(DelayProxy& proxy) : proxy_(proxy) {}
    Loop(const Loop&) = delete;
    Loop(Loop&&) = delete;
    Loop& operator=(const Loop&) = delete;
    Loop& operator=(Loop&&) = delete;
    ~Loop() {
        for (const auto& connection : connections_)
            close(connection);
    }

    void run() {
        while (wait()) {
            for (auto& connection : connections_) {
                connection.up.deliver();
                connection.down.deliver();
            }
            connections_.remove_if([](const Connection& connection) {
                if (!connection.isOver()) return false;
                close(connection);
                return true;
            });
        }
    }

  private:
    static void close(const Connection& connection) {
        ::close(connection.up.from);
        ::close(connection.up.to);
    }

    /// Waits for what comes first, and reads what there is. False: it is over.
    bool wait() {
        std::vector<pollfd> files{{proxy_.wake_, POLLIN, 0}, {proxy_.listener_, POLLIN, 0}};
        std::vector<Direction*> directions;
        for (auto& connection : connections_)
            for (auto* direction : {&connection.up, &connection.down}) {
                if (direction->hasEnded) continue;
                files.push_back({direction->from, POLLIN, 0});
                directions.push_back(direction);
            }
        const auto sleep = untilNext();
        const timespec limit{sleep.value_or(Clock::duration()).count() / 1'000'000'000,
                             sleep.value_or(Clock::duration()).count() % 1'000'000'000};
        ppoll(files.data(), files.size(), sleep ? &limit : nullptr, nullptr);
        if (files[0].revents != 0) return false;
        for (std::size_t i = 0; i < directions.size(); ++i)
            if (files[i + 2].revents != 0) pass(*directions[i]);
        if (files[1].revents != 0) accept();
        return true;
    }

    void pass(Direction& direction) {
        std::string bytes = direction.read();
        {
            const std::scoped_lock lock(proxy_.mutex_);
            (proxy_.traffic_.*direction.record).append(bytes);
        }
        const auto due = std::max(Clock::now(), direction.earliest) + proxy_.roundTrip_ / 2;
        direction.chunks.push_back({due, std::move(bytes)});
    }

    [[nodiscard]] std::optional<Clock::duration> untilNext() const {
        std::optional<Clock::time_point> next;
        for (const auto& connection : connections_)
            for (const auto* direction : {&connection.up, &connection.down})
                if (!direction->chunks.empty())
                    next = std::min(next.value_or(Clock::time_point::max()),
                                    direction->chunks.front().due);
        if (!next) return std::nullopt;
        return std::max(*next - Clock::now(), Clock::duration());
    }

    void accept() {
        const int client = accept4(proxy_.listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0) return;
        const int service = newSocket();
        const auto address = loopback(proxy_.service_);
        if (connect(service, generic(address), sizeof address) != 0) {
            ::close(client);
            ::close(service);
            return;
        }
        sendAtOnce(client);
        sendAtOnce(service);
        {
            const std::scoped_lock lock(proxy_.mutex_);
            ++proxy_.traffic_.connections;
        }
        const auto handshake = Clock::now() + proxy_.roundTrip_;
        connections_.push_back({{client, service, &Traffic::sent, handshake},
                                {service, client, &Traffic::received, Clock::time_point()}});
    }

    DelayProxy& proxy_;
    std::list<Connection> connections_;
};

DelayProxy::DelayProxy(std::uint16_t service, std::chrono::nanoseconds roundTrip)
    : service_(service),
      roundTrip_(roundTrip),
      listener_(newSocket()),
      wake_(eventfd(0, EFD_CLOEXEC)) {
    auto address = loopback(0);
    socklen_t length = sizeof address;
    if (bind(listener_, generic(address), length) != 0 || listen(listener_, 128) != 0 ||
        getsockname(listener_, static_cast<sockaddr*>(static_cast<void*>(&address)), &length) != 0)
        throw std::runtime_error("the proxy cannot listen");
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { Loop(*this).run(); });
}

DelayProxy::~DelayProxy() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = write(wake_, &one, sizeof one);
    thread_.join();
    ::close(listener_);
    ::close(wake_);
}

DelayProxy::Traffic DelayProxy::take() {
    const std::scoped_lock lock(mutex_);
    return std::exchange(traffic_, {});
}

}  // namespace Bench
