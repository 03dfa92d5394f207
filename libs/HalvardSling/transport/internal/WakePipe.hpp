#pragma once

#include <internal/FileDescriptor.hpp>

namespace HalvardSling::internal {

/// Wakes up a thread that sleeps in poll(2) or the like. libcurl has a way of its own,
/// `curl_multi_wakeup`, but that takes more system calls, and ends with the multi handle.
class WakePipe {
  public:
    /// @throws std::system_error if the process may open no more files
    WakePipe();

    /// Becomes readable with `wake`.
    [[nodiscard]] int descriptor() const noexcept { return readEnd_.number(); }

    /// Any thread.
    void wake() const noexcept;

    /// Makes the descriptor unreadable again. The thread that sleeps.
    void clear() const noexcept;

  private:
    KestrinInternal::FileDescriptor readEnd_;
    KestrinInternal::FileDescriptor writeEnd_;
};

}  // namespace HalvardSling::internal
