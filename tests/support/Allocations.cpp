#include "support/Allocations.hpp"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace TestSupport {

namespace {

std::atomic<long> inUse{0};

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
    void* const memory = isToFail() ? nullptr : std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) throw std::bad_alloc();
    ++inUse;
    return memory;
}

void release(void* memory) noexcept {
    if (memory != nullptr) --inUse;
    std::free(memory);
}

}  // namespace

long blocksInUse() noexcept {
    return inUse;
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
