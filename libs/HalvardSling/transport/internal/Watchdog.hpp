#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <thread>
#include <utility>

#include <internal/Guarded.hpp>

namespace HalvardSling::internal {

/// Looks after a thread that others can keep from coming back, on a thread of its own that starts
/// with the other's first work. While there is work it calls a function at regular times; otherwise
/// it sleeps, and no time wakes it.
///
/// If the system has no thread left, nobody looks until it has.
class Watchdog {
  public:
    /// @param look  called with whether the watched thread is at work at this moment; must not
    /// throw
    Watchdog(std::chrono::milliseconds interval, std::function<void(bool isAtWork)> look)
        : interval_(interval), look_(std::move(look)) {}
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;
    ~Watchdog() { stop(); }

    // The watched thread; a system call is made only if the watchdog sleeps.
    void noteWork() noexcept;
    void noteRest() noexcept { isAtWork_ = false; }

    /// Ends its thread and waits for it. Nobody looks any more.
    void stop() noexcept;

  private:
    void wake() noexcept;
    void run() noexcept;

    const std::chrono::milliseconds interval_;
    const std::function<void(bool)> look_;
    // Both are set before the other is read, so that one of the two threads sees it.
    std::atomic<bool> isAtWork_{false};
    std::atomic<bool> isAsleep_{true};

    struct Shared {
        bool ending = false;
        std::thread thread;
    };
    KestrinInternal::Guarded<Shared> shared_;
    std::condition_variable changed_;
};

}  // namespace HalvardSling::internal
