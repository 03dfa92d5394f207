#include <exception>

#include <HalvardSling/transport/internal/Watchdog.hpp>

namespace HalvardSling::internal {

void Watchdog::noteWork() noexcept {
    isAtWork_ = true;
    if (isAsleep_) wake();
}

void Watchdog::wake() noexcept {
    const auto shared = shared_.lock();
    if (shared->ending) return;
    try {
        if (!shared->thread.joinable()) shared->thread = std::thread([this] { run(); });
    } catch (const std::exception&) {
        return;
    }
    isAsleep_ = false;
    changed_.notify_one();
}

void Watchdog::run() noexcept {
    auto shared = shared_.lock();
    bool wasAtWork = true;
    while (!shared.waitFor(changed_, interval_, [&] { return shared->ending; })) {
        const bool isAtWork = isAtWork_;
        look_(isAtWork);
        if (!isAtWork && !wasAtWork) {
            isAsleep_ = true;
            if (!isAtWork_) shared.wait(changed_, [&] { return shared->ending || !isAsleep_; });
            isAsleep_ = false;
        }
        wasAtWork = isAtWork;
    }
}

void Watchdog::stop() noexcept {
    std::thread ended;
    {
        const auto shared = shared_.lock();
        shared->ending = true;
        ended.swap(shared->thread);
        changed_.notify_one();
    }
    if (ended.joinable()) ended.join();
}

}  // namespace HalvardSling::internal
