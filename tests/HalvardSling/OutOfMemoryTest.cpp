// Lets the allocations on a transport's thread fail, one after the other and all from one on.
// Whatever fails, a transfer ends once, and the transport goes on.

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "CurlTransfers.hpp"
#include "Gzip.hpp"
#include "support/Allocations.hpp"

using namespace HalvardSling;
using namespace TestSupport;

namespace {

/// What the server does by the path of a request.
void answer(RawConnection& connection) {
    while (const auto request = connection.readRequest()) {
        const auto path = request->substr(5, request->find(' ', 5) - 5);
        const std::string reply =
            path == "redirect"  ? httpReply(302, "", "Location: /plain\r\n")
            : path == "missing" ? httpReply(404, std::string(5000, 'm'))
            : path == "large"   ? httpReply(200, std::string(600'000, 'l'))
            : path == "gzip"
                ? httpReply(200, gzipped(std::string(60'000, 'z')), "Content-Encoding: gzip\r\n")
            : path == "headers"
                ? httpReply(200, "x", "X-Long: " + std::string(4000, 'h') + "\r\nX-Two: two\r\n")
                : httpReply(200, "plain");
        if (!connection.send(reply)) return;
    }
}

const std::vector<std::string>& paths() {
    static const std::vector<std::string> all{"plain", "redirect", "missing",
                                              "large", "gzip",     "headers"};
    return all;
}

struct Outcome {
    std::atomic<int> terminalEvents{0};
    std::promise<std::string> last{};  ///< what came, or the name of the error

    void end(std::string how) {
        if (++terminalEvents == 1) last.set_value(std::move(how));
    }
};

/// Our own needs are not what fails.
template <class Action>
void spared(Action action) {
    const SparedAllocations ours;
    action();
}

std::string nameOf(const TransportResult& result) {
    const auto* const error = std::get_if<SlingError>(&result);
    return error != nullptr ? std::string(name(error->kind())) : "reply";
}

using Send = std::function<void(const TransportRequest&, const std::shared_ptr<Transport>&,
                                const std::shared_ptr<Outcome>&)>;

/// To the transport itself.
void sendDirectly(const TransportRequest& request, const std::shared_ptr<Transport>& transport,
                  const std::shared_ptr<Outcome>& outcome) {
    transport->send(checked(request), [outcome](const TransportResult& result) {
        spared([&] { outcome->end(nameOf(result)); });
    });
}

/// By a subscription.
void subscribe(const TransportRequest& request, const std::shared_ptr<Transport>& transport,
               const std::shared_ptr<Outcome>& outcome) {
    Sling(request).responses(transport).subscribe(
        [](const Response&) {},
        [outcome](const std::exception_ptr& error) {
            spared([&] {
                try {
                    std::rethrow_exception(error);
                } catch (const SlingError& known) {
                    outcome->end(std::string(name(known.kind())));
                } catch (const std::exception& other) {
                    outcome->end(other.what());
                }
            });
        },
        [outcome] { spared([&] { outcome->end("reply"); }); });
}

class OutOfMemory : public testing::TestWithParam<bool> {
  protected:
    /// Sends one request while allocations fail. The transport answers another one afterwards.
    /// @return how it ended, and whether one has failed
    std::pair<std::string, bool> endOf(const std::string& path, Failing which, long at,
                                       const std::shared_ptr<CurlTransport>& transport) {
        auto request = requestTo(server.url("/" + path));
        request.policy.maxRedirects = 2;
        const auto outcome = std::make_shared<Outcome>();
        auto last = outcome->last.get_future();
        const FailingAllocations failing(which, at, &isTransportThread);
        (GetParam() ? &subscribe : &sendDirectly)(request, transport, outcome);
        std::string how = last.get();
        failing.end();
        EXPECT_THAT(sent(requestTo(server.url("/plain")), transport), Answers(200, "plain"));
        EXPECT_EQ(outcome->terminalEvents, 1);
        return {how, failing.hasFailed()};
    }

    const RawServer server{&answer};
};

TEST_P(OutOfMemory, AnyAllocationOfARequestMayFail) {
    for (const auto& path : paths()) {
        const std::string usual = path == "missing" && GetParam() ? "httpStatus" : "reply";
        bool wasLacking = false;
        for (long at = 1;; ++at) {
            const auto [how, hasFailed] = endOf(path, Failing::one, at, curlTransport());
            EXPECT_THAT(how, testing::AnyOf("outOfMemory", usual)) << path << ' ' << at;
            wasLacking |= how == "outOfMemory";
            if (!hasFailed) break;  // it needs no more than that
        }
        EXPECT_TRUE(wasLacking) << path;
    }
}

TEST_P(OutOfMemory, AllAllocationsFromOneOnMayFail) {
    for (const auto& path : paths()) {
        const auto transport = curlTransport();
        for (long at = 1;; ++at) {
            if (!endOf(path, Failing::allFrom, at, transport).second) break;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(By, OutOfMemory, testing::Bool(), [](const auto& each) {
    return each.param ? "Subscription" : "Transport";
});

TEST(LackOfMemory, CancellingAndTheEndNeedNone) {
    const RawServer silent([](RawConnection& connection) {
        while (connection.readRequest()) {
        }
    });
    std::array<std::atomic<int>, 10> events{};
    std::optional<FailingAllocations> failing;
    {
        CurlTransport transport({.maxInFlight = 3, .log = [](const TransferLog&) {}});
        std::vector<TransferID> open;
        for (auto& count : events)
            open.push_back(transport.send(
                checked(requestTo(silent.url())), [&](const TransportResult& result) {
                    const auto* const error = std::get_if<SlingError>(&result);
                    if (error != nullptr && (error->kind() == SlingErrorKind::cancelled ||
                                             error->kind() == SlingErrorKind::outOfMemory))
                        ++count;
                }));
        ASSERT_TRUE(silent.awaitRequests(3));
        failing.emplace(Failing::allFrom, 1, &isTransportThread);
        for (std::size_t i = 0; i < open.size(); i += 2)
            transport.cancel(open[i]);
    }
    failing.reset();
    for (std::size_t i = 0; i < events.size(); i += 2) {
        // It may have got a free place, and failed there, before it was cancelled.
        EXPECT_LE(events[i], 1);
        EXPECT_EQ(events[i + 1], 1);
    }
}

TEST(LackOfMemory, NothingIsReservedForWhatIsOnlyAnnounced) {
    // The cap is far beyond what any machine has.
    const RawServer server([](RawConnection& connection) {
        connection.readRequest();
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 4000000000000000\r\n\r\nsome");
    });
    auto request = requestTo(server.url());
    request.policy.maxBodyBytes = std::size_t{1} << 60;
    EXPECT_THAT(sent(request, curlTransport()), FailsWith(SlingErrorKind::connectionLost));
}

}  // namespace
