#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>

namespace TestSupport {

/// How long a test waits for what has to come. Only what hangs takes longer, on any machine.
constexpr std::chrono::minutes patience{10};

/// Waits for a state that nothing tells of, e.g. of a file or another process, by looking again and
/// again.
/// @return whether it came
[[nodiscard]] bool eventually(const std::function<bool()>& isReached);

/// Keeps the processor busy for so many turns, some nanoseconds each, so that threads meet at other
/// places. Nothing may depend on how long it takes.
void spin(unsigned turns);

/// Counts what happens on any thread.
class Tally {
  public:
    void add();

    [[nodiscard]] std::size_t count() const;

    /// Waits until it has counted so many; false if they do not come.
    [[nodiscard]] bool reaches(std::size_t count) const;

  private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::size_t count_ = 0;
};

}  // namespace TestSupport
