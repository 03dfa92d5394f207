// All that the library does around one request: the record, its headers, body and URL, the guard,
// the sequence, the decoder. The transport answers at once, so nothing of it is in the figures.

#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include <benchmark/benchmark.h>
#include <rxcpp/operators/rx-map.hpp>
#include <rxcpp/operators/rx-tap.hpp>
#include <rxcpp/rx-lite.hpp>

#include <HalvardSling/transport/Transport.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinProfile/service/Profile.hpp>

#include "support/Allocations.hpp"
#include "support/AnswersAtOnce.hpp"
#include "support/ListText.hpp"

namespace {

using Bench::AnswersAtOnce;
using Bench::replyOf;
using HalvardSling::Response;
using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::ConfigurationManager;
using KestrinProfile::Profile;
using KestrinProfile::ProfileParams;
using KestrinProfile::User;
using KestrinProfile::UserParams;

#ifdef KESTRIN_RXCPP_BUNDLED
#define RX "KestrinProfile"
#else
#define RX "KestrinProfile with RxCpp"
#endif

const AnonymousBind parent("parent", "a-token-of-some-length-0123456789-0123456789");

/// Measures one operation, from its record to its decoded answer.
template <class Operation>
void measure(benchmark::State& state, std::string reply, Operation operation) {
    HalvardSling::setDefaultTransport(std::make_shared<AnswersAtOnce>(replyOf(std::move(reply))));
    int answers = 0;
    const auto once = [&] {
        operation().subscribe([&](const auto&) { ++answers; }, [](const std::exception_ptr&) {});
    };
    once();
    if (answers != 1) return state.SkipWithError("no answer");
    const auto heap = Bench::heapUseOf(once);
    for (auto _ : state)
        once();
    state.SetItemsProcessed(state.iterations());
    state.counters["allocations"] = static_cast<double>(heap.allocations);
    state.counters["peak_bytes"] = static_cast<double>(heap.peakBytes);
    HalvardSling::setDefaultTransport(nullptr);
}

void requestHistory(benchmark::State& state) {
    measure(state, Bench::listText(static_cast<std::size_t>(state.range(0))),
            [] { return Profile().requestHistory(ProfileParams(parent)); });
}

void addHistoryVideo(benchmark::State& state) {
    measure(state, "{}", [] {
        ProfileParams params(parent);
        params.videoID = "video-0123456789";
        params.progress = 42;
        params.isComplete = false;
        return Profile().addHistoryVideo(std::move(params));
    });
}

void createProfile(benchmark::State& state) {
    const char* const reply =
        R"({"profileId":"5f0c1a77","username":"Ada","avatar":"cat","group":"adults","default":false})";
    measure(state, reply, [] {
        return Profile().createProfile(
            UserParams(parent, User::withoutProfileID("Ada", "cat", "adults")));
    });
}

/// The shape of the longest chain that an operation makes, with nothing in it.
void chain(benchmark::State& state) {
    const Response reply = replyOf("{}");
    int answers = 0;
    const auto once = [&] {
        (rxcpp::observable<>::create<Response>([&](const rxcpp::subscriber<Response>& subscriber) {
             subscriber.on_next(reply);
             subscriber.on_completed();
         }) |
         rxcpp::operators::map([](const Response& each) { return each; }) |
         rxcpp::operators::map([](const Response& each) { return each.status(); }) |
         rxcpp::operators::tap([](int) {
         })).subscribe([&](int) { ++answers; });
    };
    const auto heap = Bench::heapUseOf(once);
    for (auto _ : state)
        once();
    benchmark::DoNotOptimize(answers);
    state.SetItemsProcessed(state.iterations());
    state.counters["allocations"] = static_cast<double>(heap.allocations);
}

}  // namespace

BENCHMARK(requestHistory)->Name("request_history/" RX)->Arg(1);
BENCHMARK(addHistoryVideo)->Name("request_add_video/" RX "/1");
BENCHMARK(createProfile)->Name("request_create_profile/" RX "/1");
BENCHMARK(chain)->Name("rx_chain/" RX "/1");

int main(int argc, char** argv) {
    const auto problems = ConfigurationManager::sharedInstance().load(CONFIGURATION);
    for (const auto& problem : problems)
        std::fprintf(stderr, "%s: %s\n", problem.path.c_str(), problem.message.c_str());
    if (!problems.empty()) return 2;
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    benchmark::RunSpecifiedBenchmarks();
}
