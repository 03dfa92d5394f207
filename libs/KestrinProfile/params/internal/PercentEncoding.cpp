#include <algorithm>
#include <array>

#include <KestrinProfile/params/internal/PercentEncoding.hpp>
#include <internal/Hex.hpp>

namespace KestrinProfile::internal {

using KestrinInternal::hexDigits;
using KestrinInternal::upperHexDigits;

namespace {

constexpr std::string_view reserved = R"(!*'();:@&=+$,/?%#[]^\ )";
static_assert(reserved.size() == 22);

constexpr std::array<bool, 256> table = [] {
    std::array<bool, 256> marks{};
    for (const char c : reserved)
        marks[static_cast<unsigned char>(c)] = true;
    return marks;
}();

bool isReserved(char c) {
    return table[static_cast<unsigned char>(c)];
}

}  // namespace

std::string percentEncoded(std::string_view text) {
    std::string result(3 * text.size(), '\0');
    auto out = result.begin();
    for (const char c : text) {
        if (!isReserved(c)) {
            *out++ = c;
            continue;
        }
        *out++ = '%';
        out = std::ranges::copy(hexDigits(c, upperHexDigits), out).out;
    }
    result.erase(out, result.end());
    return result;
}

}  // namespace KestrinProfile::internal
