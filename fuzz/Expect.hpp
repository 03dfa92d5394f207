#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <source_location>
#include <string_view>

// What libFuzzer calls.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace Fuzz {

/// Ends the program if something does not hold, so that libFuzzer keeps the input.
inline void expect(bool holds, std::string_view what,
                   std::source_location place = std::source_location::current()) {
    if (holds) return;
    static_cast<void>(std::fprintf(stderr, "%s:%u: expected: %.*s\n", place.file_name(),
                                   static_cast<unsigned>(place.line()),
                                   static_cast<int>(what.size()), what.data()));
    std::abort();
}

/// An input as a text.
inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
    return size == 0 ? std::string_view()
                     : std::string_view(reinterpret_cast<const char*>(data), size);
}

}  // namespace Fuzz
