#include "UnusedPort.hpp"

#include <cerrno>
#include <netinet/in.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

#include <fmt/format.h>

namespace KestrinProfileCLI {

namespace {

sockaddr_in loopback() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

[[noreturn]] void fail() {
    throw std::system_error(errno, std::generic_category(), "no port can be had");
}

}  // namespace

UnusedPort::UnusedPort() : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    if (socket_ < 0) fail();
    const sockaddr_in address = loopback();
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): the form of the system's call.
    if (bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return;
    const int error = errno;
    close(socket_);
    errno = error;
    fail();
}

UnusedPort::~UnusedPort() {
    close(socket_);
}

std::string UnusedPort::origin() const {
    sockaddr_in address = loopback();
    socklen_t size = sizeof address;
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): the form of the system's call.
    if (getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &size) != 0) fail();
    return fmt::format("http://127.0.0.1:{}", ntohs(address.sin_port));
}

}  // namespace KestrinProfileCLI
