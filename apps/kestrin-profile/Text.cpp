#include "Text.hpp"

#include <algorithm>
#include <array>

#include <fmt/format.h>

#include <internal/Display.hpp>
#include <internal/UTF8.hpp>

namespace KestrinProfileCLI {

using KestrinInternal::firstUTF8Character;
using KestrinInternal::UTF8Character;

namespace {

struct Range {
    char32_t first;
    char32_t last;
};

/// What is put on top of the character before it.
constexpr std::array combining{Range{0x300, 0x36F},   Range{0x483, 0x489},   Range{0x591, 0x5BD},
                               Range{0x610, 0x61A},   Range{0x64B, 0x65F},   Range{0x200B, 0x200D},
                               Range{0x20D0, 0x20F0}, Range{0xFE00, 0xFE0F}, Range{0xFE20, 0xFE2F}};

/// What takes two columns (Unicode Standard Annex 11, in whole blocks).
constexpr std::array wide{
    Range{0x1100, 0x115F},   Range{0x2E80, 0x303E},   Range{0x3041, 0xA4CF},
    Range{0xAC00, 0xD7A3},   Range{0xF900, 0xFAFF},   Range{0xFE30, 0xFE6F},
    Range{0xFF00, 0xFF60},   Range{0xFFE0, 0xFFE6},   Range{0x1F300, 0x1F64F},
    Range{0x1F680, 0x1F6FF}, Range{0x1F900, 0x1F9FF}, Range{0x20000, 0x3FFFD}};

template <std::size_t Count>
bool isIn(const std::array<Range, Count>& ranges, char32_t character) noexcept {
    return std::ranges::any_of(ranges, [character](const Range& range) {
        return character >= range.first && character <= range.last;
    });
}

bool isShown(const UTF8Character& character) noexcept {
    return character.value && KestrinInternal::isShown(*character.value);
}

std::size_t columnsOf(const UTF8Character& character) noexcept {
    if (!character.value) return 1;
    if (isIn(combining, *character.value)) return 0;
    return isIn(wide, *character.value) ? 2 : 1;
}

constexpr std::string_view colourBegin = "\x1b[";
constexpr const char* noColour = "\x1b[0m";

/// How many bytes a colour at the beginning of the text has; 0 if there is none.
std::size_t colourBytes(std::string_view text) noexcept {
    if (!text.starts_with(colourBegin)) return 0;
    const std::size_t end = text.find('m');
    return end == std::string_view::npos ? 0 : end + 1;
}

/// A character or a colour.
struct Piece {
    std::size_t bytes;
    std::size_t columns;
};

/// What a text begins with.
Piece pieceOf(std::string_view text) noexcept {
    if (const std::size_t colour = colourBytes(text); colour > 0) return {colour, 0};
    const UTF8Character character = firstUTF8Character(text);
    return {character.bytes, columnsOf(character)};
}

/// The text with what is not shown replaced.
template <class Replacement>
std::string filtered(std::string_view text, Replacement replacement) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const UTF8Character character = firstUTF8Character(text);
        if (isShown(character))
            result += text.substr(0, character.bytes);
        else
            result += replacement(character);
        text.remove_prefix(character.bytes);
    }
    return result;
}

}  // namespace

std::size_t columnsOf(std::string_view text) noexcept {
    std::size_t columns = 0;
    for (; !text.empty(); text.remove_prefix(pieceOf(text).bytes))
        columns += pieceOf(text).columns;
    return columns;
}

std::string shortened(std::string_view text, std::size_t columns) {
    if (columnsOf(text) <= columns) return std::string(text);
    std::size_t left = columns - 1;
    std::size_t bytes = 0;
    for (Piece next = pieceOf(text); next.columns <= left; next = pieceOf(text.substr(bytes))) {
        left -= next.columns;
        bytes += next.bytes;
    }
    const std::string_view kept = text.substr(0, bytes);
    return std::string(kept) + "…" + (kept.find(colourBegin) == kept.npos ? "" : noColour);
}

std::string printable(std::string_view text) {
    return filtered(text, [](const UTF8Character&) { return std::string("?"); });
}

std::string printableJSON(std::string_view json) {
    return filtered(json, [](const UTF8Character& character) {
        return character.value ? KestrinInternal::escapeOf(*character.value) : std::string("?");
    });
}

std::string padded(std::string text, std::size_t columns) {
    const std::size_t taken = columnsOf(text);
    if (taken < columns) text.append(columns - taken, ' ');
    return text;
}

std::vector<std::string> wrapped(std::string_view text, std::size_t columns) {
    std::vector<std::string> lines(1);
    while (!text.empty()) {
        const std::string_view word = text.substr(0, text.find(' '));
        text.remove_prefix(std::min(text.size(), word.size() + 1));
        std::string& line = lines.back();
        if (line.empty())
            line = word;
        else if (columnsOf(line) + 1 + columnsOf(word) <= columns)
            line.append(" ").append(word);
        else
            lines.emplace_back(word);
    }
    return lines;
}

std::string countOf(std::size_t count, std::string_view one, std::string_view many) {
    return fmt::format("{} {}", count, count == 1 ? one : many);
}

std::string joined(const std::vector<std::string>& texts, std::string_view separator) {
    return fmt::format("{}", fmt::join(texts, separator));
}

std::string replaced(std::string text, std::string_view part, std::string_view replacement) {
    for (std::size_t at = text.find(part); at != std::string::npos;
         at = text.find(part, at + replacement.size()))
        text.replace(at, part.size(), replacement);
    return text;
}

}  // namespace KestrinProfileCLI
