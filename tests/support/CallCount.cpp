#include "support/CallCount.hpp"

#include <atomic>

namespace {

std::atomic<std::uint64_t> calls{0};

}  // namespace

// What the compiler calls in a function that is compiled with -finstrument-functions.
extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the compiler names them.
[[gnu::no_instrument_function]] void __cyg_profile_func_enter(void* function, void* caller);
[[gnu::no_instrument_function]] void __cyg_profile_func_exit(void* function, void* caller);

void __cyg_profile_func_enter(void* /*function*/, void* /*caller*/) {
    calls.fetch_add(1, std::memory_order_relaxed);
}

void __cyg_profile_func_exit(void* /*function*/, void* /*caller*/) {}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
}

namespace TestSupport {

std::uint64_t callsIn(const std::function<void()>& work) {
    const std::uint64_t before = calls;
    work();
    return calls - before;
}

double growthOfCalls(const std::function<void(int amount)>& work, int amount) {
    const auto few = callsIn([&] { work(amount); });
    const auto many = callsIn([&] { work(4 * amount); });
    return static_cast<double>(many) / static_cast<double>(few);
}

}  // namespace TestSupport
