#include "server/WireConnection.hpp"

#include <arpa/inet.h>
#include <array>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace Bench {

namespace {

constexpr std::string_view success = "HTTP/1.1 2";

/// The whole reply's length; 0 while its head is not whole.
std::size_t replyLength(std::string_view reply) {
    constexpr std::string_view field = "\r\nContent-Length: ";
    const std::size_t end = reply.find("\r\n\r\n");
    if (end == std::string_view::npos) return 0;
    const std::size_t at = reply.substr(0, end).find(field);
    const std::size_t body = at == std::string_view::npos
                                 ? 0
                                 : std::stoul(std::string(reply.substr(at + field.size(), 10)));
    return end + 4 + body;
}

}  // namespace

WireConnection::WireConnection(std::uint16_t port)
    : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int on = 1;
    ::setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("the service takes no connection");
}

WireConnection::~WireConnection() {
    ::close(socket_);
}

std::string WireConnection::exchange(std::string_view request) {
    send(request);
    std::string reply = receiveSome();
    while (replyLength(reply) == 0 || reply.size() < replyLength(reply))
        reply += receiveSome();
    succeeded_ = reply.starts_with(success);
    return reply;
}

void WireConnection::send(std::string_view request) const {
    if (::send(socket_, request.data(), request.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(request.size()))
        throw std::runtime_error("the service takes no request");
}

std::string WireConnection::receiveSome() const {
    std::array<char, 65536> buffer{};
    const ssize_t got = ::recv(socket_, buffer.data(), buffer.size(), 0);
    if (got <= 0) throw std::runtime_error("the service has closed a connection");
    return {buffer.data(), static_cast<std::size_t>(got)};
}

bool WireConnection::receive(std::size_t size) {
    std::array<char, 65536> buffer;  // NOLINT: not worth clearing each time
    const ssize_t got = ::recv(socket_, buffer.data(), buffer.size(), 0);
    if (got <= 0) throw std::runtime_error("the service has closed a connection");
    const std::string_view part(buffer.data(), static_cast<std::size_t>(got));
    if (received_ == 0) succeeded_ = part.starts_with(success);
    received_ += part.size();
    if (received_ < size) return false;
    received_ = 0;
    return true;
}

void WireConnection::await(std::size_t size) {
    while (!receive(size)) {
    }
}

}  // namespace Bench
