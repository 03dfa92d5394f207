#include <algorithm>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include <KestrinHousehold/time/TimerThread.hpp>

namespace KestrinHousehold {

/// Shared with the thread, which may outlive the scheduler by the rest of a task that destroys it.
class TimerThread::State {
  public:
    TaskID add(const std::shared_ptr<State>& self, SteadyTime due, Task task);
    void cancel(TaskID task) noexcept;
    void end();

  private:
    using Key = std::pair<SteadyTime, TaskID>;

    void run();
    /// The next task, as soon as it is due; empty if none waits any more, and the thread ends.
    Task next();
    void start(const std::shared_ptr<State>& self);

    std::mutex mutex_;
    std::condition_variable changed_;
    TaskID last_ = 0;
    std::map<Key, Task> tasks_;
    std::map<TaskID, SteadyTime> dueTimes_;
    std::thread thread_;
    bool isRunning_ = false;
};

Scheduler::TaskID TimerThread::State::add(const std::shared_ptr<State>& self, SteadyTime due,
                                          Task task) {
    Task dropped;  // destroyed without the lock, as in `cancel`
    const std::scoped_lock lock(mutex_);
    const Key key(due, ++last_);
    tasks_.emplace(key, std::move(task));
    try {
        dueTimes_.emplace(key.second, due);
        start(self);
    } catch (...) {
        dueTimes_.erase(key.second);
        dropped = std::move(tasks_.extract(key).mapped());
        throw;
    }
    changed_.notify_one();
    return key.second;
}

void TimerThread::State::start(const std::shared_ptr<State>& self) {
    if (isRunning_) return;
    if (thread_.joinable()) thread_.join();  // it has left `run`'s loop for good
    thread_ = std::thread([self] { self->run(); });
    isRunning_ = true;
}

void TimerThread::State::cancel(TaskID task) noexcept {
    Task dropped;  // destroyed without the lock: what it holds may come back here
    const std::scoped_lock lock(mutex_);
    const auto due = dueTimes_.find(task);
    if (due == dueTimes_.end()) return;
    auto node = tasks_.extract(Key(due->second, task));
    dropped = std::move(node.mapped());
    dueTimes_.erase(due);
    changed_.notify_one();
}

void TimerThread::State::end() {
    std::map<Key, Task> dropped;
    std::thread thread;
    {
        const std::scoped_lock lock(mutex_);
        dropped.swap(tasks_);
        dueTimes_.clear();
        thread.swap(thread_);
        changed_.notify_one();
    }
    if (!thread.joinable()) return;
    if (thread.get_id() == std::this_thread::get_id())
        thread.detach();
    else
        thread.join();
}

void TimerThread::State::run() {
    while (const Task task = next())
        task();
}

Scheduler::Task TimerThread::State::next() {
    std::unique_lock lock(mutex_);
    while (!tasks_.empty()) {
        const auto first = tasks_.begin();
        const auto [due, task] = first->first;
        if (due > std::chrono::steady_clock::now()) {
            changed_.wait_until(lock, due);
            continue;
        }
        dueTimes_.erase(task);
        return std::move(tasks_.extract(first).mapped());
    }
    isRunning_ = false;
    return {};
}

TimerThread::TimerThread() : state_(std::make_shared<State>()) {}

TimerThread::~TimerThread() {
    state_->end();
}

Scheduler::SteadyTime TimerThread::steadyTime() const {
    return std::chrono::steady_clock::now();
}

Scheduler::WallTime TimerThread::wallTime() const {
    return std::chrono::system_clock::now();
}

Scheduler::TaskID TimerThread::after(std::chrono::nanoseconds delay, Task task) {
    // A delay that no clock can reach is the longest one there is.
    const auto now = steadyTime();
    const auto longest = SteadyTime::max() - now;
    return state_->add(state_, now + std::clamp<std::chrono::nanoseconds>(delay, {}, longest),
                       std::move(task));
}

void TimerThread::cancel(TaskID task) noexcept {
    state_->cancel(task);
}

}  // namespace KestrinHousehold
