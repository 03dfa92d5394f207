#include "Terminal.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace KestrinProfileCLI {

namespace {

bool isTerminal(std::FILE* stream) {
    return isatty(fileno(stream)) == 1;
}

/// Whether a stream goes to a terminal that can do more than print.
bool isCapable(std::FILE* stream) {
    const char* const kind = std::getenv("TERM");
    return isTerminal(stream) && (kind == nullptr || std::string_view(kind) != "dumb");
}

bool hasColours(std::FILE* stream) {
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
TerminalSize terminalSize(std::FILE* stream) {
    winsize size{};
    TerminalSize result;
    if (ioctl(fileno(stream), TIOCGWINSZ, &size) != 0) return result;
    if (size.ws_row > 0) result.lines = size.ws_row;
    if (size.ws_col > 0) result.columns = size.ws_col;
    return result;
}

/// What stands between the columns of a table.
constexpr std::string_view gap = "  ";

/// Shortens the widest columns of a table until it takes no more than the room there is, or they
/// hold next to nothing.
void fit(std::vector<std::size_t>& widths, std::size_t room) {
    constexpr std::size_t least = 4;
    const auto taken = [&] {
        return std::accumulate(widths.begin(), widths.end(), std::size_t{0}) +
               gap.size() * (widths.size() - 1);
    };
    for (auto& width : widths)
        width = std::min(width, std::max(room, least));
    while (!widths.empty() && taken() > room) {
        auto& widest = *std::ranges::max_element(widths);
        if (widest <= least) return;
        --widest;
    }
}

constexpr std::string_view wholeScreen = "\x1b[H\x1b[2J";
constexpr std::string_view thisLine = "\r\x1b[K";

}  // namespace

Terminal::Terminal(std::FILE* results, std::FILE* messages)
    : out_(results),
      err_(messages),
      inIsTerminal_(isatty(STDIN_FILENO) == 1),
      outIsTerminal_(isTerminal(results)),
      outIsCapable_(isCapable(results)),
      errIsTerminal_(isTerminal(messages)),
      errIsCapable_(isCapable(messages)),
      outHasColours_(hasColours(results)),
      errHasColours_(hasColours(messages)) {}

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
    print(out_, withoutSecrets(text));
}

void Terminal::verbatim(std::string_view text) const {
    put(out_, text);
}

void Terminal::json(const HalvardSling::JSONDictionary& document) const {
    line(printableJSON(document.toJSON()));
}

void Terminal::redraw(const std::vector<std::string>& lines) const {
    const auto [height, width] = terminalSize(out_);
    const std::size_t room = std::max<std::size_t>(height, 3) - 1;
    const bool all = lines.size() <= room;
    put(out_, wholeScreen);
    for (std::size_t index = 0; index < (all ? lines.size() : room - 1); ++index)
        line(shortened(lines[index], width));
    if (!all) line(styled(Style::faint, std::to_string(lines.size() - room + 1) + " more lines"));
    static_cast<void>(flush());
}

bool Terminal::flush() const {
    return std::fflush(out_) == 0 && std::ferror(out_) == 0;
}

void Terminal::progress(std::string_view text) const {
    if (!errIsCapable_) return;
    put(err_, thisLine);
    put(err_, shortened(text, terminalSize(err_).columns));
}

void Terminal::note(std::string_view text) const {
    print(err_, withoutSecrets(text));
}

void Terminal::noteJSON(const HalvardSling::JSONDictionary& document) const {
    note(printableJSON(document.toJSON()));
}

void Terminal::ask(std::string_view question) const {
    put(err_, printable(question));
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
    if (outIsTerminal_) fit(widths, terminalSize(out_).columns);

    const auto text = [&](const std::vector<std::string>& row) {
        std::string whole;
        for (std::size_t column = 0; column < row.size(); ++column)
            whole.append(padded(shortened(row[column], widths[column]), widths[column]))
                .append(gap);
        return whole.erase(whole.find_last_not_of(' ') + 1);
    };
    std::vector<std::string> lines{styled(Style::strong, text(heading))};
    for (const auto& row : rows)
        lines.push_back(text(row));
    return lines;
}

}  // namespace KestrinProfileCLI
