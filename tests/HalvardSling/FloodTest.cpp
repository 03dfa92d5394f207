#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "CurlTransfers.hpp"
#include "support/Certificates.hpp"
#include "support/HTTP2Connection.hpp"
#include "support/SystemCalls.hpp"

using namespace HalvardSling;
using namespace TestSupport;
using namespace std::chrono_literals;
using namespace std::string_literals;

namespace {

/// Frames that an HTTP/2 client reads and that bring a request nothing.
struct Frames {
    std::string_view name;
    std::uint8_t type;
    bool onStream;  ///< of the request, or of the connection
    std::string payload;
};

void PrintTo(const Frames& frames, std::ostream* out) {
    *out << frames.name;
}

/// As many of them as fit into what TLS sends at once.
std::string blockOf(const Frames& frames, std::uint32_t stream) {
    constexpr std::size_t recordSize = 16384;
    const std::string one =
        HTTP2Connection::frame(frames.type, 0, frames.onStream ? stream : 0, frames.payload);
    std::string block;
    while (block.size() + one.size() <= recordSize)
        block += one;
    return block;
}

/// A server that begins a reply to the first request of a connection and then sends nothing but
/// such frames, as fast as they are taken.
class FloodingServer {
  public:
    explicit FloodingServer(const Frames& frames)
        : server_([this, frames](RawConnection& raw) { flood(raw, frames); },
                  ServerTLS{.certificateFile = certificate_.certificateFile(),
                            .keyFile = certificate_.keyFile(),
                            .protocol = "h2"}) {}

    [[nodiscard]] TransportRequest request() const { return requestTo(server_.url()); }

    /// Options of a transport that trusts it.
    [[nodiscard]] CurlTransport::Options options() const {
        return {.caBundleFile = certificate_.certificateFile()};
    }

    /// Waits until a connection is flooded; false if that does not come.
    [[nodiscard]] bool isFlooding() const { return flooded_.reaches(1); }

  private:
    void flood(RawConnection& raw, const Frames& frames) {
        constexpr int blocksUntilFlooded = 64;
        HTTP2Connection connection(raw);
        const auto stream = connection.readRequest();
        if (!stream || !connection.sendHead(*stream, 100)) return;
        const std::string block = blockOf(frames, *stream);
        for (int sent = 1; connection.send(block); ++sent)
            if (sent == blocksUntilFlooded) flooded_.add();
        flooded_.add();
    }

    Certificate certificate_;
    Tally flooded_;
    RawServer server_;
};

class Flood : public testing::TestWithParam<Frames> {
  protected:
    FloodingServer flooding{GetParam()};
    const RawServer other{RawServer::answering(httpReply(200, "x"))};
    std::shared_ptr<CurlTransport> transport = curlTransport(flooding.options());
};

TEST_P(Flood, ATimeLimitEndsTheRequest) {
    auto request = flooding.request();
    request.policy.totalTimeout = 2s;
    EXPECT_THAT(sent(request, transport),
                testing::AnyOf(FailsWith(SlingErrorKind::totalTimeout),
                               FailsWith(SlingErrorKind::connectionLost)));
}

TEST_P(Flood, UnsubscribingFreesThePlaceForTheNext) {
    auto options = flooding.options();
    options.maxInFlight = 1;
    transport = curlTransport(std::move(options));
    Responses flooded = sent(flooding.request(), transport);
    ASSERT_TRUE(flooding.isFlooding());
    flooded.unsubscribe();
    EXPECT_THAT(sent(requestTo(other.url()), transport), Answers(200, "x"));
}

TEST_P(Flood, TheTransportEnds) {
    Tally ended;
    transport->send(checked(flooding.request()), [&](const TransportResult&) { ended.add(); });
    ASSERT_TRUE(flooding.isFlooding());
    transport.reset();
    EXPECT_EQ(ended.count(), 1U);
}

TEST_P(Flood, TheTransportIsAbandoned) {
    transport->send(checked(flooding.request()), [](const TransportResult&) {});
    ASSERT_TRUE(flooding.isFlooding());
    transport->abandon();
}

TEST_P(Flood, RequestsToOthersAreAnswered) {
    const Responses flooded = sent(flooding.request(), transport);
    ASSERT_TRUE(flooding.isFlooding());
    std::vector<Responses> others;
    for (int i = 0; i < 50; ++i)
        others.push_back(sent(requestTo(other.url()), transport));
    EXPECT_THAT(others, testing::Each(Answers(200, "x")));
}

TEST_P(Flood, ATransportThatACompletionDestroysEndsAllTheSame) {
    Tally ended;
    std::promise<void> isSent;
    transport->send(checked(flooding.request()), [&](const TransportResult&) { ended.add(); });
    ASSERT_TRUE(flooding.isFlooding());
    transport->send(checked(requestTo(other.url())), [&](const TransportResult&) {
        isSent.get_future().wait();
        transport.reset();
        ended.add();
    });
    isSent.set_value();
    EXPECT_TRUE(ended.reaches(2));
}

INSTANTIATE_TEST_SUITE_P(
    Frames, Flood,
    testing::Values(Frames{"EmptyData", 0, true, ""}, Frames{"Priority", 2, true, "\0\0\0\0\1"s},
                    Frames{"WindowUpdate", 8, false, "\0\0\0\1"s},
                    Frames{"Ping", 6, false, "12345678"}, Frames{"Settings", 4, false, ""},
                    Frames{"Unknown", 0xEE, false, ""},
                    Frames{"LargeUnknown", 0xEE, true, std::string(16000, 'x')}),
    testing::PrintToStringParamName());

}  // namespace
