#include <algorithm>
#include <array>
#include <iterator>

#include <internal/Display.hpp>
#include <internal/UTF8.hpp>
#include <kestrin-profile-server/domain/Text.hpp>

namespace KestrinProfileServer {
namespace {

/// The white space that is trimmed, beside the control characters.
constexpr std::array<char32_t, 18> spaces{
    0x20,   0xA0,   0x1680, 0x2000, 0x2001, 0x2002, 0x2003, 0x2004, 0x2005,
    0x2006, 0x2007, 0x2008, 0x2009, 0x200A, 0x2028, 0x2029, 0x202F, 0x205F,
};

bool isSpace(char32_t codePoint) {
    return (codePoint >= 0x09 && codePoint <= 0x0D) || codePoint == 0x85 || codePoint == 0x3000 ||
           std::ranges::find(spaces, codePoint) != spaces.end();
}

/// Every `step`th code point from `first` to `last` is a capital; its small letter is `distance`
/// further on.
struct Capitals {
    char32_t first;
    char32_t last;
    char32_t step;
    int distance;
};

constexpr std::array<Capitals, 24> capitals{{
    {0x41, 0x5A, 1, 32},   {0xC0, 0xD6, 1, 32},    {0xD8, 0xDE, 1, 32},    {0x100, 0x12E, 2, 1},
    {0x132, 0x136, 2, 1},  {0x139, 0x147, 2, 1},   {0x14A, 0x176, 2, 1},   {0x178, 0x178, 1, -121},
    {0x179, 0x17D, 2, 1},  {0x386, 0x386, 1, 38},  {0x388, 0x38A, 1, 37},  {0x38C, 0x38C, 1, 64},
    {0x38E, 0x38F, 1, 63}, {0x391, 0x3A1, 1, 32},  {0x3A3, 0x3AB, 1, 32},  {0x400, 0x40F, 1, 80},
    {0x410, 0x42F, 1, 32}, {0x460, 0x480, 2, 1},   {0x48A, 0x4BE, 2, 1},   {0x4C1, 0x4CD, 2, 1},
    {0x4D0, 0x52E, 2, 1},  {0x1E00, 0x1E94, 2, 1}, {0x1EA0, 0x1EFE, 2, 1}, {0x531, 0x556, 1, 48},
}};

char32_t lowerCased(char32_t codePoint) {
    const auto range = std::ranges::find_if(capitals, [codePoint](const Capitals& each) {
        return codePoint >= each.first && codePoint <= each.last &&
               (codePoint - each.first) % each.step == 0;
    });
    if (range == capitals.end()) return codePoint;
    return static_cast<char32_t>(static_cast<int>(codePoint) + range->distance);
}

/// The text with what a terminal does not show escaped, and without the bytes that are no UTF-8.
std::string shown(std::string_view text) {
    const bool isUTF8 = KestrinInternal::isUTF8(text);
    std::string result;
    while (!text.empty()) {
        const auto first = KestrinInternal::firstUTF8Character(text);
        if (!first.value || (!isUTF8 && *first.value >= 0x80))
            result.append(first.bytes, '?');
        else if (KestrinInternal::isShown(*first.value))
            result += text.substr(0, first.bytes);
        else
            result += KestrinInternal::escapeOf(*first.value);
        text.remove_prefix(first.bytes);
    }
    return result;
}

}  // namespace

std::u32string codePointsOf(std::string_view text) {
    std::u32string codePoints;
    while (!text.empty()) {
        const auto first = KestrinInternal::firstUTF8Character(text);
        if (!first.value) break;
        codePoints.push_back(*first.value);
        text.remove_prefix(first.bytes);
    }
    return codePoints;
}

std::string toUTF8(std::u32string_view codePoints) {
    std::string text;
    for (const char32_t codePoint : codePoints)
        KestrinInternal::appendUTF8(text, codePoint);
    return text;
}

bool isControl(char32_t codePoint) {
    return codePoint < 0x20 || (codePoint >= 0x7F && codePoint <= 0x9F);
}

std::u32string trimmed(std::u32string_view codePoints) {
    while (!codePoints.empty() && isSpace(codePoints.front()))
        codePoints.remove_prefix(1);
    while (!codePoints.empty() && isSpace(codePoints.back()))
        codePoints.remove_suffix(1);
    return std::u32string(codePoints);
}

std::u32string lowerCased(std::u32string_view codePoints) {
    std::u32string result;
    std::ranges::transform(codePoints, std::back_inserter(result),
                           [](char32_t codePoint) { return lowerCased(codePoint); });
    return result;
}

std::string excerptOf(std::string_view text, std::size_t limit) {
    std::size_t end = std::min(limit, text.size());
    while (end > 0 && end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
        --end;
    std::string excerpt = shown(text.substr(0, end));
    return end < text.size() ? excerpt + "…" : excerpt;
}

}  // namespace KestrinProfileServer
