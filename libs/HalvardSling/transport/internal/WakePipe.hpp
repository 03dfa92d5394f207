#pragma once

#include <array>

namespace HalvardSling {

/// Wakes up a thread that sleeps in poll(2) or the like. libcurl has a way of its own,
/// `curl_multi_wakeup`, but that takes more system calls, and ends with the multi handle.
class WakePipe {
  public:
    /// @throws std::system_error where the process may open no more files
    WakePipe();
    WakePipe(const WakePipe&) = delete;
    WakePipe(WakePipe&&) = delete;
    WakePipe& operator=(const WakePipe&) = delete;
    WakePipe& operator=(WakePipe&&) = delete;
    ~WakePipe();

    /// Becomes readable with `wake`.
    [[nodiscard]] int descriptor() const noexcept { return ends_.front(); }

    /// Any thread.
    void wake() const noexcept;

    /// Makes the descriptor unreadable again. The thread that sleeps.
    void clear() const noexcept;

  private:
    std::array<int, 2> ends_{};  // to read from, to write to
};

}  // namespace HalvardSling
