#include <array>
#include <chrono>
#include <iostream>
#include <optional>
#include <string>
#include <thread>
#include <unordered_set>
#include <utility>
#include <vector>

#include <boost/asio.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>

#include <internal/ASCII.hpp>
#include <kestrin-profile-server/domain/Text.hpp>
#include <kestrin-profile-server/domain/Timestamp.hpp>
#include <kestrin-profile-server/http/HttpServer.hpp>

namespace KestrinProfileServer {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using asio::ip::tcp;
using std::chrono::steady_clock;

constexpr std::uint32_t headerLimit = 64U * 1024U;
constexpr std::uint64_t bodyLimit = 1024U * 1024U;
constexpr unsigned noContentStatus = 204;
constexpr std::chrono::seconds lingerTimeout{2};
constexpr std::chrono::milliseconds acceptPause{100};

class Session;

/// One thread with its connections to clients and its connection to the database.
struct Worker {
    Worker(const std::filesystem::path& database, const Dispatcher& aDispatcher,
           const HttpSettings& settings)
        : reader(database, Connection::Mode::readOnly),
          dispatcher(aDispatcher),
          transferTimeout(settings.transferTimeout),
          isQuiet(settings.isQuiet) {}

    void start() {
        thread = std::thread([this] { context.run(); });
    }
    /// Lets the running requests finish; the thread ends after them.
    void finish();

    std::unordered_set<Session*> sessions;
    asio::io_context context{1};
    asio::executor_work_guard<asio::io_context::executor_type> guard{context.get_executor()};
    Connection reader;
    const Dispatcher& dispatcher;
    const std::chrono::milliseconds transferTimeout;
    const bool isQuiet;
    bool isFinishing = false;
    std::thread thread;
};

std::string_view viewOf(beast::string_view text) {
    return {text.data(), text.size()};
}

void logRequest(std::string_view method, std::string_view path, unsigned status,
                steady_clock::duration duration) {
    const auto tenths =
        std::chrono::duration_cast<std::chrono::microseconds>(duration).count() / 100;
    const std::string line = timestampText(systemTime()) + " " + excerptOf(method) + " " +
                             excerptOf(path) + " " + std::to_string(status) + " " +
                             std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) +
                             " ms\n";
    // One call per line keeps the lines of several threads apart.
    std::cerr.write(line.data(), static_cast<std::streamsize>(line.size()));
}

