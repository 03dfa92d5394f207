#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <fstream>
#include <future>
#include <mutex>
#include <thread>

#include <gmock/gmock.h>

#include <HalvardSling/curl/internal/CurlHandle.hpp>

#include "CurlTransfers.hpp"
#include "support/Certificates.hpp"
#include "support/HTTP2Connection.hpp"
#include "support/Ports.hpp"
#include "support/Program.hpp"

using namespace HalvardSling;
using namespace TestSupport;
using namespace std::chrono_literals;

namespace {

/// nghttp2's server on the loopback interface, serving a folder over TLS.
class NGHTTPServer {
  public:
    NGHTTPServer(const Certificate& certificate, const std::filesystem::path& folder) {
        for (int attempt = 0; attempt < 5 && !running(); ++attempt)
            start(certificate, folder);
    }

    [[nodiscard]] bool running() const { return program_.has_value(); }

    [[nodiscard]] std::string url(const std::string& path) const {
        return "https://localhost:" + std::to_string(port_) + path;
    }

    void stop() { program_.reset(); }

  private:
    void start(const Certificate& certificate, const std::filesystem::path& folder) {
        port_ = freePort();
        program_.emplace(std::vector<std::string>{
            "nghttpd", "--verbose", "--address=127.0.0.1", "--htdocs=" + folder.string(),
            std::to_string(port_), certificate.keyFile(), certificate.certificateFile()});
        // It ends if somebody else has taken the port meanwhile.
        if (program_->awaitOutput("listen 127.0.0.1").empty()) stop();
    }

    std::uint16_t port_ = 0;
    std::optional<Program> program_;
};

class HTTP2Test : public testing::Test {
  protected:
    void SetUp() override {
        std::ofstream(folder.path() / "small") << "small";
        std::ofstream(folder.path() / "large") << std::string(5'000'000, 'x');
        ASSERT_TRUE(server.running()) << "nghttpd (Debian's package nghttp2-server) cannot be run";
    }

    [[nodiscard]] TransportRequest request(const std::string& path) const {
        return requestTo(server.url(path));
    }

    [[nodiscard]] std::vector<TransferLog> logged() {
        const std::scoped_lock lock(mutex);
        return log;
    }

