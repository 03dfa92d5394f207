#pragma once

#include <condition_variable>
#include <mutex>
#include <utility>

namespace KestrinInternal {

/// A state that threads share, and its mutex. The state is reached only through a lock, so code
/// that forgets to lock does not compile, whatever the compiler.
template <class State>
class Guarded {
  public:
    /// Holds the mutex for as long as it lives, or until it gives it back.
    class Lock {
      public:
        explicit Lock(Guarded& guarded) : lock_(guarded.mutex_), state_(&guarded.state_) {}
        Lock(Lock&& other) noexcept
            : lock_(std::move(other.lock_)), state_(std::exchange(other.state_, nullptr)) {}
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;
        Lock& operator=(Lock&&) = delete;
        ~Lock() = default;

        [[nodiscard]] State& operator*() const noexcept { return *state_; }
        [[nodiscard]] State* operator->() const noexcept { return state_; }

        /// Gives the mutex back; from here on there is no way to the state.
        void unlock() {
            state_ = nullptr;
            lock_.unlock();
        }

        /// Waits until the condition holds; others may have the mutex meanwhile.
        template <class Condition>
        void wait(std::condition_variable& changed, Condition condition) {
            changed.wait(lock_, std::move(condition));
        }

        /// The same, for so long at most.
        /// @return whether the condition holds
        template <class Time, class Condition>
        [[nodiscard]] bool waitFor(std::condition_variable& changed, Time time,
                                   Condition condition) {
            return changed.wait_for(lock_, time, std::move(condition));
        }

      private:
        std::unique_lock<std::mutex> lock_;
        State* state_;
    };

    [[nodiscard]] Lock lock() { return Lock(*this); }

  private:
    std::mutex mutex_;
    State state_{};
};

}  // namespace KestrinInternal
