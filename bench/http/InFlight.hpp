#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

namespace Bench {

using Clock = std::chrono::steady_clock;

/// How long each operation of one run took, and how many did not do what they should.
class Latencies {
  public:
    void add(Clock::duration latency) { all_.push_back(latency); }
    void addFailure() { ++failures_; }

    /// Sets the counters `p50_us` and `p99_us` and the number of operations; failures make the run
    /// an error.
    void report(benchmark::State& state);

  private:
    std::vector<Clock::duration> all_;
    std::size_t failures_ = 0;
};

/// Runs operations that end by a call, so many at a time: the end of one starts the next.
class InFlight {
  public:
    /// Told whether an operation did what it should. From any thread.
    using Done = std::function<void(bool)>;
    using Start = std::function<void(Done)>;

    InFlight(std::size_t total, std::size_t places, Start start)
        : total_(total), places_(places), start_(std::move(start)) {}

    /// Returns once all have ended.
    void run(Latencies& latencies);

  private:
    void startNext();
    void end(Clock::duration latency, bool ok);
    [[nodiscard]] bool takeNext();

    const std::size_t total_;
    const std::size_t places_;
    const Start start_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::size_t started_ = 0;
    std::size_t ended_ = 0;
    Latencies latencies_;
};

/// Measures operations that end on the calling thread, once the connection is there.
/// @param operation  tells whether it did what it should
void oneAtATime(benchmark::State& state, const std::function<bool()>& operation);

/// Measures runs of many operations, once the connections are there.
void manyInFlight(benchmark::State& state, const std::function<void(Latencies&)>& run);

/// Hands values, one at a time, from one thread to another that waits for them. It must live on
/// after a value is taken: the one who puts it may not be through yet.
template <class T>
class Handover {
  public:
    void put(T value) {
        {
            const std::scoped_lock lock(mutex_);
            value_ = std::move(value);
        }
        changed_.notify_one();
    }

    [[nodiscard]] T take() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return value_.has_value(); });
        return *std::exchange(value_, std::nullopt);
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::optional<T> value_;
};

}  // namespace Bench
