#include "support/RawServer.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cctype>
#include <chrono>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <signal.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

#include <openssl/ssl.h>

#include "support/Waiting.hpp"

namespace TestSupport {

namespace {

std::string lowered(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

std::size_t announcedLength(const std::string& head) {
    constexpr std::string_view field = "\r\ncontent-length:";
    const std::size_t at = lowered(head).find(field);
    return at == std::string::npos ? 0 : std::stoul(head.substr(at + field.size()));
}

int listenOnLoopback(std::uint16_t& port) {
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    if (listener < 0 || ::bind(listener, any, size) != 0 || ::listen(listener, 1024) != 0 ||
        ::getsockname(listener, any, &size) != 0)
        throw std::runtime_error("the test server cannot listen");
    port = ntohs(address.sin_port);
    return listener;
}

/// @param protocol  of type `const std::string*`
int agreeTo(SSL*, const unsigned char** chosen, unsigned char* size, const unsigned char* offered,
            unsigned int offeredSize, void* protocol) {
    const auto& name = *static_cast<const std::string*>(protocol);
    const std::string list = static_cast<char>(name.size()) + name;
    unsigned char* found = nullptr;
    if (SSL_select_next_proto(&found, size, reinterpret_cast<const unsigned char*>(list.data()),
                              static_cast<unsigned int>(list.size()), offered,
                              offeredSize) != OPENSSL_NPN_NEGOTIATED)
        return SSL_TLSEXT_ERR_NOACK;
    *chosen = reinterpret_cast<const unsigned char*>(name.data());
    return SSL_TLSEXT_ERR_OK;
}

/// @param tls  referred to
SSL_CTX* contextFor(ServerTLS& tls) {
    SSL_CTX* const context = SSL_CTX_new(TLS_server_method());
    if (tls.latestVersion) {
        // Versions this old are below the default security level.
        SSL_CTX_set_security_level(context, 0);
        SSL_CTX_set_min_proto_version(context, TLS1_VERSION);
        SSL_CTX_set_max_proto_version(context, *tls.latestVersion);
    }
    SSL_CTX_set_alpn_select_cb(context, &agreeTo, &tls.protocol);
    if (SSL_CTX_use_certificate_chain_file(context, tls.certificateFile.c_str()) != 1 ||
        SSL_CTX_use_PrivateKey_file(context, tls.keyFile.c_str(), SSL_FILETYPE_PEM) != 1)
        throw std::runtime_error("the test server cannot use its certificate");
    return context;
}

/// OpenSSL writes in a way that raises a signal where the peer has closed.
void blockBrokenPipeSignal() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

/// The state of a TCP connection, e.g. TCP_ESTABLISHED.
int stateOf(int socket) {
    tcp_info info{};
    socklen_t size = sizeof info;
    ::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size);
    return info.tcpi_state;
}

}  // namespace

struct RawConnection::TLS {
    explicit TLS(SSL* session) : ssl(session, &SSL_free) {}
    std::unique_ptr<SSL, decltype(&SSL_free)> ssl;
};

RawConnection::RawConnection(RawServer& server, std::size_t index, int socket)
    : server_(server), index_(index), socket_(socket) {}

RawConnection::~RawConnection() = default;

bool RawConnection::startTLS(void* context) {
    tls_ = std::make_unique<TLS>(SSL_new(static_cast<SSL_CTX*>(context)));
    SSL_set_fd(tls_->ssl.get(), socket_);
    return SSL_accept(tls_->ssl.get()) == 1;
}

std::ptrdiff_t RawConnection::readSome(char* to, std::size_t size) {
    if (tls_) return SSL_read(tls_->ssl.get(), to, static_cast<int>(size));
    return ::recv(socket_, to, size, 0);
}

bool RawConnection::receive() {
    std::array<char, 65536> buffer{};
    const auto got = readSome(buffer.data(), buffer.size());
    if (got <= 0) {
        server_.addClosed();
        return false;
    }
    unread_.append(buffer.data(), static_cast<std::size_t>(got));
    return true;
}

std::optional<std::string> RawConnection::readRequest() {
    std::size_t end = std::string::npos;
    while ((end = unread_.find("\r\n\r\n")) == std::string::npos)
        if (!receive()) return std::nullopt;
    auto request = read(end + 4 + announcedLength(unread_.substr(0, end + 2)));
    if (request) server_.add(*request);
    return request;
}

std::optional<std::string> RawConnection::read(std::size_t size) {
    while (unread_.size() < size)
        if (!receive()) return std::nullopt;
    std::string bytes = unread_.substr(0, size);
    unread_.erase(0, size);
    return bytes;
}

bool RawConnection::send(std::string_view bytes) {
    while (!bytes.empty()) {
        const std::ptrdiff_t sent =
            tls_ ? SSL_write(tls_->ssl.get(), bytes.data(), static_cast<int>(bytes.size()))
                 : ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

void RawConnection::trickle(char byte) {
    constexpr std::chrono::milliseconds pause{20};
    while (send({&byte, 1})) {
        std::unique_lock lock(server_.mutex_);
        if (server_.changed_.wait_for(lock, pause, [&] { return server_.ending_; })) return;
    }
}

void RawConnection::awaitClose() {
    while (receive())
        unread_.clear();
}

void RawConnection::close() {
    ::shutdown(socket_, SHUT_WR);
    static_cast<void>(eventually([&] { return stateOf(socket_) != TCP_FIN_WAIT1; }));
}

void RawConnection::awaitArrival() const {
    static_cast<void>(eventually([&] {
        int unacknowledged = 0;
        // What was under way when the peer reset the connection stays unacknowledged.
        return ::ioctl(socket_, SIOCOUTQ, &unacknowledged) != 0 || unacknowledged == 0 ||
               stateOf(socket_) == TCP_CLOSE;
    }));
}

void RawConnection::sendCloseNotify() {
    if (tls_) SSL_shutdown(tls_->ssl.get());
}

bool RawConnection::awaitRequests(std::size_t count) const {
    return server_.awaitRequests(count);
}

bool RawConnection::awaitRequestWith(std::string_view text) const {
    return server_.await([&] {
        return std::ranges::any_of(server_.requests_, [&](const std::string& request) {
            return request.find(text) != std::string::npos;
        });
    });
}

void RawConnection::resetOnClose() {
    const linger immediately{.l_onoff = 1, .l_linger = 0};
    ::setsockopt(socket_, SOL_SOCKET, SO_LINGER, &immediately, sizeof immediately);
}

void RawServer::ContextFree::operator()(void* context) const noexcept {
    SSL_CTX_free(static_cast<SSL_CTX*>(context));
}

RawServer::RawServer(Script script, std::optional<ServerTLS> tls)
    : script_(std::move(script)), tls_(std::move(tls)) {
    if (tls_) context_.reset(contextFor(*tls_));
    listener_ = listenOnLoopback(port_);
    acceptor_ = std::thread([this] { accept(); });
}

RawServer::~RawServer() {
    ::shutdown(listener_, SHUT_RDWR);
    {
        const std::scoped_lock lock(mutex_);
        ending_ = true;
        for (const int socket : open_)
            ::shutdown(socket, SHUT_RDWR);
        changed_.notify_all();
    }
    acceptor_.join();
    for (auto& thread : threads_)
        thread.join();
    ::close(listener_);
}

void RawServer::accept() {
    while (true) {
        const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0) return;
        const int on = 1;
        ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        const std::scoped_lock lock(mutex_);
        if (ending_) {
            ::close(socket);
            return;
        }
        open_.push_back(socket);
        threads_.emplace_back([this, index = threads_.size(), socket] { serve(index, socket); });
        changed_.notify_all();
    }
}

void RawServer::serve(std::size_t index, int socket) {
    blockBrokenPipeSignal();
    {
        RawConnection connection(*this, index, socket);
        if (!context_ || connection.startTLS(context_.get())) script_(connection);
    }
    const std::scoped_lock lock(mutex_);
    std::erase(open_, socket);
    ::close(socket);
}

void RawServer::add(std::string request) {
    const std::scoped_lock lock(mutex_);
    requests_.push_back(std::move(request));
    changed_.notify_all();
}

void RawServer::addClosed() {
    const std::scoped_lock lock(mutex_);
    ++closed_;
    changed_.notify_all();
}

std::string RawServer::url(std::string_view path) const {
    const std::string origin = context_ ? "https://localhost:" : "http://127.0.0.1:";
    return origin + std::to_string(port_) + std::string(path);
}

std::size_t RawServer::connections() const {
    const std::scoped_lock lock(mutex_);
    return threads_.size();
}

std::vector<std::string> RawServer::requests() const {
    const std::scoped_lock lock(mutex_);
    return requests_;
}

bool RawServer::await(const std::function<bool()>& isReached) const {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, patience, [&] { return ending_ || isReached(); });
    return isReached();
}

bool RawServer::awaitConnections(std::size_t count) const {
    return await([&] { return threads_.size() >= count; });
}

bool RawServer::awaitRequests(std::size_t count) const {
    return await([&] { return requests_.size() >= count; });
}

bool RawServer::awaitClosed(std::size_t count) const {
    return await([&] { return closed_ >= count; });
}

RawServer::Script RawServer::answering(std::string reply) {
    return [reply = std::move(reply)](RawConnection& connection) {
        while (connection.readRequest())
            if (!connection.send(reply)) return;
    };
}

std::string httpReply(int status, std::string_view body, std::string_view fields) {
    return "HTTP/1.1 " + std::to_string(status) + " Status\r\n" + std::string(fields) +
           "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + std::string(body);
}

}  // namespace TestSupport
