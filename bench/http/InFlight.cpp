#include "http/InFlight.hpp"

#include <algorithm>
#include <string>

namespace Bench {

namespace {

/// @param share  0.5 for the median
double microsecondsAt(std::vector<Clock::duration>& all, double share) {
    const auto index = static_cast<std::ptrdiff_t>(share * static_cast<double>(all.size() - 1));
    std::ranges::nth_element(all, all.begin() + index);
    return std::chrono::duration<double, std::micro>(all[static_cast<std::size_t>(index)]).count();
}

}  // namespace

void Latencies::report(benchmark::State& state) {
    if (failures_ > 0) state.SkipWithError((std::to_string(failures_) + " failed").c_str());
    if (all_.empty()) return;
    state.SetItemsProcessed(static_cast<std::int64_t>(all_.size()));
    state.counters["p50_us"] = microsecondsAt(all_, 0.5);
    state.counters["p99_us"] = microsecondsAt(all_, 0.99);
}

void InFlight::run(Latencies& latencies) {
    latencies_ = std::move(latencies);
    for (std::size_t i = 0; i < places_; ++i)
        startNext();
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return ended_ == total_; });
    latencies = std::move(latencies_);
}

void InFlight::startNext() {
    if (!takeNext()) return;
    start_([this, begin = Clock::now()](bool ok) {
        const auto latency = Clock::now() - begin;
        startNext();
        end(latency, ok);
    });
}

bool InFlight::takeNext() {
    const std::scoped_lock lock(mutex_);
    return started_ < total_ && ++started_ > 0;
}

void InFlight::end(Clock::duration latency, bool ok) {
    // Told with the lock held: the one who waits ends this object.
    const std::scoped_lock lock(mutex_);
    latencies_.add(latency);
    if (!ok) latencies_.addFailure();
    if (++ended_ == total_) changed_.notify_one();
}

void oneAtATime(benchmark::State& state, const std::function<bool()>& operation) {
    Latencies latencies;
    for (int i = 0; i < 10; ++i)
        static_cast<void>(operation());
    for (auto _ : state) {
        const auto begin = Clock::now();
        const bool ok = operation();
        latencies.add(Clock::now() - begin);
        if (!ok) latencies.addFailure();
    }
    latencies.report(state);
}

void manyInFlight(benchmark::State& state, const std::function<void(Latencies&)>& run) {
    Latencies latencies;
    Latencies unmeasured;
    run(unmeasured);
    for (auto _ : state)
        run(latencies);
    latencies.report(state);
}

}  // namespace Bench
