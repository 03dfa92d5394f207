#include <algorithm>
#include <array>
#include <cstddef>

#include <KestrinProfile/params/internal/PercentEncoding.hpp>

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

constexpr std::size_t blockSize = 128;

/// Writes the encoded text.
/// @return where it ends
char* encode(std::string_view text, char* out) noexcept {
    static constexpr std::string_view digits = "0123456789ABCDEF";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (!isReserved[byte]) {
            *out++ = c;
            continue;
        }
        *out++ = '%';
        *out++ = digits[byte >> 4];
        *out++ = digits[byte & 15];
    }
    return out;
}

}  // namespace

std::string percentEncoded(std::string_view text) {
    std::array<char, 3 * blockSize> block;  // NOLINT(cppcoreguidelines-pro-type-member-init)
    std::string result;
    for (; !text.empty(); text.remove_prefix(std::min(text.size(), blockSize)))
        result.append(block.data(), encode(text.substr(0, blockSize), block.data()));
    return result;
}

}  // namespace KestrinProfile
