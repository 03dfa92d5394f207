#include "http/SilentServer.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace Bench {

SilentServer::SilentServer() : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    constexpr int mostConnections = 1024;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listener_, any, size) != 0 || ::listen(listener_, mostConnections) != 0 ||
        ::getsockname(listener_, any, &size) != 0)
        throw std::runtime_error("the silent server cannot listen");
    port_ = ntohs(address.sin_port);
}

SilentServer::~SilentServer() {
    ::close(listener_);
}

std::string SilentServer::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
}

}  // namespace Bench
