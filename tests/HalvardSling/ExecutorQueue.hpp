#pragma once

#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <utility>

#include <HalvardSling/rx/Executor.hpp>

namespace TestSupport {

/// The queue of a thread that calls when the test says so. Outlives the executors of it.
class ExecutorQueue {
  public:
    [[nodiscard]] HalvardSling::Executor executor() {
        return [this](std::function<void()> task) {
            const std::scoped_lock lock(mutex_);
            tasks_.push_back(std::move(task));
        };
    }

    /// Calls what is there, and what comes meanwhile, on this thread.
    void runAll() {
        while (const auto task = next())
            (*task)();
    }

    /// Destroys what is there without calling it.
    void dropAll() {
        while (next()) {
        }
    }

    [[nodiscard]] std::size_t size() const {
        const std::scoped_lock lock(mutex_);
        return tasks_.size();
    }

  private:
    std::optional<std::function<void()>> next() {
        const std::scoped_lock lock(mutex_);
        if (tasks_.empty()) return std::nullopt;
        auto task = std::move(tasks_.front());
        tasks_.pop_front();
        return task;
    }

    mutable std::mutex mutex_;
    std::deque<std::function<void()>> tasks_;
};

}  // namespace TestSupport
