#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <unordered_set>
#include <utility>
#include <vector>

#include <boost/asio.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>

#include <kestrin-profile-server/domain/Text.hpp>
#include <kestrin-profile-server/domain/Timestamp.hpp>
#include <kestrin-profile-server/http/ClientStream.hpp>
#include <kestrin-profile-server/http/HttpServer.hpp>
#include <kestrin-profile-server/http/MemoryBudget.hpp>
#include <kestrin-profile-server/http/Redaction.hpp>
#include <kestrin-profile-server/http/RequestID.hpp>
#include <kestrin-profile-server/http/RequestLine.hpp>
#include <kestrin-profile-server/http/RequestParser.hpp>
#include <kestrin-profile-server/http/StartedThread.hpp>

namespace KestrinProfileServer {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using asio::ip::tcp;
using std::chrono::steady_clock;

constexpr std::chrono::seconds lingerTimeout{2};
constexpr std::chrono::milliseconds acceptPause{100};
/// Larger replies come from the shared memory. Only those of reads are so large.
constexpr std::size_t smallReply = std::size_t{64} * 1024;
/// What a connection keeps of its buffer between two requests.
constexpr std::size_t smallBuffer = 4096;
/// How often a stream says that it lives, and how often a slow reply goes on.
constexpr std::chrono::seconds streamPause{15};
constexpr std::chrono::milliseconds throttlePause{100};
constexpr std::size_t throttlePausesInASecond = 10;
constexpr unsigned http11 = 11;

class Session;

/// A connection's place among those that may be open at once; given back at the end.
struct GiveBack {
    void operator()(const std::function<void()>* giveBack) const { (*giveBack)(); }
};
using Place = std::unique_ptr<const std::function<void()>, GiveBack>;

/// Whether replies with this status have a body, be it an empty one.
bool hasContent(unsigned status) {
    constexpr unsigned noContent = 204;
    constexpr unsigned notModified = 304;
    return status != noContent && status != notModified;
}

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

/// One thread with its connections to clients.
class Worker {
  public:
    Worker(std::size_t aNumber, const Responder& aResponder, const HttpSettings& settings,
           MemoryBudget& aBudget)
        : number(aNumber),
          responder(aResponder),
          budget(aBudget),
          transferTimeout(settings.transferTimeout),
          isQuiet(settings.isQuiet),
          logFormat(settings.logFormat) {}
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

    /// Does the work when the time is over, or at once when it finishes.
    void after(std::chrono::milliseconds time, std::function<void()> work) {
        if (isFinishing) return work();
        const auto timer = std::make_shared<asio::steady_timer>(context, time);
        timers_.insert(timer);
        timer->async_wait([this, timer, work = std::move(work)](boost::system::error_code) {
            timers_.erase(timer);
            work();
        });
    }

    asio::io_context context{1};
    const std::size_t number;
    const Responder& responder;
    const BodyLimitOf bodyLimit = [this](std::string_view target) {
        return responder.bodyLimit(target);
    };
    MemoryBudget& budget;
    const std::chrono::milliseconds transferTimeout;
    const bool isQuiet;
    const LogFormat logFormat;
    bool isFinishing = false;

