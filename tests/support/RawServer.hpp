#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace TestSupport {

class RawServer;

/// How a `RawServer` speaks TLS; see Certificates.hpp for the files.
struct ServerTLS {
    std::string certificateFile;
    std::string keyFile;
    /// The one protocol it agrees to (ALPN, RFC 7301), "http/1.1" or "h2".
    std::string protocol = "http/1.1";
    /// The latest protocol version it offers, by OpenSSL's constants (0x0302 is TLS
    /// 1.1, 0x0303 is TLS 1.2); absent: whatever OpenSSL offers.
    std::optional<int> latestVersion{};
};

/// A connection as a `RawServer`'s script sees it: bytes in, bytes out, and nothing by itself.
class RawConnection {
  public:
    RawConnection(const RawConnection&) = delete;
    RawConnection(RawConnection&&) = delete;
    RawConnection& operator=(const RawConnection&) = delete;
    RawConnection& operator=(RawConnection&&) = delete;
    ~RawConnection();

    /// Which connection to the server this is; the first one is 0.
    [[nodiscard]] std::size_t index() const noexcept { return index_; }

    /// Reads one request: its head, and as much of a body as "Content-Length" announces. It is
    /// added to `RawServer::requests`. Absent where the peer has closed.
    std::optional<std::string> readRequest();

    /// Reads so many bytes; absent where the peer has closed before.
    std::optional<std::string> read(std::size_t size);

    /// False where the peer has closed.
    bool send(std::string_view bytes);

    /// Sends a byte again and again, with a pause after each, until the peer closes.
    void trickle(char byte);

    /// Reads until the peer closes, or the server ends.
    void awaitClose();

    /// Closes this side, and waits until the peer's system knows.
    void close();

    /// Waits until the peer's system has all that was sent.
    void awaitArrival() const;

    /// Says over TLS that nothing more comes, which an orderly close does before.
    void sendCloseNotify();

    /// Waits until the server has read so many requests on all its connections; false if they do
    /// not come, or the server ends.
    [[nodiscard]] bool awaitRequests(std::size_t count) const;

    /// The same for a request that holds this text.
    [[nodiscard]] bool awaitRequestWith(std::string_view text) const;

    /// Ends the connection with a TCP reset instead of an orderly close.
    void resetOnClose();

  private:
    friend class RawServer;
    struct TLS;

    RawConnection(RawServer& server, std::size_t index, int socket);

    [[nodiscard]] bool startTLS(void* context);
    [[nodiscard]] bool receive();
    [[nodiscard]] std::ptrdiff_t readSome(char* to, std::size_t size);

    RawServer& server_;
    std::size_t index_;
    int socket_;
    std::unique_ptr<TLS> tls_;
    std::string unread_;
};

/// A server on a free port of the loopback interface that does what a script says: for tests of how
/// a client takes replies, right and wrong. Every connection has a thread on which the script runs;
/// when the script returns the connection is closed.
class RawServer {
  public:
    using Script = std::function<void(RawConnection&)>;

    explicit RawServer(Script script, std::optional<ServerTLS> tls = std::nullopt);
    RawServer(const RawServer&) = delete;
    RawServer(RawServer&&) = delete;
    RawServer& operator=(const RawServer&) = delete;
    RawServer& operator=(RawServer&&) = delete;
    ~RawServer();

    [[nodiscard]] std::uint16_t port() const noexcept { return port_; }

    /// "http://127.0.0.1:port", or "https://localhost:port", and the path.
    [[nodiscard]] std::string url(std::string_view path = "/") const;

    /// How many connections were accepted so far.
    [[nodiscard]] std::size_t connections() const;

    /// The requests that were read so far, as they came.
    [[nodiscard]] std::vector<std::string> requests() const;

    /// Waits until so many connections were accepted; false if they do not come.
    [[nodiscard]] bool awaitConnections(std::size_t count) const;

    /// Waits until so many requests were read; false if they do not come.
    [[nodiscard]] bool awaitRequests(std::size_t count) const;

    /// Waits until so many connections were seen to be closed by the peer, by `readRequest` or
    /// `awaitClose`; false if they are not.
    [[nodiscard]] bool awaitClosed(std::size_t count) const;

    /// A script that answers every request of a connection in the same way.
    [[nodiscard]] static Script answering(std::string reply);

  private:
    friend class RawConnection;
    struct ContextFree {
        void operator()(void* context) const noexcept;
    };

    void accept();
    void serve(std::size_t index, int socket);
    void add(std::string request);
    void addClosed();
    [[nodiscard]] bool await(const std::function<bool()>& isReached) const;

    Script script_;
    std::optional<ServerTLS> tls_;
    std::unique_ptr<void, ContextFree> context_;
    int listener_ = -1;
    std::uint16_t port_ = 0;

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    bool ending_ = false;
    std::size_t closed_ = 0;
    std::vector<std::string> requests_;
    std::vector<int> open_;
    std::vector<std::thread> threads_;
    std::thread acceptor_;
};

/// A whole reply over HTTP/1.1 with its length.
/// @param fields  further header fields, each with its "\r\n"
[[nodiscard]] std::string httpReply(int status, std::string_view body,
                                    std::string_view fields = {});

}  // namespace TestSupport
