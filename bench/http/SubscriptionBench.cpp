// Many subscriptions that wait in the transport for a service which never answers: the time to
// subscribe and to unsubscribe all of them, and what they hold in the heap meanwhile.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include "http/HistoryService.hpp"
#include "http/SilentServer.hpp"
#include "support/Allocations.hpp"

namespace {

using namespace std::chrono_literals;
using Bench::HistoryService;
using Bench::SilentServer;
using benchmark::State;
using KestrinProfile::UserProfile;

/// A service with subscriptions, and how many of their transfers have ended.
class Crowd {
  public:
    explicit Crowd(const SilentServer& server)
        : service_(server.url("/v1/history"),
                   {.log = [this](const HalvardSling::TransferLog&) { ++ended_; }}) {}

    void subscribe(std::size_t count) {
        subscriptions_.reserve(count);
        for (std::size_t i = 0; i < count; ++i)
            subscriptions_.push_back(service_.history().subscribe(
                [this](const UserProfile&) { ++unexpected_; },
                [this](const std::exception_ptr&) { ++unexpected_; }, [] {}));
    }

    void unsubscribe() {
        for (const auto& each : subscriptions_)
            each.unsubscribe();
    }

    /// Whether every transfer has ended within a minute, and no subscriber heard of it.
    [[nodiscard]] bool allEnded() const {
        const auto end = std::chrono::steady_clock::now() + 60s;
        while (ended_ < subscriptions_.size() && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(1ms);
        return ended_ == subscriptions_.size() && unexpected_ == 0;
    }

  private:
    std::atomic<std::size_t> ended_ = 0;
    std::atomic<std::size_t> unexpected_ = 0;
    std::vector<rxcpp::composite_subscription> subscriptions_;
    HistoryService service_;  // goes first: its transport calls what counts
};

/// What is held once the transport's thread has taken in what it was given.
std::size_t settledBytes(const Bench::HeapMeter& meter) {
    std::size_t before = 0;
    std::size_t now = meter.use().keptBytes;
    while (now != before) {
        std::this_thread::sleep_for(100ms);
        before = std::exchange(now, meter.use().keptBytes);
    }
    return now;
}

std::size_t heldBytes(const SilentServer& server, std::size_t count) {
    const Bench::HeapMeter meter;
    Crowd crowd(server);
    crowd.subscribe(count);
    const std::size_t bytes = settledBytes(meter);
    crowd.unsubscribe();
    return crowd.allEnded() ? bytes : 0;
}

void subscriptions(State& state, const SilentServer& server) {
    const auto count = static_cast<std::size_t>(state.range());
    for (auto _ : state) {
        Crowd crowd(server);
        crowd.subscribe(count);
        crowd.unsubscribe();
        if (!crowd.allEnded()) state.SkipWithError("a transfer has not ended");
    }
    state.SetItemsProcessed(state.iterations() * state.range());
    const std::size_t bytes = heldBytes(server, count);
    if (bytes == 0) state.SkipWithError("a transfer has not ended");
    state.counters["bytes_per_subscription"] =
        static_cast<double>(bytes) / static_cast<double>(count);
    state.counters["total_MB"] = static_cast<double>(bytes) / 1e6;
}

}  // namespace

int main(int count, char** arguments) {
    benchmark::Initialize(&count, arguments);
    if (benchmark::ReportUnrecognizedArguments(count, arguments)) return 2;
    const SilentServer server;
    benchmark::RegisterBenchmark("subscriptions/KestrinProfile",
                                 [&server](State& state) { subscriptions(state, server); })
        ->Arg(1'000)
        ->Arg(10'000)
        ->Arg(100'000)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