  private:
    std::unordered_set<Session*> sessions_;
    std::unordered_set<std::shared_ptr<asio::steady_timer>> timers_;
    asio::executor_work_guard<asio::io_context::executor_type> guard_{context.get_executor()};
    std::thread thread_;
};

/// One connection to a client: reads a request, has it answered, writes the reply, and again.
class Session : public std::enable_shared_from_this<Session> {
  public:
    /// @param tls  null: the client speaks in cleartext
    Session(tcp::socket socket, asio::ssl::context* tls, Place place, Worker& worker,
            std::uint64_t number)
        : place_(std::move(place)),
          stream_(std::move(socket), tls),
          worker_(worker),
          number_(number),
          share_(worker.budget) {
        worker_.add(*this);
    }
    ~Session() { worker_.remove(*this); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    void start() { stream_.isSecure() ? awaitFirstBytes() : readHeader(); }

    /// Nothing new is read: a waiting connection closes, a running request is answered first. What
    /// is late or slow on purpose is not any more, and streams end.
    void finish() {
        if (isReading_) close();
        pause_.cancel();
        if (events_) endStream();
    }

  private:
    /// Sees whether the client begins with TLS, as it should.
    void awaitFirstBytes() {
        if (worker_.isFinishing) return close();
        isReading_ = true;
        stream_.expires_after(worker_.transferTimeout);
        beast::async_detect_ssl(stream_.plain(), buffer_,
                                [self = shared_from_this()](beast::error_code error, bool isTLS) {
                                    if (error) return self->close();
                                    isTLS ? self->shakeHands() : self->goOnInCleartext();
                                });
    }

    void goOnInCleartext() {
        stream_.goOnInCleartext();
        isRefused_ = true;
        readHeader();
    }

    void shakeHands() {
        stream_.secure().async_handshake(
            asio::ssl::stream_base::server, buffer_.data(),
            [self = shared_from_this()](beast::error_code error, std::size_t used) {
                if (error) return self->onHandshakeFailed(error);
                self->buffer_.consume(used);
                self->readHeader();
            });
    }

    /// Mostly the client does not trust the certificate, and says so.
    void onHandshakeFailed(beast::error_code error) {
        if (!worker_.isQuiet && !worker_.isFinishing && error != asio::error::eof)
            std::cerr << "a client began TLS and gave up: " << error.message() << '\n';
        close();
    }

    void readHeader() {
        if (worker_.isFinishing) return close();
        isReading_ = true;
        share_.release();
        response_.reset();
        replyBody_ = {};
        delivery_.reset();
        requestBody_ = {};
        answered_.reset();
        observer_.reset();
        parser_.emplace(share_, &worker_.bodyLimit);
        if (buffer_.size() == 0 && buffer_.capacity() > smallBuffer) buffer_.shrink_to_fit();
        stream_.expires_after(worker_.transferTimeout);
        http::async_read_header(stream_, buffer_, *parser_,
                                [self = shared_from_this()](beast::error_code error, std::size_t) {
                                    error ? self->onReadError(error) : self->onHeader();
                                });
    }

    void onHeader() {
        start_ = steady_clock::now();
        if (isRefused_) {
            return refuse(Problem(ProblemKind::httpsRequired,
                                  "the request came in clear text; this port speaks HTTPS, so its"
                                  " URLs begin with https://"));
        }
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
        requestID_ = requestIDOf(parser_->headers());
        observer_ = worker_.responder.observer(parser_->target());
        static_cast<void>(parser_->takeBody());
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
        requestID_ = requestIDOf(parser_->headers());
        requestBody_ = parser_->takeBody();
        observer_ = worker_.responder.observer(parser_->target());
        Request request{
            parser_->method(),
            parser_->target(),
            requestBody_,
            {},
            [&worker = worker_](std::chrono::milliseconds time, std::function<void()> work) {
                worker.after(time, std::move(work));
            }};
        for (const auto& [name, value] : parser_->headers())
            request.headers.emplace_back(name, value);
        auto guard = asio::make_work_guard(stream_.get_executor());
        answered_ = worker_.responder.respond(
            std::move(request), worker_.number,
            [self = shared_from_this(), guard = std::move(guard)](Reply reply) mutable {
                auto executor = guard.get_executor();
                asio::dispatch(executor, [self = std::move(self), guard = std::move(guard),
                                          reply = std::move(reply)]() mutable {
                    self->write(std::move(reply));
                });
            });
        // Whoever waits for a write needs it no more.
        if (!observer_) requestBody_ = {};
    }

    void write(Reply reply) {
        if (reply.body.size() > smallReply && !share_.take(reply.body.size())) {
            reply = problemReply(
                Problem(ProblemKind::busy,
                        "the requests and replies of all clients together take too much memory;"
                        " try again"));
        }
        addRequestID(reply, requestID_);
        const bool isLate = reply.delivery && reply.delivery->delay.count() > 0;
        isLate ? beginLater(std::move(reply)) : begin(std::move(reply));
    }

    void beginLater(Reply reply) {
        if (worker_.isFinishing) return begin(std::move(reply));
        pause_.expires_after(reply.delivery->delay);
        pause_.async_wait([self = shared_from_this(),
                           reply = std::move(reply)](boost::system::error_code) mutable {
            self->begin(std::move(reply));
        });
    }

    void begin(Reply reply) {
        // Before HTTP/1.1 the end of a body without a length is that of the connection.
        const bool isOld = parser_->version() < http11;
        isLast_ = isLast_ || worker_.isFinishing || reply.stream || (reply.pieces && isOld);
        replyBody_ = std::move(reply.body);
        delivery_ = reply.delivery;
        response_.emplace(http::status::ok, parser_->version());
        response_->result(reply.status);
        response_->set(http::field::cache_control, "no-store");
        response_->set(requestIDHeader, requestID_);
        for (const auto& [name, value] : reply.headers)
            response_->set(name, value);
        if (!reply.contentType.empty())
            response_->set(http::field::content_type, reply.contentType);
        response_->keep_alive(!isLast_);
        // Without content there is no length either (RFC 9110, 8.6); a HEAD is told that of the
        // GET.
        if (reply.pieces && !isOld)
            response_->chunked(true);
        else if (hasContent(reply.status) && !reply.stream && !reply.pieces)
            response_->content_length(replyBody_.size());
        if (parser_->method() != "HEAD") response_->body() = {replyBody_.data(), replyBody_.size()};
        note(reply);
        stream_.expires_after(worker_.transferTimeout);
        if (reply.stream && parser_->method() != "HEAD")
            return beginStream(std::move(reply.stream));
        if (reply.pieces && parser_->method() != "HEAD")
            return beginPieces(std::move(reply.pieces));
        if (delivery_) return deliver();
        http::async_write(stream_, *response_,
                          [self = shared_from_this()](beast::error_code error, std::size_t) {
                              self->onWritten(error);
                          });
    }

    /// Tells the log and the observer, before the client can know the reply.
    void note(const Reply& reply) {
        if (worker_.isQuiet && !observer_) return;
        Exchange exchange = exchangeOf(reply);
        if (observer_) exchange.findings = observer_->findings(exchange, requestBody_);
        if (!worker_.isQuiet) {
            const std::string line = requestLine(
                exchange, std::string(namespaceIn(parser_->target())), worker_.logFormat);
            // One call per line keeps the lines of several threads apart.
            std::cerr.write(line.data(), static_cast<std::streamsize>(line.size()));
        }
        if (!observer_) return;
        exchange.requestHeaders = ShownHeaders(parser_->headers());
        if (exchange.status)
            for (const auto& field : *response_)
                exchange.replyHeaders.add(field.name_string(), field.value());
        observer_->record(std::move(exchange), requestBody_,
                          isSent() ? replyBody_ : std::string_view());
        requestBody_ = {};
    }

    Exchange exchangeOf(const Reply& reply) const {
        Exchange exchange;
        exchange.requestID = requestID_;
        const auto duration = steady_clock::now() - start_;
        exchange.duration = std::chrono::duration_cast<std::chrono::microseconds>(duration);
        exchange.time =
            systemTime() - std::chrono::duration_cast<std::chrono::milliseconds>(duration).count();
        exchange.method = parser_->method();
        exchange.target = withoutTokens(targetWithin(parser_->target()));
        exchange.household = reply.household;
        exchange.connection = number_;
        if (isSent()) exchange.status = reply.status;
        exchange.problem = isSent() ? reply.problem : std::string_view();
        exchange.fault = reply.fault;
        return exchange;
    }

    bool isSent() const { return !delivery_ || delivery_->end != Delivery::End::reset; }

    std::string headText() const {
        std::ostringstream text;
        text << response_->base();
        return text.str();
    }

    /// Sends as much of the reply as the fault lets through, as slowly as it says.
    void deliver() {
        written_ = headText();
        const std::size_t head = written_.size();
        written_.append(response_->body().data(), response_->body().size());
        written_.resize(sentBytes(*delivery_, head, response_->body().size()));
        sent_ = 0;
        deliverPiece();
    }

    void deliverPiece() {
        if (sent_ == written_.size()) return endDelivery();
        const std::size_t left = written_.size() - sent_;
        const std::size_t piece =
            delivery_->bytesPerSecond && !worker_.isFinishing
                ? std::min(std::max<std::size_t>(
                               *delivery_->bytesPerSecond / throttlePausesInASecond, 1),
                           left)
                : left;
        stream_.expires_after(worker_.transferTimeout);
        asio::async_write(stream_, asio::buffer(written_.data() + sent_, piece),
                          [self = shared_from_this()](beast::error_code error, std::size_t size) {
                              if (error) return self->close();
                              self->sent_ += size;
                              self->deliverNext();
                          });
    }

    void deliverNext() {
        if (sent_ == written_.size() || worker_.isFinishing) return deliverPiece();
        pause_.expires_after(throttlePause);
        pause_.async_wait(
            [self = shared_from_this()](boost::system::error_code) { self->deliverPiece(); });
    }

    void endDelivery() {
        written_ = {};
        switch (delivery_->end) {
            case Delivery::End::reset:
            case Delivery::End::resetMiddle:
                return reset();
            case Delivery::End::cut:
                isLast_ = true;
                break;
            case Delivery::End::whole:
                break;
        }
        onWritten({});
    }

    void beginPieces(Reply::Pieces pieces) {
        pieces_ = std::move(pieces);
        written_ = headText();
        asio::async_write(stream_, asio::buffer(written_),
                          [self = shared_from_this()](beast::error_code error, std::size_t) {
                              self->onPieceWritten(error);
                          });
    }

    void onPieceWritten(beast::error_code error) {
        if (error) return close();
        written_ = pieces_();
        stream_.expires_after(worker_.transferTimeout);
        if (written_.empty()) return endPieces();
        const auto goOn = [self = shared_from_this()](beast::error_code next, std::size_t) {
            self->onPieceWritten(next);
        };
        if (response_->chunked())
            asio::async_write(stream_, http::make_chunk(asio::buffer(written_)), goOn);
        else
            asio::async_write(stream_, asio::buffer(written_), goOn);
    }

    void endPieces() {
        pieces_ = nullptr;
        if (!response_->chunked()) return onWritten({});
        asio::async_write(stream_, http::make_chunk_last(),
                          [self = shared_from_this()](beast::error_code error, std::size_t) {
                              self->onWritten(error);
                          });
    }

    void beginStream(std::shared_ptr<EventStream> events) {
        events_ = std::move(events);
        stream_.expires_never();
        discardRest();
        written_ = headText() + ": the events follow\n\n";
        sendEvents();
        // The guard keeps the thread until nobody can wake it any more.
        auto guard = asio::make_work_guard(stream_.get_executor());
        events_->setWake([weak = weak_from_this(), guard = std::move(guard)] {
            auto executor = guard.get_executor();
            asio::post(executor, [self = weak.lock()] {
                if (self && self->events_) self->sendEvents();
            });
        });
        sayAlive();
    }

    void sayAlive() {
        pause_.expires_after(streamPause);
        pause_.async_wait([self = shared_from_this()](boost::system::error_code) {
            if (!self->events_) return;
            if (!self->isSending_) self->written_ = ":\n\n";
            self->sendEvents();
            self->sayAlive();
        });
    }

    void sendEvents() {
        if (isSending_) return;
        auto taken = events_->take();
        written_ += taken.text;
        if (written_.empty()) {
            if (taken.isEnded) endStream();
            return;
        }
        isSending_ = true;
        stream_.expires_after(worker_.transferTimeout);
        asio::async_write(stream_, asio::buffer(written_),
                          [self = shared_from_this()](beast::error_code error, std::size_t) {
                              self->isSending_ = false;
                              self->written_.clear();
                              if (!self->events_) return;
                              error ? self->endStream() : self->sendEvents();
                          });
    }

    void endStream() {
        events_->setWake(nullptr);
        events_.reset();
        pause_.cancel();
        close();
    }

    void onWritten(beast::error_code error) {
        if (error) return close();
        if (!isLast_) return readHeader();
        stream_.expires_after(lingerTimeout);
        if (!stream_.isSecure()) return endSending();
        // TLS has an end of its own, without which clients take a reply for one that was cut.
        stream_.secure().async_shutdown(
            [self = shared_from_this()](beast::error_code) { self->endSending(); });
    }

    void endSending() {
        beast::error_code ignored;
        static_cast<void>(stream_.socket().shutdown(tcp::socket::shutdown_send, ignored));
        stream_.expires_after(lingerTimeout);
        discardRest();
    }

    /// Reads on until the client closes: closing with unread input could take the reply away from
    /// a client that is still sending.
    void discardRest() {
        stream_.plain().async_read_some(
            asio::buffer(discarded_),
            [self = shared_from_this()](beast::error_code error, std::size_t) {
                error ? self->onGone() : self->discardRest();
            });
    }

    void onGone() { events_ ? endStream() : close(); }

    /// Closes with a reset instead of an end.
    void reset() {
        beast::error_code ignored;
        static_cast<void>(stream_.socket().set_option(asio::socket_base::linger(true, 0), ignored));
        close();
    }

    void close() {
        beast::error_code ignored;
        static_cast<void>(stream_.socket().close(ignored));
    }

    Place place_;
    ClientStream stream_;
    Worker& worker_;
    const std::uint64_t number_;
    MemoryBudget::Share share_;
    beast::flat_buffer buffer_{headerLimit};
    std::optional<RequestParser> parser_;
    std::string requestID_;
    std::string requestBody_;
    std::optional<http::response<http::span_body<const char>>> response_;
    std::string replyBody_;
    std::shared_ptr<const Delivery> delivery_;
    /// What the request's reply needs until it is written.
    std::shared_ptr<const void> answered_;
    std::shared_ptr<ExchangeObserver> observer_;
    /// What goes out otherwise than as a whole reply, and how much of it has gone.
    std::string written_;
    std::size_t sent_ = 0;
    Reply::Pieces pieces_;
    asio::steady_timer pause_{stream_.get_executor()};
    std::shared_ptr<EventStream> events_;
    bool isSending_ = false;
    std::array<char, 4096> discarded_{};
    steady_clock::time_point start_;
    bool isReading_ = false;
    bool isLast_ = false;
    /// Whether the client speaks in cleartext where TLS is spoken.
    bool isRefused_ = false;
};

void Worker::finish() {
    asio::post(context, [this] {
        isFinishing = true;
        for (Session* session : sessions_)
            session->finish();
        for (const auto& timer : timers_)
            timer->cancel();
        guard_.reset();
    });
}

asio::ip::address addressOf(const std::string& host) {
    boost::system::error_code error;
    const auto address = asio::ip::make_address(host == "localhost" ? "127.0.0.1" : host, error);
    if (error) {
        throw StartError("--host '" + host +
                         "' is no address of this computer; write it in numbers, like 127.0.0.1.");
    }
    return address;
}

/// Null if there is no TLS.
std::unique_ptr<asio::ssl::context> tlsContext(const HttpSettings& settings) {
    if (!settings.tls) return nullptr;
    auto context = std::make_unique<asio::ssl::context>(asio::ssl::context::tls_server);
    context->set_options(asio::ssl::context::no_tlsv1 | asio::ssl::context::no_tlsv1_1);
    context->use_certificate_chain(asio::buffer(settings.tls->certificate));
    context->use_private_key(asio::buffer(settings.tls->key), asio::ssl::context::pem);
    return context;
}

void listen(tcp::acceptor& acceptor, const HttpSettings& settings) {
    const tcp::endpoint endpoint{addressOf(settings.host), settings.port};
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
    explicit Implementation(const HttpSettings& settings)
        : settings_(settings),
          budget_(settings.memoryLimit),
          freePlaces_(settings.maxConnections),
          tls_(tlsContext(settings)) {
        listen(acceptor_, settings);
    }
    ~Implementation() { stop(); }
    Implementation(const Implementation&) = delete;
    Implementation& operator=(const Implementation&) = delete;

    void start(const Responder& responder) {
        for (std::size_t number = 0; number < settings_.threads; ++number)
            workers_.push_back(std::make_unique<Worker>(number, responder, settings_, budget_));
        for (auto& worker : workers_)
            worker->start();
        thread_ = startedThread([this] {
            accept();
            runUntilDone(context_);
        });
    }

    std::string baseURL() const {
        const tcp::endpoint endpoint = acceptor_.local_endpoint();
        auto address = endpoint.address();
        if (address.is_unspecified()) address = asio::ip::address_v4::loopback();
        const std::string host =
            address.is_v6() ? "[" + address.to_string() + "]" : address.to_string();
        return (tls_ ? "https://" : "http://") + host + ":" + std::to_string(endpoint.port());
    }

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
        static_cast<void>(socket.set_option(tcp::no_delay(true), ignored));
        Place place(&giveBack_);
        const bool isFull = --freePlaces_ == 0;
        asio::post(worker.context, [socket = std::move(socket), place = std::move(place), &worker,
                                    tls = tls_.get(), number = ++connections_]() mutable {
            std::make_shared<Session>(std::move(socket), tls, std::move(place), worker, number)
                ->start();
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

    const HttpSettings settings_;
    MemoryBudget budget_;
    std::size_t freePlaces_;
    std::uint64_t connections_ = 0;
    /// Null: there is no TLS.
    std::unique_ptr<asio::ssl::context> tls_;
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

bool isLoopbackHost(const std::string& host) {
    return addressOf(host).is_loopback();
}

HttpServer::HttpServer(const HttpSettings& settings)
    : implementation_(std::make_unique<Implementation>(settings)) {}

HttpServer::~HttpServer() = default;

void HttpServer::start(const Responder& responder) {
    implementation_->start(responder);
}

std::string HttpServer::baseURL() const {
    return implementation_->baseURL();
}

void HttpServer::stop() {
    implementation_->stop();
}

}  // namespace KestrinProfileServer
