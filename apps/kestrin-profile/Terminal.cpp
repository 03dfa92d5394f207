#include "Terminal.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

#include <unistd.h>

namespace KestrinProfileCLI {

namespace {

bool hasColours(int stream) {
    const char* const refused = std::getenv("NO_COLOR");
    const char* const kind = std::getenv("TERM");
    return isatty(stream) == 1 && (refused == nullptr || *refused == '\0') &&
           (kind == nullptr || std::string_view(kind) != "dumb");
}

std::string coloured(bool colours, Mark mark, std::string_view text) {
    static constexpr std::array<const char*, 5> codes{"", "1", "32", "31", "2"};
    if (!colours || mark == Mark::plain) return std::string(text);
    return std::string("\x1b[") + codes.at(static_cast<std::size_t>(mark)) + "m" +
           std::string(text) + "\x1b[0m";
}

void print(std::FILE* stream, std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stream);
    std::fputc('\n', stream);
}

}  // namespace

Terminal::Terminal()
    : outHasColours_(hasColours(STDOUT_FILENO)), errHasColours_(hasColours(STDERR_FILENO)) {}

void Terminal::line(std::string_view text) const { print(stdout, text); }

void Terminal::note(std::string_view text) const { print(stderr, text); }

void Terminal::failure(std::string_view message, std::string_view advice) const {
    note(coloured(errHasColours_, Mark::bad, "error: ") + printable(message));
    if (!advice.empty()) note("  " + std::string(advice));
}

std::string Terminal::marked(Mark mark, std::string_view text) const {
    return coloured(outHasColours_, mark, text);
}

void Terminal::table(const std::vector<std::string>& heading,
                     const std::vector<std::vector<std::string>>& rows) const {
    std::vector<std::size_t> widths;
    for (const auto& cell : heading) widths.push_back(columnsOf(cell));
    for (const auto& row : rows)
        for (std::size_t column = 0; column < row.size(); ++column)
            widths[column] = std::max(widths[column], columnsOf(row[column]));

    const auto text = [&](const std::vector<std::string>& row) {
        std::string whole;
        for (std::size_t column = 0; column < row.size(); ++column) {
            whole += row[column];
            if (column + 1 < row.size())
                whole.append(widths[column] - columnsOf(row[column]) + 2, ' ');
        }
        return whole;
    };
    line(marked(Mark::strong, text(heading)));
    for (const auto& row : rows) line(text(row));
}

std::size_t columnsOf(std::string_view text) noexcept {
    return static_cast<std::size_t>(std::ranges::count_if(
        text, [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string printable(std::string_view text) {
    std::string shown(text);
    std::ranges::replace_if(
        shown, [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }, '?');
    return shown;
}

}  // namespace KestrinProfileCLI
