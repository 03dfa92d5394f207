// Lets the allocations on a transport's thread fail, one after the other and all from one on.
// Whatever fails, a transfer ends once, and the transport goes on.

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "CurlTransfers.hpp"
#include "Gzip.hpp"

namespace {

enum class Fails { none, one, allFrom };

// Which allocations on a transport's thread fail, counted from 1.
std::atomic<Fails> fails{Fails::none};
std::atomic<long> failsAt{0};
std::atomic<long> allocations{0};

/// Whether the calling thread is to have its memory all the same.
thread_local bool isSpared = false;

void failIfItsTurn() {
    if (isSpared || fails == Fails::none || !HalvardSling::isTransportThread()) return;
    const long count = ++allocations;
    if (fails == Fails::one ? count == failsAt : count >= failsAt) throw std::bad_alloc();
}

void* allocated(std::size_t size) {
    failIfItsTurn();
    if (void* const memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t size) {
    return allocated(size);
}
void* operator new[](std::size_t size) {
    return allocated(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}

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
    isSpared = true;
    action();
    isSpared = false;
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
    ~OutOfMemory() override { fails = Fails::none; }

    /// Sends one request while allocations fail; returns how it ended. The transport answers
    /// another one afterwards.
    std::string endOf(const std::string& path, Fails which, long at,
                      const std::shared_ptr<CurlTransport>& transport) {
        auto request = requestTo(server.url("/" + path));
        request.policy.maxRedirects = 2;
        const auto outcome = std::make_shared<Outcome>();
        auto last = outcome->last.get_future();
        allocations = 0;
        failsAt = at;
        fails = which;
        (GetParam() ? &subscribe : &sendDirectly)(request, transport, outcome);
        std::string how = last.get();
        fails = Fails::none;
        EXPECT_THAT(sent(requestTo(server.url("/plain")), transport), Answers(200, "plain"));
        EXPECT_EQ(outcome->terminalEvents, 1);
        return how;
    }

    const RawServer server{&answer};
};

TEST_P(OutOfMemory, AnyAllocationOfARequestMayFail) {
    for (const auto& path : paths()) {
        const std::string usual = path == "missing" && GetParam() ? "httpStatus" : "reply";
        bool wasLacking = false;
        for (long at = 1;; ++at) {
            const auto how = endOf(path, Fails::one, at, curlTransport());
            EXPECT_THAT(how, testing::AnyOf("outOfMemory", usual)) << path << ' ' << at;
            wasLacking |= how == "outOfMemory";
            if (allocations < at) break;  // it needs no more than that
        }
        EXPECT_TRUE(wasLacking) << path;
    }
}

TEST_P(OutOfMemory, AllAllocationsFromOneOnMayFail) {
    for (const auto& path : paths()) {
        const auto transport = curlTransport();
        for (long at = 1;; ++at) {
            endOf(path, Fails::allFrom, at, transport);
            if (allocations < at) break;
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
        allocations = 0;
        failsAt = 1;
        fails = Fails::allFrom;
        for (std::size_t i = 0; i < open.size(); i += 2)
            transport.cancel(open[i]);
    }
    fails = Fails::none;
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