/// One connection to a client: reads a request, has it answered, writes the reply, and again.
class Session : public std::enable_shared_from_this<Session> {
  public:
    Session(tcp::socket socket, Worker& worker) : stream_(std::move(socket)), worker_(worker) {
        worker_.sessions.insert(this);
    }
    ~Session() { worker_.sessions.erase(this); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    void readHeader() {
        if (worker_.isFinishing) return close();
        isReading_ = true;
        parser_.emplace();
        parser_->header_limit(headerLimit);
        parser_->body_limit(bodyLimit);
        stream_.expires_after(worker_.transferTimeout);
        http::async_read_header(stream_, buffer_, *parser_,
                                [self = shared_from_this()](beast::error_code error, std::size_t) {
                                    error ? self->onReadError(error) : self->onHeader();
                                });
    }

    /// Nothing new is read: a waiting connection closes, a running request is answered first.
    void finish() {
        if (isReading_) close();
    }

  private:
    void onHeader() {
        start_ = steady_clock::now();
        if (const auto problem = transferProblem()) return refuse(*problem);
        const bool waits = beast::iequals(parser_->get()[http::field::expect], "100-continue");
        waits ? sendContinue() : readBody();
    }

    void sendContinue() {
        static constexpr std::string_view line = "HTTP/1.1 100 Continue\r\n\r\n";
        asio::async_write(stream_, asio::buffer(line),
                          [self = shared_from_this()](beast::error_code error, std::size_t) {
                              error ? self->close() : self->readBody();
                          });
    }

    void readBody() {
        http::async_read(stream_, buffer_, *parser_,
                         [self = shared_from_this()](beast::error_code error, std::size_t) {
                             error ? self->onReadError(error) : self->answer();
                         });
    }

    void onReadError(beast::error_code error) {
        const auto problem = problemOf(error);
        if (!problem) return close();
        start_ = steady_clock::now();
        refuse(*problem);
    }

    /// Answers what cannot be read on, and disconnects.
    void refuse(const Problem& problem) {
        isReading_ = false;
        isLast_ = true;
        const std::string_view target = viewOf(parser_->get().target());
        write(replyTo(problem, excerptOf(pathOf(target))));
    }

    /// A transfer coding that is not understood leaves open where the body ends: read on, its rest
    /// would be the next request.
    std::optional<Problem> transferProblem() const {
        const auto coding = viewOf(parser_->get()[http::field::transfer_encoding]);
        if (coding.empty() || KestrinInternal::equalsIgnoringCase(coding, "chunked"))
            return std::nullopt;
        return Problem(
            ProblemKind::malformedRequest,
            "the Transfer-Encoding is '" + excerptOf(coding) + "'; expected is chunked or none");
    }

    /// What to say about input that is no acceptable HTTP; nothing when the client has gone.
    static std::optional<Problem> problemOf(beast::error_code error) {
        if (error == http::error::body_limit)
            return Problem(ProblemKind::bodyTooLarge, "the body is larger than 1 MiB");
        if (error == http::error::header_limit) {
            return Problem(ProblemKind::headersTooLarge,
                           "the request line and the headers are larger than 64 KiB");
        }
        const bool isCutOff =
            error == http::error::end_of_stream || error == http::error::partial_message;
        if (isCutOff || error.category() != http::make_error_code(http::error{}).category())
            return std::nullopt;
        return Problem(ProblemKind::malformedRequest, "not understood: " + error.message() +
                                                          "; expected is HTTP/1.1 in clear text");
    }

    void answer() {
        isReading_ = false;
        stream_.expires_never();
        const auto& message = parser_->get();
        isLast_ = !message.keep_alive();
        Request request{
            viewOf(message.method_string()), viewOf(message.target()), message.body(), {}};
        for (const auto& field : message)
            request.headers.emplace_back(viewOf(field.name_string()), viewOf(field.value()));
        auto guard = asio::make_work_guard(stream_.get_executor());
        worker_.dispatcher.dispatch(
            request, worker_.reader,
            [self = shared_from_this(), guard = std::move(guard)](Reply reply) mutable {
                auto executor = guard.get_executor();
                asio::dispatch(executor, [self = std::move(self), guard = std::move(guard),
                                          reply = std::move(reply)]() mutable {
                    self->write(std::move(reply));
                });
            });
    }

    void write(Reply reply) {
        const auto& message = parser_->get();
        if (!worker_.isQuiet)
            logRequest(viewOf(message.method_string()), pathOf(viewOf(message.target())),
                       reply.status, steady_clock::now() - start_);
        isLast_ = isLast_ || worker_.isFinishing;
        response_.emplace(http::int_to_status(reply.status), message.version());
        response_->set(http::field::cache_control, "no-store");
        for (const auto& [name, value] : reply.headers)
            response_->set(name, value);
        if (!reply.contentType.empty())
            response_->set(http::field::content_type, reply.contentType);
        response_->keep_alive(!isLast_);
        if (message.method() != http::verb::head) response_->body() = std::move(reply.body);
        response_->prepare_payload();
        // Such a reply has no length either (RFC 9110, 8.6).
        if (reply.status == noContentStatus) response_->erase(http::field::content_length);
        stream_.expires_after(worker_.transferTimeout);
        http::async_write(stream_, *response_,
                          [self = shared_from_this()](beast::error_code error, std::size_t) {
                              self->onWritten(error);
                          });
    }

    void onWritten(beast::error_code error) {
        if (error) return close();
        if (!isLast_) return readHeader();
        beast::error_code ignored;
        stream_.socket().shutdown(tcp::socket::shutdown_send, ignored);
        stream_.expires_after(lingerTimeout);
        discardRest();
    }

    /// Reads on until the client closes: closing with unread input could take the reply away from
    /// a client that is still sending.
    void discardRest() {
        stream_.async_read_some(asio::buffer(discarded_),
                                [self = shared_from_this()](beast::error_code error, std::size_t) {
                                    error ? self->close() : self->discardRest();
                                });
    }

    void close() {
        beast::error_code ignored;
        stream_.socket().close(ignored);
    }

    beast::tcp_stream stream_;
    Worker& worker_;
    beast::flat_buffer buffer_;
    std::optional<http::request_parser<http::string_body>> parser_;
    std::optional<http::response<http::string_body>> response_;
    std::array<char, 4096> discarded_{};
    steady_clock::time_point start_;
    bool isReading_ = false;
    bool isLast_ = false;
};

void Worker::finish() {
    asio::post(context, [this] {
        isFinishing = true;
        for (Session* session : sessions)
            session->finish();
        guard.reset();
    });
}

tcp::endpoint endpointOf(const HttpSettings& settings) {
    boost::system::error_code error;
    const auto address =
        asio::ip::make_address(settings.host == "localhost" ? "127.0.0.1" : settings.host, error);
    if (error) {
        throw StartError("--host '" + settings.host +
                         "' is no address of this computer; write it in numbers, like 127.0.0.1.");
    }
    return {address, settings.port};
}

void listen(tcp::acceptor& acceptor, const HttpSettings& settings) {
    const tcp::endpoint endpoint = endpointOf(settings);
    try {
        acceptor.open(endpoint.protocol());
        acceptor.set_option(asio::socket_base::reuse_address(true));
        acceptor.bind(endpoint);
        acceptor.listen();
    } catch (const boost::system::system_error& failure) {
        throw StartError("cannot listen on " + settings.host + ":" + std::to_string(settings.port) +
                         ": " + failure.code().message() +
                         ". Choose another --host or --port; --port 0 takes a free one.");
    }
}

}  // namespace

