// Has 64 requests under way in an address space of 900 MB, and keeps all replies. Prints how many
// ended in which way, then how one more request ended.
// Usage: PROGRAM URL

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <future>
#include <optional>
#include <string>
#include <sys/resource.h>

#include <HalvardSling/curl/CurlTransport.hpp>
#include <HalvardSling/rx/Sling.hpp>

#include "support/Waiting.hpp"

using namespace HalvardSling;

namespace {

constexpr std::size_t requests = 64;
constexpr rlim_t addressSpace = 900'000'000;

TransportRequest requestTo(const std::string& url) {
    TransportRequest request;
    request.url = url;
    request.policy.allowsCleartext = true;
    return request;
}

/// What came, without needing memory for it.
struct Ends {
    std::atomic<std::size_t> replies{0};
    std::atomic<std::size_t> lost{0};
    std::atomic<std::size_t> lacking{0};
    std::atomic<std::size_t> others{0};

    void add(const TransportResult& result) {
        const auto* const error = std::get_if<SlingError>(&result);
        ++(error == nullptr                                  ? replies
           : error->kind() == SlingErrorKind::connectionLost ? lost
           : error->kind() == SlingErrorKind::outOfMemory    ? lacking
                                                             : others);
    }
};

}  // namespace

int main(int count, char** arguments) {
    if (count != 2) return 2;
    const rlimit limit{addressSpace, addressSpace};
    if (::setrlimit(RLIMIT_AS, &limit) != 0) return 2;
    const std::string url = arguments[1];
    CurlTransport transport({.maxInFlight = requests});
    Ends ends;
    {
        TestSupport::Tally ended;
        std::array<std::optional<TransportResult>, requests> kept;
        for (auto& each : kept)
            transport.send(std::get<CheckedRequest>(CheckedRequest::of(requestTo(url))),
                           [&](TransportResult result) {
                               ends.add(result);
                               each = std::move(result);
                               ended.add();
                           });
        if (!ended.reaches(requests)) return 1;
    }
    std::promise<const char*> last;
    transport.send(
        std::get<CheckedRequest>(CheckedRequest::of(requestTo(url + "/small"))),
        [&](const TransportResult& result) {
            last.set_value(std::holds_alternative<SlingError>(result) ? "error" : "reply");
        });
    std::printf("%zu replies, %zu lost, %zu without memory, %zu others; then a %s\n",
                ends.replies.load(), ends.lost.load(), ends.lacking.load(), ends.others.load(),
                last.get_future().get());
    return 0;
}
