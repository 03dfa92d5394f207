#include "support/Allocations.hpp"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace TestSupport {

namespace {

std::atomic<long> inUse{0};
std::atomic<std::size_t> blocksEver{0};
std::atomic<std::size_t> bytesEver{0};
thread_local std::size_t bytes = 0;
thread_local std::size_t peak = 0;

// Before each block stands its size.
constexpr std::size_t headSize = alignof(std::max_align_t);

std::atomic<bool> isFailing{false};
std::atomic<Failing> failing{Failing::one};
std::atomic<long> failsAt{0};
std::atomic<long> counted{0};
std::atomic<FailingAllocations::IsCounted> isCountedHere{nullptr};

thread_local bool isOfTheTest = false;
thread_local bool isSpared = false;

bool isOfThisThread() noexcept {
    return isOfTheTest;
}

bool isToFail() noexcept {
    if (!isFailing || isSpared || !isCountedHere.load()()) return false;
    const long number = ++counted;
    return failing == Failing::one ? number == failsAt : number >= failsAt;
}

void* allocated(std::size_t size) {
    auto* const head = isToFail() ? nullptr : static_cast<std::byte*>(std::malloc(size + headSize));
    if (head == nullptr) throw std::bad_alloc();
    new (head) std::size_t(size);
    ++inUse;
    ++blocksEver;
    bytesEver += size;
    bytes += size;
    peak = std::max(peak, bytes);
    return head + headSize;
}

void release(void* memory) noexcept {
    if (memory == nullptr) return;
    auto* const head = static_cast<std::byte*>(memory) - headSize;
    --inUse;
    bytes -= *reinterpret_cast<std::size_t*>(head);
    std::free(head);
}

}  // namespace

long blocksInUse() noexcept {
    return inUse;
}

AllocationCount allocationsSoFar() noexcept {
    return {blocksEver, bytesEver};
}

std::size_t bytesOfThisThread() noexcept {
    return bytes;
}

std::size_t peakOfThisThread() noexcept {
    return peak;
}

void startPeakOfThisThread() noexcept {
    peak = bytes;
}

FailingAllocations::FailingAllocations(Failing which, long at, IsCounted isCounted) noexcept {
    isOfTheTest = true;
    isCountedHere = isCounted == nullptr ? &isOfThisThread : isCounted;
    failing = which;
    failsAt = at;
    counted = 0;
    isFailing = true;
}

void FailingAllocations::end() const noexcept {
    isFailing = false;
    isOfTheTest = false;
}

bool FailingAllocations::hasFailed() const noexcept {
    return counted >= failsAt;
}

SparedAllocations::SparedAllocations() noexcept : was_(isSpared) {
    isSpared = true;
}

SparedAllocations::~SparedAllocations() {
    isSpared = was_;
}

}  // namespace TestSupport

// In the place of those of the standard library.
void* operator new(std::size_t size) {
    return TestSupport::allocated(size);
}
void* operator new[](std::size_t size) {
    return TestSupport::allocated(size);
}
void operator delete(void* memory) noexcept {
    TestSupport::release(memory);
}
void operator delete[](void* memory) noexcept {
    TestSupport::release(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    TestSupport::release(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    TestSupport::release(memory);
}
