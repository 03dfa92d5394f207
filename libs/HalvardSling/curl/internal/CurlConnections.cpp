#include <arpa/inet.h>
#include <array>
#include <netinet/in.h>
#include <new>
#include <optional>
#include <poll.h>
#include <sys/socket.h>

#include <HalvardSling/curl/internal/CurlConnections.hpp>
#include <HalvardSling/curl/internal/CurlOptions.hpp>

namespace HalvardSling::internal {

namespace {

using Addresses = CurlConnections::Addresses;
using NameOf = int (*)(int, sockaddr*, socklen_t*);

/// Writes one end of a socket's connection.
/// @return false if it has none
bool readEnd(NameOf nameOf, int socket, std::string& ip, int& port) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (nameOf(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) return false;
    const void* bytes = nullptr;
    if (address.ss_family == AF_INET) {
        const auto& v4 = reinterpret_cast<const sockaddr_in&>(address);
        bytes = &v4.sin_addr;
        port = ntohs(v4.sin_port);
    } else if (address.ss_family == AF_INET6) {
        const auto& v6 = reinterpret_cast<const sockaddr_in6&>(address);
        bytes = &v6.sin6_addr;
        port = ntohs(v6.sin6_port);
    }
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (bytes == nullptr ||
        ::inet_ntop(address.ss_family, bytes, text.data(), text.size()) == nullptr)
        return false;
    ip = text.data();
    return true;
}

/// Absent if the socket is not connected, or there is none.
std::optional<Addresses> addressesOf(int socket) {
    Addresses ends;
    if (!readEnd(&::getsockname, socket, ends.localIP, ends.localPort) ||
        !readEnd(&::getpeername, socket, ends.remoteIP, ends.remotePort))
        return std::nullopt;
    return ends;
}

}  // namespace

void CurlConnections::use(CurlOptions& set) {
    set(CURLOPT_SOCKOPTFUNCTION, &CurlConnections::onSocket);
    set(CURLOPT_SOCKOPTDATA, static_cast<void*>(this));
}

int CurlConnections::onSocket(void* self, curl_socket_t socket, curlsocktype) noexcept {
    auto& connections = *static_cast<CurlConnections*>(self);
    connections.forget(socket);
    try {
        connections.unnamed_.insert(socket);
    } catch (const std::bad_alloc&) {
        return CURL_SOCKOPT_OK;  // It remains unknown, so it carries one request only.
    }
    return CURL_SOCKOPT_OK;
}

/// The number of a socket that was closed may be that of the next one.
void CurlConnections::forget(int socket) noexcept {
    std::erase_if(connections_, [=](const auto& each) { return each.second.socket == socket; });
}

void CurlConnections::add(const Addresses& addresses) {
    isAdded_ = true;
    for (const int socket : unnamed_)
        if (addressesOf(socket) == addresses) {
            connections_.insert_or_assign(addresses, Connection{.socket = socket});
            unnamed_.erase(socket);
            return;
        }
}

void CurlConnections::noteHTTP1(const Addresses& addresses) noexcept {
    const auto found = connections_.find(addresses);
    if (found != connections_.end()) found->second.isHTTP1 = true;
}

bool CurlConnections::isFit(const Addresses& addresses) const noexcept {
    const auto found = connections_.find(addresses);
    if (found == connections_.end()) return false;
    pollfd input{.fd = found->second.socket, .events = POLLIN, .revents = 0};
    return !found->second.isHTTP1 || ::poll(&input, 1, 0) == 0;
}

bool CurlConnections::isOpen(const Addresses& addresses) const {
    const auto found = connections_.find(addresses);
    return found != connections_.end() && addressesOf(found->second.socket) == addresses;
}

}  // namespace HalvardSling::internal
