#include <algorithm>
#include <array>
#include <iterator>

#include <unicode/uchar.h>
#include <unicode/uversion.h>

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

std::u32string caseFolded(std::u32string_view codePoints) {
    std::u32string result;
    std::ranges::transform(codePoints, std::back_inserter(result), [](char32_t codePoint) {
        return static_cast<char32_t>(
            u_foldCase(static_cast<UChar32>(codePoint), U_FOLD_CASE_DEFAULT));
    });
    return result;
}

std::string caseFoldingVersion() {
    UVersionInfo version{};
    u_getUnicodeVersion(version);
    std::array<char, U_MAX_VERSION_STRING_LENGTH> text{};
    u_versionToString(version, text.data());
    return text.data();
}

std::string excerptOf(std::string_view text, std::size_t limit) {
    std::size_t end = std::min(limit, text.size());
    while (end > 0 && end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
        --end;
    std::string excerpt = shown(text.substr(0, end));
    return end < text.size() ? excerpt + "…" : excerpt;
}

}  // namespace KestrinProfileServer
