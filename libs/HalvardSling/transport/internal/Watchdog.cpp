#include <exception>

#include <HalvardSling/transport/internal/Watchdog.hpp>

namespace HalvardSling::internal {

void Watchdog::noteWork() noexcept {
    isAtWork_ = true;
    if (isAsleep_) wake();
}

void Watchdog::wake() noexcept {
    const std::scoped_lock lock(mutex_);
    if (ending_) return;
    try {
        if (!thread_.joinable()) thread_ = std::thread([this] { run(); });
    } catch (const std::exception&) {
        return;
    }
    isAsleep_ = false;
    changed_.notify_one();
}

void Watchdog::run() noexcept {
    std::unique_lock lock(mutex_);
    bool wasAtWork = true;
    while (!changed_.wait_for(lock, interval_, [this] { return ending_; })) {
        const bool isAtWork = isAtWork_;
        look_(isAtWork);
        if (!isAtWork && !wasAtWork) {
            isAsleep_ = true;
            if (!isAtWork_) changed_.wait(lock, [this] { return ending_ || !isAsleep_; });
            isAsleep_ = false;
        }
        wasAtWork = isAtWork;
    }
}

void Watchdog::stop() noexcept {
    std::thread ended;
    {
        const std::scoped_lock lock(mutex_);
        ending_ = true;
        ended.swap(thread_);
        changed_.notify_one();
    }
    if (ended.joinable()) ended.join();
}

}  // namespace HalvardSling::internal
