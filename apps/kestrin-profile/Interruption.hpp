#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

#include <HalvardSling/transport/Transport.hpp>

namespace KestrinProfileCLI {

/// Turns SIGINT and SIGTERM into something a command can wait for beside its result. The second of
/// them ends the process at once, whatever it is doing. Made once, before any other thread, so that
/// every thread has the two signals blocked.
class Interruption {
  public:
    Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;
    ~Interruption();

    /// Waits until `ready` holds or a signal came. `ready` is called with the lock of `notify`
    /// held.
    /// @return false if a signal came first
    /// @throws std::logic_error on a transport's thread, where what is waited for could never come
    template <class Ready>
    [[nodiscard]] bool wait(Ready ready) {
        if (HalvardSling::isTransportThread())
            throw std::logic_error("a handler on the network thread must not wait for a request");
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return interrupted_ || ready(); });
        return ready();
    }

    /// The same, for so long at most.
    /// @return whether `ready` holds
    template <class Ready>
    [[nodiscard]] bool waitFor(std::chrono::duration<double> time, Ready ready) {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, time, [&] { return interrupted_ || ready(); });
        return ready();
    }

    /// Called again and again by what takes long without waiting.
    /// @throws CommandError if a signal came
    void check();

    /// Waits until a file can be read without blocking, or is at its end.
    /// @throws CommandError if a signal came first
    void waitUntilReadable(int descriptor);

    /// Waits this long, or until a signal came.
    /// @return false if a signal came
    [[nodiscard]] bool pause(std::chrono::duration<double> time) {
        std::unique_lock lock(mutex_);
        return !changed_.wait_for(lock, time, [&] { return interrupted_; });
    }

    /// Changes what somebody waits for.
    template <class Change>
    void notify(Change change) {
        {
            const std::scoped_lock lock(mutex_);
            change();
        }
        changed_.notify_all();
    }

  private:
    void listen();

    std::mutex mutex_;
    std::condition_variable changed_;
    bool interrupted_ = false;
    std::thread listener_;
};

}  // namespace KestrinProfileCLI
