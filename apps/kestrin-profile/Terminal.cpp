#include "Terminal.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace KestrinProfileCLI {

namespace {

/// Whether a stream goes to a terminal that can do more than print.
bool isCapable(int stream) {
    const char* const kind = std::getenv("TERM");
    return isatty(stream) == 1 && (kind == nullptr || std::string_view(kind) != "dumb");
}

bool hasColours(int stream) {
    const char* const refused = std::getenv("NO_COLOR");
    return isCapable(stream) && (refused == nullptr || *refused == '\0');
}

std::string coloured(bool colours, Style style, std::string_view text) {
    static constexpr std::array<const char*, 5> codes{"", "1", "32", "31", "2"};
    if (!colours || style == Style::plain) return std::string(text);
    return std::string("\x1b[") + codes.at(static_cast<std::size_t>(style)) + "m" +
           std::string(text) + "\x1b[0m";
}

/// Writes a text. Whether all could be written is asked once, at the end: `Terminal::flush`.
void put(std::FILE* stream, std::string_view text) {
    if (text.empty()) return;  // Its data() may be null, which fwrite does not take.
    static_cast<void>(std::fwrite(text.data(), 1, text.size(), stream));
}

void print(std::FILE* stream, std::string_view text) {
    put(stream, text);
    put(stream, "\n");
}

struct TerminalSize {
    std::size_t lines = 24;
    std::size_t columns = 80;
};

/// The size that a stream's terminal reports; the usual one if it reports none.
TerminalSize terminalSize(int stream) {
    winsize size{};
    TerminalSize result;
    if (ioctl(stream, TIOCGWINSZ, &size) != 0) return result;
    if (size.ws_row > 0) result.lines = size.ws_row;
    if (size.ws_col > 0) result.columns = size.ws_col;
    return result;
}

constexpr std::string_view wholeScreen = "\x1b[H\x1b[2J";
constexpr std::string_view thisLine = "\r\x1b[K";

}  // namespace

Terminal::Terminal()
    : inIsTerminal_(isatty(STDIN_FILENO) == 1),
      outIsCapable_(isCapable(STDOUT_FILENO)),
      errIsTerminal_(isatty(STDERR_FILENO) == 1),
      errIsCapable_(isCapable(STDERR_FILENO)),
      outHasColours_(hasColours(STDOUT_FILENO)),
      errHasColours_(hasColours(STDERR_FILENO)) {}

void Terminal::hide(std::string secret) {
    constexpr std::size_t shortest = 8;
    if (secret.size() < shortest) return;
    secrets_.lock()->insert(std::move(secret));
}

std::string Terminal::withoutSecrets(std::string_view text) const {
    std::string result(text);
    const auto secrets = secrets_.lock();
    for (const auto& secret : *secrets)
        result = replaced(std::move(result), secret, "***");
    return result;
}

void Terminal::line(std::string_view text) const {
    print(stdout, withoutSecrets(text));
}

void Terminal::json(const HalvardSling::JSONDictionary& document) const {
    line(printableJSON(document.toJSON()));
}

void Terminal::redraw(const std::vector<std::string>& lines) const {
    const auto [height, width] = terminalSize(STDOUT_FILENO);
    const std::size_t room = std::max<std::size_t>(height, 3) - 1;
    const bool all = lines.size() <= room;
    put(stdout, wholeScreen);
    for (std::size_t index = 0; index < (all ? lines.size() : room - 1); ++index)
        line(shortened(lines[index], width));
    if (!all) line(styled(Style::faint, std::to_string(lines.size() - room + 1) + " more lines"));
    static_cast<void>(flush());
}

bool Terminal::flush() const {
    return std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
}

void Terminal::progress(std::string_view text) const {
    if (!errIsCapable_) return;
    put(stderr, thisLine);
    put(stderr, shortened(text, terminalSize(STDERR_FILENO).columns));
}

void Terminal::note(std::string_view text) const {
    print(stderr, withoutSecrets(text));
}

void Terminal::ask(std::string_view question) const {
    put(stderr, printable(question));
}

void Terminal::failure(std::string_view message, std::string_view advice) const {
    note(coloured(errHasColours_, Style::bad, "error: ") + printable(message));
    if (!advice.empty()) note("  " + std::string(advice));
}

std::string Terminal::styled(Style style, std::string_view text) const {
    return coloured(outHasColours_, style, text);
}

void Terminal::table(const std::vector<std::string>& heading,
                     const std::vector<std::vector<std::string>>& rows) const {
    for (const auto& each : tableLines(heading, rows))
        line(each);
}

std::vector<std::string> Terminal::tableLines(
    const std::vector<std::string>& heading,
    const std::vector<std::vector<std::string>>& rows) const {
    std::vector<std::size_t> widths(heading.size());
    std::ranges::transform(heading, widths.begin(), columnsOf);
    for (const auto& row : rows)
        for (std::size_t column = 0; column < row.size(); ++column)
            widths[column] = std::max(widths[column], columnsOf(row[column]));

    const auto text = [&](const std::vector<std::string>& row) {
        std::string whole;
        for (std::size_t column = 0; column < row.size(); ++column)
            whole += padded(row[column], widths[column]) + "  ";
        return whole.erase(whole.find_last_not_of(' ') + 1);
    };
    std::vector<std::string> lines{styled(Style::strong, text(heading))};
    for (const auto& row : rows)
        lines.push_back(text(row));
    return lines;
}

}  // namespace KestrinProfileCLI
