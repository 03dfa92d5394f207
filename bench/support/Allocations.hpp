#pragma once

#include <cstddef>

namespace Bench {

/// What a piece of work took from the heap.
struct HeapUse {
    std::size_t allocations = 0;  ///< calls that gave new or larger memory
    std::size_t peakBytes = 0;    ///< the most that was held at a time, beyond what was held before
    std::size_t keptBytes = 0;    ///< what is still held, beyond what was held before
};

/// Counts every use of the heap by any thread while it lives, `malloc` of C libraries included.
/// One at a time. Counting costs time, so nothing is timed while one lives.
class HeapMeter {
  public:
    HeapMeter();
    HeapMeter(const HeapMeter&) = delete;
    HeapMeter(HeapMeter&&) = delete;
    HeapMeter& operator=(const HeapMeter&) = delete;
    HeapMeter& operator=(HeapMeter&&) = delete;
    ~HeapMeter();

    [[nodiscard]] HeapUse use() const;
};

/// What `work` takes from the heap.
template <class Work>
HeapUse heapUseOf(const Work& work) {
    const HeapMeter meter;
    work();
    return meter.use();
}

}  // namespace Bench