    Certificate certificate;
    TemporaryDirectory folder;
    NGHTTPServer server{certificate, folder.path()};
    std::mutex mutex;
    std::vector<TransferLog> log;
    std::shared_ptr<CurlTransport> transport = curlTransport(
        {.caBundleFile = certificate.certificateFile(), .log = [this](const TransferLog& each) {
             const std::scoped_lock lock(mutex);
             log.push_back(each);
         }});
};

TEST_F(HTTP2Test, ParallelRequestsShareOneConnection) {
    std::vector<Responses> all;
    for (int i = 0; i < 200; ++i)
        all.push_back(sent(request("/small"), transport));
    for (const auto& each : all)
        EXPECT_THAT(each, Answers(200, "small"));
    const auto records = logged();
    ASSERT_EQ(records.size(), 200U);
    EXPECT_THAT(records, testing::Each(testing::Field(&TransferLog::httpVersion, "2")));
    EXPECT_EQ(std::ranges::count(records, false, &TransferLog::reusedConnection), 1);
}

TEST_F(HTTP2Test, LargeAndSmallRepliesAreWhole) {
    std::vector<Responses> all;
    for (int i = 0; i < 6; ++i)
        all.push_back(sent(request(i % 2 == 0 ? "/large" : "/small"), transport));
    for (std::size_t i = 0; i < all.size(); ++i)
        EXPECT_THAT(all[i], Answers(200, i % 2 == 0 ? std::string(5'000'000, 'x') : "small"));
}

/// Keeps every processor busy, so that other threads have their turn late.
class BusyMachine {
  public:
    BusyMachine() {
        for (unsigned i = 0; i < std::max(2U, std::thread::hardware_concurrency()); ++i)
            threads_.emplace_back([this] {
                while (!ended_)
                    spin(10'000);
            });
    }
    BusyMachine(const BusyMachine&) = delete;
    BusyMachine(BusyMachine&&) = delete;
    BusyMachine& operator=(const BusyMachine&) = delete;
    BusyMachine& operator=(BusyMachine&&) = delete;
    ~BusyMachine() {
        ended_ = true;
        for (auto& each : threads_)
            each.join();
    }

  private:
    std::atomic<bool> ended_{false};
    std::vector<std::thread> threads_;
};

TEST_F(HTTP2Test, ManyLargeRepliesAreNoFloodOnABusyMachine) {
    const BusyMachine busy;
    std::vector<Responses> all;
    for (int i = 0; i < 24; ++i)
        all.push_back(sent(request("/large"), transport));
    for (const auto& each : all)
        EXPECT_THAT(each, Answers(200, std::string(5'000'000, 'x')));
    EXPECT_EQ(std::ranges::count(logged(), false, &TransferLog::reusedConnection), 1);
}

TEST_F(HTTP2Test, WhatComesAfterUnsubscribingIsNoFloodOnABusyMachine) {
    const BusyMachine busy;
    const Responses whole = sent(request("/large"), transport);
    for (int round = 0; round < 8; ++round) {
        std::vector<Responses> open;
        for (int i = 0; i < 8; ++i)
            open.push_back(sent(request("/large"), transport));
        ASSERT_THAT(sent(request("/small"), transport), Answers(200, "small"));
        for (auto& each : open)
            each.unsubscribe();
    }
    EXPECT_THAT(whole, Answers(200, std::string(5'000'000, 'x')));
    const auto records = logged();
    EXPECT_THAT(records, testing::Not(testing::Contains(
                             testing::Field(&TransferLog::error, SlingErrorKind::connectionLost))));
}

/// Four requests over one connection, and replies that come in an order that nghttpd would not
/// choose. libcurl has a buffer for each reply and fills all of them while it reads for one.
class HTTP2OrderTest : public testing::Test {
  protected:
    static constexpr std::size_t readAtOnce = internal::CurlHandle::receiveBufferBytes;
    static constexpr std::size_t frameSize = 8192;
    /// Less than the window that libcurl opens from the start, for the server counts none.
    static constexpr std::size_t warmUpSize = 8'000'000;
    /// The last `frameSize` bytes do not fit into what is read at once.
    static constexpr std::size_t largeSize = readAtOnce + frameSize / 2;

    [[nodiscard]] TransportRequest request() const { return requestTo(server.url()); }

    struct Received {
        Responses large;
        Responses waiting;
    };

    /// What comes back where nothing is read before all of both replies is there.
    [[nodiscard]] Received received(const TransportRequest& large) {
        EXPECT_THAT(sent(request(), transport), Answers(200, std::string(warmUpSize, 'x')));
        Responses second = sent(request(), transport);
        Responses third = sent(large, transport);
        transport->send(checked(request()), [this](const TransportResult&) {
            blocked.set_value();
            // If the system has no room for all of it, this proves nothing, but it ends.
            allSent.get_future().wait_for(10s);
        });
        return {std::move(third), std::move(second)};
    }

    /// Sends so much of a body that is not at its end.
    static void sendPart(HTTP2Connection& connection, std::uint32_t stream, std::size_t size) {
        for (; size > 0; size -= std::min(size, frameSize))
            connection.send(HTTP2Connection::data(
                stream, std::string(std::min(size, frameSize), 'x'), HTTP2Connection::Ends::no));
    }

    /// The last `frameSize` bytes of the large body, in so many frames.
    [[nodiscard]] std::string endOf(std::uint32_t stream) const {
        using enum HTTP2Connection::Ends;
        std::string frames;
        for (std::size_t left = framesAtEnd; left > 0; --left)
            frames += HTTP2Connection::data(stream, std::string(frameSize / framesAtEnd, 'x'),
                                            left == 1 ? yes : no);
        return frames;
    }

