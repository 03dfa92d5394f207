#include <array>
#include <chrono>
#include <exception>
#include <functional>
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

#include <kestrin-profile-server/domain/Text.hpp>
#include <kestrin-profile-server/domain/Timestamp.hpp>
#include <kestrin-profile-server/http/HttpServer.hpp>
#include <kestrin-profile-server/http/MemoryBudget.hpp>
#include <kestrin-profile-server/http/RequestParser.hpp>
#include <kestrin-profile-server/http/StartedThread.hpp>

namespace KestrinProfileServer {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using asio::ip::tcp;
using std::chrono::steady_clock;

constexpr unsigned noContentStatus = 204;
constexpr std::chrono::seconds lingerTimeout{2};
constexpr std::chrono::milliseconds acceptPause{100};
/// Larger replies come from the shared memory. Only those of reads are so large.
constexpr std::size_t smallReply = 64U * 1024U;
/// What a connection keeps of its buffer between two requests.
constexpr std::size_t smallBuffer = 4096;

class Session;

/// A connection's place among those that may be open at once; given back at the end.
struct GiveBack {
    void operator()(const std::function<void()>* giveBack) const { (*giveBack)(); }
};
using Place = std::unique_ptr<const std::function<void()>, GiveBack>;

/// Runs until there is nothing left to do. What a handler throws (there was no memory for a
/// connection, say) ends what it was about, and nothing else.
void runUntilDone(asio::io_context& context) {
    for (bool isDone = false; !isDone;) {
        try {
            context.run();
            isDone = true;
        } catch (const std::exception& failure) {
            std::cerr << "a connection failed: " << failure.what() << '\n';
        }
    }
}

/// One thread with its connections to clients and its connection to the database.
class Worker {
  public:
    Worker(const std::filesystem::path& database, const Dispatcher& aDispatcher,
           const HttpSettings& settings, MemoryBudget& aBudget)
        : reader(database, Connection::Mode::readOnly),
          dispatcher(aDispatcher),
          budget(aBudget),
          transferTimeout(settings.transferTimeout),
          isQuiet(settings.isQuiet) {}
    /// Lets the running requests finish, and waits for that.
    ~Worker() {
        finish();
        if (thread_.joinable()) thread_.join();
    }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    void start() {
        thread_ = startedThread([this] { runUntilDone(context); });
    }
    /// Lets the running requests finish; the thread ends after them.
    void finish();

    void add(Session& session) { sessions_.insert(&session); }
    void remove(Session& session) { sessions_.erase(&session); }

    asio::io_context context{1};
    Connection reader;
    const Dispatcher& dispatcher;
    MemoryBudget& budget;
    const std::chrono::milliseconds transferTimeout;
    const bool isQuiet;
    bool isFinishing = false;

