#include "Confirmation.hpp"

#include <algorithm>
#include <array>
#include <string_view>
#include <unistd.h>

#include <fmt/format.h>

#include <internal/ASCII.hpp>

#include "ExitCode.hpp"

namespace KestrinProfileCLI {

namespace {

/// A line that a person types; what there is of it at the end of the input.
std::string answer(const Session& session) {
    std::string line;
    for (char next = 0;; line += next) {
        session.interruption().waitUntilReadable(STDIN_FILENO);
        const bool isEnd = read(STDIN_FILENO, &next, 1) != 1;
        if (isEnd) session.terminal.note("");  // Nobody has typed the end of the line.
        if (isEnd || next == '\n') return line;
    }
}

bool isYes(const std::string& text) {
    constexpr std::array<std::string_view, 5> forms{"y", "Y", "yes", "Yes", "YES"};
    return std::ranges::count(forms, KestrinInternal::trimmed(text, " \t\r")) > 0;
}

}  // namespace

void addConfirmation(CLI::App& command, bool& isConfirmed) {
    command.add_flag("--yes", isConfirmed, "Do not ask for confirmation");
}

void confirm(const Session& session, bool isConfirmed, const std::string& question) {
    if (isConfirmed || session.options.dryRun) return;
    if (!session.terminal.canAsk())
        throw CommandError(
            {ExitCode::usage,
             fmt::format("nobody can be asked whether to {}; nothing was done", question),
             "give --yes"});
    session.terminal.ask(question + "? [y/N] ");
    if (isYes(answer(session))) return;
    throw CommandError(
        {ExitCode::interrupted, "not confirmed; nothing was done", "answer with y, or give --yes"});
}

}  // namespace KestrinProfileCLI
