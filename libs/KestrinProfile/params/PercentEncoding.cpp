#include <algorithm>
#include <array>
#include <cstddef>

#include <KestrinProfile/params/PercentEncoding.hpp>

namespace KestrinProfile {

namespace {

constexpr std::string_view reserved = R"(!*'();:@&=+$,/?%#[]^\ )";
static_assert(reserved.size() == 22);

constexpr std::array<bool, 256> isReserved = [] {
    std::array<bool, 256> table{};
    for (const char c : reserved)
        table[static_cast<unsigned char>(c)] = true;
    return table;
}();

}  // namespace

std::string percentEncoded(std::string_view text) {
    static constexpr std::string_view digits = "0123456789ABCDEF";
    const auto encoded = [](char c) { return isReserved[static_cast<unsigned char>(c)]; };

    std::string result(
        text.size() + 2 * static_cast<std::size_t>(std::ranges::count_if(text, encoded)), '\0');
    auto out = result.begin();
    for (const char c : text) {
        if (!encoded(c)) {
            *out++ = c;
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        *out++ = '%';
        *out++ = digits[byte >> 4];
        *out++ = digits[byte & 15];
    }
    return result;
}

}  // namespace KestrinProfile