class HttpServer::Implementation {
  public:
    Implementation(const HttpSettings& settings, const std::filesystem::path& database,
                   const Dispatcher& dispatcher) {
        listen(acceptor_, settings);
        for (unsigned index = 0; index < settings.threads; ++index)
            workers_.push_back(std::make_unique<Worker>(database, dispatcher, settings));
        for (auto& worker : workers_)
            worker->start();
        accept();
        thread_ = std::thread([this] { context_.run(); });
    }

    std::string baseURL() const {
        const tcp::endpoint endpoint = acceptor_.local_endpoint();
        auto address = endpoint.address();
        if (address.is_unspecified()) address = asio::ip::address_v4::loopback();
        const std::string host =
            address.is_v6() ? "[" + address.to_string() + "]" : address.to_string();
        return "http://" + host + ":" + std::to_string(endpoint.port());
    }

    bool isLoopback() const { return acceptor_.local_endpoint().address().is_loopback(); }

    void stop() {
        if (!thread_.joinable()) return;
        asio::post(context_, [this] {
            acceptor_.close();
            pause_.cancel();
        });
        thread_.join();
        for (auto& worker : workers_)
            worker->finish();
        for (auto& worker : workers_)
            worker->thread.join();
    }

  private:
    void accept() {
        Worker& worker = *workers_[next_++ % workers_.size()];
        acceptor_.async_accept(
            worker.context, [this, &worker](boost::system::error_code error, tcp::socket socket) {
                onAccepted(error, std::move(socket), worker);
            });
    }

    void onAccepted(boost::system::error_code error, tcp::socket socket, Worker& worker) {
        if (!acceptor_.is_open()) return;
        if (error) return acceptLater();
        boost::system::error_code ignored;
        socket.set_option(tcp::no_delay(true), ignored);
        asio::post(worker.context, [socket = std::move(socket), &worker]() mutable {
            std::make_shared<Session>(std::move(socket), worker)->readHeader();
        });
        accept();
    }

    /// Usually all file descriptors are in use; some connection will close.
    void acceptLater() {
        pause_.expires_after(acceptPause);
        pause_.async_wait([this](boost::system::error_code) {
            if (acceptor_.is_open()) accept();
        });
    }

    asio::io_context context_{1};
    tcp::acceptor acceptor_{context_};
    asio::steady_timer pause_{context_};
    std::vector<std::unique_ptr<Worker>> workers_;
    std::size_t next_ = 0;
    std::thread thread_;
};

HttpServer::HttpServer(const HttpSettings& settings, const std::filesystem::path& database,
                       const Dispatcher& dispatcher)
    : implementation_(std::make_unique<Implementation>(settings, database, dispatcher)) {}

HttpServer::~HttpServer() {
    stop();
}

std::string HttpServer::baseURL() const {
    return implementation_->baseURL();
}

bool HttpServer::isLoopback() const {
    return implementation_->isLoopback();
}

void HttpServer::stop() {
    implementation_->stop();
}

}  // namespace KestrinProfileServer
