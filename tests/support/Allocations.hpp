#pragma once

#include <cstddef>

namespace TestSupport {

/// The allocation functions of the program that links kestrin_test_allocations: they count, and
/// fail where a test wants them to. Aligned ones stay the system's.

/// How many blocks are in use, of all threads.
[[nodiscard]] long blocksInUse() noexcept;

/// What was allocated since the process began, by all threads.
struct AllocationCount {
    std::size_t blocks = 0;
    std::size_t bytes = 0;
};
[[nodiscard]] AllocationCount allocationsSoFar() noexcept;

/// How many bytes this thread has allocated and not released.
[[nodiscard]] std::size_t bytesOfThisThread() noexcept;

/// How many these were at the most since `startPeakOfThisThread` was called.
[[nodiscard]] std::size_t peakOfThisThread() noexcept;
void startPeakOfThisThread() noexcept;

/// Which allocations fail: of those that are counted, one, or all from one on.
enum class Failing { one, allFrom };

/// As long as it lives, allocations fail; one such object at a time.
class FailingAllocations {
  public:
    /// Whether an allocation of the calling thread is counted.
    using IsCounted = bool (*)() noexcept;

    /// @param at         the number of the first one that fails, from 1
    /// @param isCounted  absent: those of this thread
    FailingAllocations(Failing which, long at, IsCounted isCounted = nullptr) noexcept;
    FailingAllocations(const FailingAllocations&) = delete;
    FailingAllocations& operator=(const FailingAllocations&) = delete;
    ~FailingAllocations() { end(); }

    /// From now on nothing fails.
    void end() const noexcept;

    /// Whether one has failed.
    [[nodiscard]] bool hasFailed() const noexcept;
};

/// As long as it lives, the allocations of this thread succeed: they are the test's own.
class SparedAllocations {
  public:
    SparedAllocations() noexcept;
    SparedAllocations(const SparedAllocations&) = delete;
    SparedAllocations& operator=(const SparedAllocations&) = delete;
    ~SparedAllocations();

  private:
    bool was_;
};

}  // namespace TestSupport