    void serve(RawConnection& raw) {
        using enum HTTP2Connection::Ends;
        HTTP2Connection connection(raw);
        // The system makes room for as much as it sees being read.
        const auto first = connection.readRequest();
        if (!first) return;
        connection.sendHead(*first, warmUpSize);
        sendPart(connection, *first, warmUpSize - 1);
        connection.send(HTTP2Connection::data(*first, "x", yes));

        const auto waiting = connection.readRequest();
        const auto large = connection.readRequest();
        const auto blocking = connection.readRequest();
        if (!waiting || !large || !blocking) return;
        connection.sendHead(*waiting, 4);
        connection.sendHead(*large, largeSize);
        connection.sendHead(*blocking, 1);
        connection.send(HTTP2Connection::data(*blocking, "x", yes));
        blocked.get_future().wait_for(patience);
        sendPart(connection, *large, largeSize - frameSize);
        connection.send(endOf(*large) + HTTP2Connection::data(*waiting, "last", yes));
        allSent.set_value();
        raw.awaitClose();
    }

    std::size_t framesAtEnd = 1;
    Certificate certificate;
    std::promise<void> blocked;
    std::promise<void> allSent;
    RawServer server{[this](RawConnection& raw) { serve(raw); },
                     ServerTLS{.certificateFile = certificate.certificateFile(),
                               .keyFile = certificate.keyFile(),
                               .protocol = "h2"}};
    std::shared_ptr<CurlTransport> transport =
        curlTransport({.caBundleFile = certificate.certificateFile()});
};

TEST_F(HTTP2OrderTest, AReplyIsReadThatCameBehindTheEndOfALargeOne) {
    const auto [large, waiting] = received(request());
    EXPECT_THAT(large, Answers(200, std::string(largeSize, 'x')));
    EXPECT_THAT(waiting, Answers(200, "last"));
}

TEST_F(HTTP2OrderTest, ALargeReplyIsReadOnAfterItWasTooLongForTheBuffer) {
    framesAtEnd = 4;
    const auto [large, waiting] = received(request());
    EXPECT_THAT(large, Answers(200, std::string(largeSize, 'x')));
    EXPECT_THAT(waiting, Answers(200, "last"));
}

TEST_F(HTTP2OrderTest, AReplyIsReadThatCameBehindOneThatIsTooLarge) {
    auto capped = request();
    capped.policy.maxBodyBytes = readAtOnce;
    const auto [large, waiting] = received(capped);
    EXPECT_THAT(large, FailsWith(SlingErrorKind::tooLarge));
    EXPECT_THAT(waiting, Answers(200, "last"));
}

TEST_F(HTTP2Test, ErrorsAndCapsAreAsInHTTP1) {
    EXPECT_EQ(sent(request("/none"), transport).error<SlingError>()->statusCode(), 404);
    auto capped = request("/large");
    capped.policy.maxBodyBytes = 1000;
    EXPECT_THAT(sent(capped, transport), FailsWith(SlingErrorKind::tooLarge));
    capped.policy.maxHeaderBytes = 10;
    EXPECT_THAT(sent(capped, transport), FailsWith(SlingErrorKind::tooLarge));
    EXPECT_THAT(sent(request("/small"), transport), Answers(200, "small"));
}

TEST_F(HTTP2Test, UnsubscribingEndsTheStreamAndLeavesTheConnection) {
    ASSERT_THAT(sent(request("/small"), transport), Answers(200, "small"));
    for (unsigned i = 0; i < 50; ++i) {
        Responses open = sent(request("/large"), transport);
        spin(2'000 * i);
        open.unsubscribe();
    }
    EXPECT_THAT(sent(request("/small"), transport), Answers(200, "small"));
    const auto records = logged();
    EXPECT_EQ(std::ranges::count(records, "2", &TransferLog::httpVersion),
              std::ranges::count_if(records, [](const auto& each) {
                  return each.status || !each.httpVersion.empty();
              }));
    EXPECT_TRUE(records.back().reusedConnection);
}

TEST_F(HTTP2Test, ALostConnectionIsReported) {
    ASSERT_THAT(sent(request("/small"), transport), Answers(200, "small"));
    server.stop();
    EXPECT_THAT(sent(request("/small"), transport),
                testing::AnyOf(FailsWith(SlingErrorKind::cannotConnect),
                               FailsWith(SlingErrorKind::connectionLost)));
}

}  // namespace
