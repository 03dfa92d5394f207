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
    const auto books = books_.lock();
    const auto account = books->accounts.find(origin);
    return account == books->accounts.end() || account->second.rests <= Clock::now();
}

void CurlSockets::add(int descriptor, const std::string& origin) noexcept {
    const auto traffic = SocketTraffic::of(descriptor);
    if (!traffic) return;
    const auto books = books_.lock();
    if (const auto former = books->sockets.find(descriptor); former != books->sockets.end())
        books->erase(former);
    try {
        const auto account = books->accounts.try_emplace(origin).first;
        books->sockets.try_emplace(descriptor, Socket{.traffic = *traffic, .account = account});
        ++account->second.sockets;
    } catch (const std::bad_alloc&) {
        return;  // It works unwatched.
    }
}

int CurlSockets::close(curl_socket_t descriptor) noexcept {
    {
        const auto books = books_.lock();
        if (const auto socket = books->sockets.find(descriptor); socket != books->sockets.end())
            books->erase(socket);
    }
    return ::close(descriptor);
}

CurlSockets::Sockets::iterator CurlSockets::Books::erase(Sockets::iterator socket) noexcept {
    --socket->second.account->second.sockets;
    return sockets.erase(socket);
}

void CurlSockets::look(bool isBusy) noexcept {
    const auto books = books_.lock();
    const std::uint64_t delivered = delivered_.load(std::memory_order_relaxed);
    const std::uint64_t news = delivered - std::exchange(books->deliveredBefore, delivered);
    const auto now = Clock::now();
    // libcurl may fill the buffers of all requests before it hands out the first.
    const std::uint64_t gathered =
        CurlHandle::receiveBufferBytes * (1 + inFlight_.load(std::memory_order_relaxed));
    books->underWay =
        std::min(window, books->underWay + givenUp_.exchange(0, std::memory_order_relaxed));
    books->takeTraffic();
    for (auto account = books->accounts.begin(); account != books->accounts.end();) {
        if (books->floods(account->second, news, gathered, isBusy)) {
            books->abort(account);
            account->second.rests = now + rest;
        }
        const bool isOver = account->second.sockets == 0 && account->second.rests <= now;
        account = isOver ? books->accounts.erase(account) : std::next(account);
    }
}

void CurlSockets::Books::takeTraffic() noexcept {
    for (auto at = sockets.begin(); at != sockets.end();) {
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
bool CurlSockets::Books::floods(Account& account, std::uint64_t delivered, std::uint64_t gathered,
                                bool isBusy) noexcept {
    const std::uint64_t read = std::exchange(account.read, 0);
    const std::uint64_t sent = std::exchange(account.sent, 0);
    const std::uint64_t inOrder =
        tolerated + carriedByDelivered * delivered + sent / sentPerCarried;
    const std::uint64_t all = account.wasted + read;
    account.wasted = all - std::min(all, inOrder);
    const std::uint64_t expected = std::min(account.wasted, underWay);
    account.wasted -= expected;
    underWay -= expected;
    if (account.wasted == 0) account.floodedLooks = 0;
    if (isBusy && read > inOrder && account.wasted > gathered) ++account.floodedLooks;
    return account.floodedLooks >= looksUntilCut;
}

void CurlSockets::Books::abort(Accounts::iterator account) noexcept {
    account->second.wasted = 0;
    account->second.floodedLooks = 0;
    for (const auto& [descriptor, socket] : sockets)
        if (socket.account == account)
            if (const auto own = ownDescriptor(descriptor, socket.traffic.identity); own.isOpen())
                abortConnection(own.number());
}

}  // namespace HalvardSling::internal
