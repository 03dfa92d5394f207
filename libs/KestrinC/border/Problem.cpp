#include <array>
#include <cstdio>
#include <exception>
#include <new>

#include <KestrinC/border/Problem.hpp>

namespace KestrinC::internal {

namespace {

/// Of this thread; without a destructor, and without memory that could be lacking.
thread_local std::array<char, 1024> lastProblem{};

kestrin_status noted(const char* function, const char* problem, kestrin_status status) noexcept {
    static_cast<void>(
        std::snprintf(lastProblem.data(), lastProblem.size(), "%s: %s", function, problem));
    return status;
}

}  // namespace

kestrin_status noteProblem(const char* function) noexcept {
    try {
        throw;
    } catch (const Refused& refused) {
        return noted(function, refused.what(), refused.status());
    } catch (const std::bad_alloc&) {
        return noted(function, "there is not enough memory", KESTRIN_OUT_OF_MEMORY);
    } catch (const std::exception& error) {
        return noted(function, error.what(), KESTRIN_FAILED);
    } catch (...) {
        return noted(function, "an unknown error", KESTRIN_FAILED);
    }
}

}  // namespace KestrinC::internal

const char* kestrin_last_problem(void) {
    return KestrinC::internal::lastProblem.data();
}
