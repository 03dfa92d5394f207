#include <future>
#include <memory>
#include <stdexcept>
#include <string>

#include "CurlTransfers.hpp"

using namespace HalvardSling;
using namespace TestSupport;

namespace {

/// What a function returns when it is called in a completion.
template <class Function>
auto withinCompletion(const std::shared_ptr<Transport>& transport, const RawServer& server,
                      Function function) {
    // Shared: the completion may still be inside when this function has returned.
    const auto result = std::make_shared<std::promise<decltype(function())>>();
    transport->send(checked(requestTo(server.url())),
                    [=](const TransportResult&) { result->set_value(function()); });
    return result->get_future().get();
}

TEST(TransportThread, IsKnownInACompletionAndNowhereElse) {
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    const auto transport = curlTransport();
    EXPECT_TRUE(withinCompletion(transport, server, [] { return isTransportThread(); }));
    EXPECT_FALSE(isTransportThread());
}

TEST(TransportThread, LastsAsLongAsTheOutermostScope) {
    {
        const TransportThreadScope outer;
        {
            const TransportThreadScope inner;
        }
        EXPECT_TRUE(isTransportThread());
    }
    EXPECT_FALSE(isTransportThread());
}

TEST(TransportThread, AWaitForAnotherRequestIsRefusedThere) {
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    const auto transport = curlTransport();
    const std::string refusal = withinCompletion(transport, server, [&] {
        const auto other = sent(requestTo(server.url()), transport);
        try {
            return std::string(other.ended() ? "ended" : "not ended");
        } catch (const std::logic_error& error) {
            return std::string(error.what());
        }
    });
    EXPECT_THAT(refusal, testing::HasSubstr("network thread"));
}

}  // namespace
