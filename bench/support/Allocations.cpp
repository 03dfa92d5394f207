// The functions of malloc, with a count before glibc's own (glibc manual, "Replacing malloc").

#include "support/Allocations.hpp"

#include <atomic>
#include <cerrno>
#include <malloc.h>

// glibc's names.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* memory);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace Bench {

namespace {

std::atomic<bool> isCounting{false};
std::atomic<std::size_t> allocations{0};
std::atomic<std::ptrdiff_t> held{0};
std::atomic<std::ptrdiff_t> peak{0};

std::ptrdiff_t sizeOf(void* memory) noexcept {
    return static_cast<std::ptrdiff_t>(malloc_usable_size(memory));
}

void* taken(void* memory) noexcept {
    if (memory == nullptr || !isCounting.load(std::memory_order_relaxed)) return memory;
    ++allocations;
    const std::ptrdiff_t now = held += sizeOf(memory);
    std::ptrdiff_t highest = peak;
    while (now > highest && !peak.compare_exchange_weak(highest, now)) {
    }
    return memory;
}

void givenBack(void* memory) noexcept {
    if (memory != nullptr && isCounting.load(std::memory_order_relaxed)) held -= sizeOf(memory);
}

}  // namespace

HeapMeter::HeapMeter() {
    allocations = 0;
    held = 0;
    peak = 0;
    isCounting = true;
}

HeapMeter::~HeapMeter() {
    isCounting = false;
}

HeapUse HeapMeter::use() const {
    const auto bytes = [](std::ptrdiff_t count) {
        return count > 0 ? static_cast<std::size_t>(count) : 0;
    };
    return {allocations, bytes(peak), bytes(held)};
}

}  // namespace Bench

extern "C" {

void* malloc(std::size_t size) {
    return Bench::taken(__libc_malloc(size));
}

void* calloc(std::size_t count, std::size_t size) {
    return Bench::taken(__libc_calloc(count, size));
}

void* realloc(void* memory, std::size_t size) {
    Bench::givenBack(memory);
    return Bench::taken(__libc_realloc(memory, size));
}

void* memalign(std::size_t alignment, std::size_t size) {
    return Bench::taken(__libc_memalign(alignment, size));
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return memalign(alignment, size);
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
    *memory = memalign(alignment, size);
    return *memory == nullptr ? ENOMEM : 0;
}

void free(void* memory) {
    Bench::givenBack(memory);
    __libc_free(memory);
}
}
