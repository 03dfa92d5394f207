#include "support/Waiting.hpp"

#include <atomic>
#include <thread>

namespace TestSupport {

bool eventually(const std::function<bool()>& isReached) {
    constexpr std::chrono::milliseconds betweenLooks{2};
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!isReached()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(betweenLooks);
    }
    return true;
}

void spin(unsigned turns) {
    for (std::atomic<unsigned> left = turns; left > 0; --left) {
    }
}

void Tally::add() {
    const std::scoped_lock lock(mutex_);
    ++count_;
    changed_.notify_all();
}

std::size_t Tally::count() const {
    const std::scoped_lock lock(mutex_);
    return count_;
}

bool Tally::reaches(std::size_t count) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, patience, [&] { return count_ >= count; });
}

}  // namespace TestSupport
