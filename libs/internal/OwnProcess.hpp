#pragma once

#include <atomic>
#include <sys/types.h>
#include <unistd.h>

namespace KestrinInternal {

/// The process that an object with a thread belongs to. A process that is forked from it has the
/// object, but not the thread, and perhaps a mutex in the hand of a thread that it has not.
class OwnProcess {
  public:
    /// Makes the object this process's, if it is nobody's. Called before a thread is started, and
    /// before the mutex is taken for that.
    void claim() noexcept {
        if (process_ == 0) process_ = ::getpid();
    }

    /// Whether it belongs to a process.
    [[nodiscard]] bool isClaimed() const noexcept { return process_ != 0; }

    /// Whether it belongs to another process, from which this one was forked.
    [[nodiscard]] bool isForked() const noexcept {
        const pid_t process = process_;
        return process != 0 && process != ::getpid();
    }

  private:
    std::atomic<pid_t> process_{0};
};

}  // namespace KestrinInternal
