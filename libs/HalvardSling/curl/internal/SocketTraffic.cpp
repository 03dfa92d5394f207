#include <sys/socket.h>

#include <HalvardSling/curl/internal/SocketTraffic.hpp>

#ifdef __linux__
#include <linux/sockios.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#endif

namespace HalvardSling::internal {

#ifdef __linux__

namespace {

template <class Value>
bool ask(int descriptor, int level, int option, Value& value) noexcept {
    socklen_t size = sizeof value;
    return ::getsockopt(descriptor, level, option, &value, &size) == 0;
}

}  // namespace

std::optional<SocketTraffic> SocketTraffic::of(int descriptor) noexcept {
    std::uint64_t identity = 0;
    tcp_info info{};
    int unread = 0;
    if (!ask(descriptor, SOL_SOCKET, SO_COOKIE, identity) ||
        !ask(descriptor, IPPROTO_TCP, TCP_INFO, info) || ::ioctl(descriptor, SIOCINQ, &unread) != 0)
        return std::nullopt;
    return SocketTraffic{.identity = identity,
                         .read = info.tcpi_bytes_received - static_cast<std::uint64_t>(unread),
                         .sent = info.tcpi_bytes_acked};
}

void abortConnection(int descriptor) noexcept {
    // Drops what waits to be read, too; a shutdown alone would leave megabytes to go through.
    const sockaddr nobody{.sa_family = AF_UNSPEC, .sa_data = {}};
    if (::connect(descriptor, &nobody, sizeof nobody) != 0) ::shutdown(descriptor, SHUT_RDWR);
}

#else

std::optional<SocketTraffic> SocketTraffic::of(int) noexcept {
    return std::nullopt;
}

void abortConnection(int descriptor) noexcept {
    ::shutdown(descriptor, SHUT_RDWR);
}

#endif

}  // namespace HalvardSling::internal
