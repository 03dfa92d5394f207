#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>
#include <new>
#include <string_view>

#include <KestrinC/internal/border/Problem.hpp>
#include <internal/UTF8.hpp>

namespace KestrinC::internal {

namespace {

/// Of this thread; without a destructor, and without memory that could be lacking.
thread_local std::array<char, 1024> lastProblem{};

/// The length of a text without the character at its end of which a part was cut off.
std::size_t wholeLength(std::string_view text) noexcept {
    constexpr std::size_t longest = 4;
    for (std::size_t back = 1; back <= std::min(longest, text.size()); ++back) {
        const std::size_t at = text.size() - back;
        const bool isBeginning = (static_cast<unsigned char>(text[at]) & 0xC0U) != 0x80U;
        if (!isBeginning) continue;
        return KestrinInternal::firstUTF8Character(text.substr(at)).value ? text.size() : at;
    }
    return text.size();
}

kestrin_status noted(const char* function, const char* problem, kestrin_status status) noexcept {
    const int length =
        std::snprintf(lastProblem.data(), lastProblem.size(), "%s: %s", function, problem);
    if (length >= 0 && static_cast<std::size_t>(length) >= lastProblem.size())
        lastProblem[wholeLength(lastProblem.data())] = '\0';
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
