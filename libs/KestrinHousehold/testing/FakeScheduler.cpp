#include <algorithm>

#include <KestrinHousehold/testing/FakeScheduler.hpp>

namespace KestrinHousehold {

using std::chrono::nanoseconds;

FakeScheduler::FakeScheduler(WallTime wallTime) : wallTime_(wallTime) {}

Scheduler::SteadyTime FakeScheduler::steadyTime() const {
    const std::scoped_lock lock(mutex_);
    return now_;
}

Scheduler::WallTime FakeScheduler::wallTime() const {
    const std::scoped_lock lock(mutex_);
    return wallTime_;
}

Scheduler::TaskID FakeScheduler::after(nanoseconds delay, Task task) {
    const std::scoped_lock lock(mutex_);
    const auto due = now_ + std::clamp<nanoseconds>(delay, {}, SteadyTime::max() - now_);
    tasks_.emplace(Key(due, ++last_), std::move(task));
    return last_;
}

void FakeScheduler::cancel(TaskID task) noexcept {
    Task dropped;  // destroyed without the lock: what it holds may come back here
    const std::scoped_lock lock(mutex_);
    const auto found = std::ranges::find(
        tasks_, task, [](const auto& entry) -> const TaskID& { return entry.first.second; });
    if (found == tasks_.end()) return;
    dropped = std::move(tasks_.extract(found).mapped());
}

void FakeScheduler::advance(nanoseconds duration) {
    std::unique_lock lock(mutex_);
    const auto end = now_ + duration;
    const auto passUntil = [&](SteadyTime time) {
        wallTime_ += std::chrono::duration_cast<WallTime::duration>(time - now_);
        now_ = time;
    };
    while (!tasks_.empty() && tasks_.begin()->first.first <= end) {
        passUntil(std::max(now_, tasks_.begin()->first.first));
        Task task = std::move(tasks_.extract(tasks_.begin()).mapped());
        lock.unlock();
        task();
        task = nullptr;  // without the lock: what it holds may come back here
        lock.lock();
    }
    passUntil(std::max(now_, end));
}

void FakeScheduler::setWallTime(WallTime time) {
    const std::scoped_lock lock(mutex_);
    wallTime_ = time;
}

std::size_t FakeScheduler::waiting() const {
    const std::scoped_lock lock(mutex_);
    return tasks_.size();
}

std::optional<nanoseconds> FakeScheduler::nextDelay() const {
    const std::scoped_lock lock(mutex_);
    if (tasks_.empty()) return std::nullopt;
    return tasks_.begin()->first.first - now_;
}

}  // namespace KestrinHousehold
