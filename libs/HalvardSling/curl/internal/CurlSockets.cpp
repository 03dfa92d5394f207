#include <algorithm>
#include <fcntl.h>
#include <new>
#include <optional>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

#include <HalvardSling/curl/internal/CurlHandle.hpp>
#include <HalvardSling/curl/internal/CurlSockets.hpp>
#include <internal/FileDescriptor.hpp>

namespace HalvardSling::internal {

namespace {

using KestrinInternal::FileDescriptor;

// A small piece of a reply has its frame and its TLS record around it, and each piece of a large
// request body may be acknowledged.
constexpr std::uint64_t carriedByDelivered = 4;
constexpr std::uint64_t sentPerCarried = 16;

/// What an origin may send between two looks without being asked: 200 kB a second.
constexpr std::uint64_t tolerated = 4096;

// A flood is cut at the seventh look.
constexpr int looksUntilCut = 7;

/// How much libcurl lets a server send over a connection ahead of what it has read.
constexpr std::uint64_t window = 32UL * 1024 * 1024;

/// How long an origin rests then: six times as long as it held up the others.
constexpr auto rest = 6 * looksUntilCut * CurlSockets::interval;

/// What a socket is. libcurl closes some by itself, and the next file to be opened has their
/// number: only a descriptor of our own certainly stays what it is.
FileDescriptor ownDescriptor(int descriptor, std::uint64_t identity) noexcept {
    FileDescriptor own(::fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
    const auto traffic = SocketTraffic::of(own.number());
    return traffic && traffic->identity == identity ? std::move(own) : FileDescriptor();
}

}  // namespace

curl_socket_t CurlSockets::open(const std::string& origin, const curl_sockaddr& address) noexcept {
    if (!mayOpen(origin)) return CURL_SOCKET_BAD;
    const int descriptor = ::socket(address.family, address.socktype, address.protocol);
    if (descriptor < 0) return CURL_SOCKET_BAD;
    ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    add(descriptor, origin);
    return descriptor;
}

bool CurlSockets::mayOpen(const std::string& origin) noexcept {
    const std::scoped_lock lock(mutex_);
    const auto account = accounts_.find(origin);
    return account == accounts_.end() || account->second.rests <= Clock::now();
}

void CurlSockets::add(int descriptor, const std::string& origin) noexcept {
    const auto traffic = SocketTraffic::of(descriptor);
    if (!traffic) return;
    const std::scoped_lock lock(mutex_);
    if (const auto former = sockets_.find(descriptor); former != sockets_.end()) erase(former);
    try {
        const auto account = accounts_.try_emplace(origin).first;
        sockets_.try_emplace(descriptor, Socket{.traffic = *traffic, .account = account});
        ++account->second.sockets;
    } catch (const std::bad_alloc&) {
        return;  // It works unwatched.
    }
}

int CurlSockets::close(curl_socket_t descriptor) noexcept {
    {
        const std::scoped_lock lock(mutex_);
        if (const auto socket = sockets_.find(descriptor); socket != sockets_.end()) erase(socket);
    }
    return ::close(descriptor);
}

CurlSockets::Sockets::iterator CurlSockets::erase(Sockets::iterator socket) noexcept {
    --socket->second.account->second.sockets;
    return sockets_.erase(socket);
}

void CurlSockets::look(bool isBusy) noexcept {
    const std::scoped_lock lock(mutex_);
    const std::uint64_t delivered = delivered_.load(std::memory_order_relaxed);
    const std::uint64_t news = delivered - std::exchange(deliveredBefore_, delivered);
    const auto now = Clock::now();
    // libcurl may fill the buffers of all requests before it hands out the first.
    const std::uint64_t gathered =
        CurlHandle::receiveBufferBytes * (1 + inFlight_.load(std::memory_order_relaxed));
    underWay_ = std::min(window, underWay_ + givenUp_.exchange(0, std::memory_order_relaxed));
    takeTraffic();
    for (auto account = accounts_.begin(); account != accounts_.end();) {
        if (floods(account->second, news, gathered, isBusy)) {
            abort(account);
            account->second.rests = now + rest;
        }
        const bool isOver = account->second.sockets == 0 && account->second.rests <= now;
        account = isOver ? accounts_.erase(account) : std::next(account);
    }
}

void CurlSockets::takeTraffic() noexcept {
    for (auto at = sockets_.begin(); at != sockets_.end();) {
        const auto traffic = SocketTraffic::of(at->first);
        const auto& before = at->second.traffic;
        if (!traffic || traffic->identity != before.identity) {
            at = erase(at);
            continue;
        }
        at->second.account->second.read += traffic->read - before.read;
        at->second.account->second.sent += traffic->sent - before.sent;
        at->second.traffic = *traffic;
        ++at;
    }
}

/// Settles an account, and tells whether the origin has flooded its connections for long enough.
bool CurlSockets::floods(Account& account, std::uint64_t delivered, std::uint64_t gathered,
                         bool isBusy) noexcept {
    const std::uint64_t read = std::exchange(account.read, 0);
    const std::uint64_t sent = std::exchange(account.sent, 0);
    const std::uint64_t inOrder =
        tolerated + carriedByDelivered * delivered + sent / sentPerCarried;
    const std::uint64_t all = account.wasted + read;
    account.wasted = all - std::min(all, inOrder);
    const std::uint64_t expected = std::min(account.wasted, underWay_);
    account.wasted -= expected;
    underWay_ -= expected;
    if (account.wasted == 0) account.floodedLooks = 0;
    if (isBusy && read > inOrder && account.wasted > gathered) ++account.floodedLooks;
    return account.floodedLooks >= looksUntilCut;
}

void CurlSockets::abort(Accounts::iterator account) noexcept {
    account->second.wasted = 0;
    account->second.floodedLooks = 0;
    for (const auto& [descriptor, socket] : sockets_)
        if (socket.account == account)
            if (const auto own = ownDescriptor(descriptor, socket.traffic.identity); own.isOpen())
                abortConnection(own.number());
}

}  // namespace HalvardSling::internal