  private:
    std::unordered_set<Session*> sessions_;
    asio::executor_work_guard<asio::io_context::executor_type> guard_{context.get_executor()};
    std::thread thread_;
};

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
    Session(tcp::socket socket, Place place, Worker& worker)
        : place_(std::move(place)),
          stream_(std::move(socket)),
          worker_(worker),
          share_(worker.budget) {
        worker_.add(*this);
    }
    ~Session() { worker_.remove(*this); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    void readHeader() {
        if (worker_.isFinishing) return close();
        isReading_ = true;
        share_.release();
        response_.reset();
        parser_.emplace(share_);
        if (buffer_.size() == 0 && buffer_.capacity() > smallBuffer) buffer_.shrink_to_fit();
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
        if (const auto problem = parser_->framingProblem()) return refuse(*problem);
        parser_->waitsForContinue() ? sendContinue() : readBody();
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
        const auto problem = parser_->problemOf(error);
        if (!problem) return close();
        start_ = steady_clock::now();
        refuse(*problem);
    }

    /// Answers what cannot be read on, and disconnects.
    void refuse(const Problem& problem) {
        isReading_ = false;
        isLast_ = true;
        parser_->dropBody();
        share_.release();
        write(problemReply(problem));
    }

    Reply problemReply(const Problem& problem) const {
        return replyTo(problem, excerptOf(pathOf(parser_->target())));
    }

    void answer() {
        isReading_ = false;
        stream_.expires_never();
        isLast_ = !parser_->keep_alive();
        Request request{parser_->method(), parser_->target(), parser_->body(), {}};
        for (const auto& [name, value] : parser_->headers())
            request.headers.emplace_back(name, value);
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
        // Whoever waits for a write needs it no more.
        parser_->dropBody();
    }

    void write(Reply reply) {
        if (reply.body.size() > smallReply && !share_.take(reply.body.size())) {
            reply = problemReply(
                Problem(ProblemKind::busy,
                        "the requests and replies of all clients together take too much memory;"
                        " try again"));
        }
        if (!worker_.isQuiet)
            logRequest(parser_->method(), pathOf(parser_->target()), reply.status,
                       steady_clock::now() - start_);
        isLast_ = isLast_ || worker_.isFinishing;
        response_.emplace(http::int_to_status(reply.status), parser_->version());
        response_->set(http::field::cache_control, "no-store");
        for (const auto& [name, value] : reply.headers)
            response_->set(name, value);
        if (!reply.contentType.empty())
            response_->set(http::field::content_type, reply.contentType);
        response_->keep_alive(!isLast_);
        if (parser_->method() != "HEAD") response_->body() = std::move(reply.body);
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

    Place place_;
    beast::tcp_stream stream_;
    Worker& worker_;
    MemoryBudget::Share share_;
    beast::flat_buffer buffer_{headerLimit};
    std::optional<RequestParser> parser_;
    std::optional<http::response<http::string_body>> response_;
    std::array<char, 4096> discarded_{};
    steady_clock::time_point start_;
    bool isReading_ = false;
    bool isLast_ = false;
};

void Worker::finish() {
    asio::post(context, [this] {
        isFinishing = true;
        for (Session* session : sessions_)
            session->finish();
        guard_.reset();
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
                   const Dispatcher& dispatcher)
        : budget_(settings.memoryLimit), freePlaces_(settings.maxConnections) {
        listen(acceptor_, settings);
        for (unsigned index = 0; index < settings.threads; ++index) {
            workers_.push_back(std::make_unique<Worker>(database, dispatcher, settings, budget_));
        }
        for (auto& worker : workers_)
            worker->start();
        thread_ = startedThread([this] {
            accept();
            runUntilDone(context_);
        });
    }
    ~Implementation() { stop(); }
    Implementation(const Implementation&) = delete;
    Implementation& operator=(const Implementation&) = delete;

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
            guard_.reset();
        });
        thread_.join();
        for (auto& worker : workers_)
            worker->finish();
        workers_.clear();
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
        Place place(&giveBack_);
        const bool isFull = --freePlaces_ == 0;
        asio::post(worker.context, [socket = std::move(socket), place = std::move(place),
                                    &worker]() mutable {
            std::make_shared<Session>(std::move(socket), std::move(place), worker)->readHeader();
        });
        // Who finds no place waits, in the system's queue, until a connection closes.
        if (!isFull) accept();
    }

    void onPlaceGivenBack() {
        if (freePlaces_++ == 0 && acceptor_.is_open()) accept();
    }

    /// Usually all file descriptors are in use; some connection will close.
    void acceptLater() {
        pause_.expires_after(acceptPause);
        pause_.async_wait([this](boost::system::error_code) {
            if (acceptor_.is_open()) accept();
        });
    }

    MemoryBudget budget_;
    std::size_t freePlaces_;
    const std::function<void()> giveBack_ = [this] {
        asio::post(context_, [this] { onPlaceGivenBack(); });
    };
    asio::io_context context_{1};
    asio::executor_work_guard<asio::io_context::executor_type> guard_{context_.get_executor()};
    tcp::acceptor acceptor_{context_};
    asio::steady_timer pause_{context_};
    std::vector<std::unique_ptr<Worker>> workers_;
    std::size_t next_ = 0;
    std::thread thread_;
};

HttpServer::HttpServer(const HttpSettings& settings, const std::filesystem::path& database,
                       const Dispatcher& dispatcher)
    : implementation_(std::make_unique<Implementation>(settings, database, dispatcher)) {}

HttpServer::~HttpServer() = default;

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
