#include <string>
#include <vector>

#include "CommandLineFixture.hpp"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using TestSupport::CommandLine;
using TestSupport::Program;
using TestSupport::write;

class SelfDescription : public CommandLine {
  protected:
    std::string outputOfProgram(std::vector<std::string> words) {
        Program program(std::move(words), environment);
        EXPECT_EQ(program.wait(), 0) << program.errors();
        EXPECT_THAT(program.errors(), IsEmpty());
        return program.output();
    }

    /// What bash offers for the last of these words.
    /// @param breaks  what bash takes words apart at, beside blanks
    std::string completed(const std::string& words, const std::string& breaks = "=") {
        const std::string script = directory / "completion.bash";
        write(script, run({"completion", "bash"}).output);
        return outputOfProgram({"/bin/bash", "-c",
                                "source " + script + "; COMP_WORDBREAKS='" + breaks +
                                    "'; COMP_WORDS=(kestrin-profile " + words +
                                    "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _kestrin_profile; "
                                    "printf '%s\\n' \"${COMPREPLY[@]}\""});
    }
};

/// All commands, as `--help` of the program and of its groups has them.
constexpr const char* commands[] = {"bind",
                                    "profiles list",
                                    "profiles create",
                                    "profiles edit",
                                    "profiles delete",
                                    "profiles validate",
                                    "history list",
                                    "history progress",
                                    "history add",
                                    "history remove",
                                    "history clear",
                                    "favorites list",
                                    "favorites add",
                                    "favorites add-many",
                                    "favorites remove",
                                    "favorites clear",
                                    "watchlist list",
                                    "watchlist add",
                                    "watchlist remove",
                                    "watchlist clear",
                                    "search add",
                                    "search delete",
                                    "config check",
                                    "config show",
                                    "completion bash",
                                    "completion zsh",
                                    "completion fish",
                                    "man"};

TEST_F(SelfDescription, BashTakesTheScriptAndItCompletesCommandsAndOptions) {
    const std::string script = directory / "completion.bash";
    write(script, run({"completion", "bash"}).output);
    outputOfProgram({"/bin/bash", "-n", script});
    EXPECT_EQ(completed("hist"), "history\n");
    EXPECT_EQ(completed("favorites add"), "add\nadd-many\n");
    EXPECT_EQ(completed("history add --pro"), "--progress\n--profile\n");
    EXPECT_EQ(completed("history add --jobs"), "--jobs\n");
    EXPECT_EQ(completed("--profile history watchlist cl"), "clear\n");
    EXPECT_EQ(completed("history --json li"), "list\n");
    EXPECT_EQ(completed("--brand x"), "\n");
}

TEST_F(SelfDescription, BashCompletesTheNamesOfFiles) {
    write(directory / "some-ids.txt", "");
    const std::string begin = directory / "some-";
    const std::string whole = directory / "some-ids.txt";
    EXPECT_EQ(completed("history remove --from " + begin), whole + "\n");
    EXPECT_EQ(completed("history remove --from = " + begin), whole + "\n");
    EXPECT_EQ(completed("--config = " + begin), whole + "\n");
    EXPECT_EQ(completed("--config=" + begin, ""), "--config=" + whole + "\n");
}

TEST_F(SelfDescription, BashTakesAValueAfterAnEqualsSignForOne) {
    for (const std::string equals : {" = ", "="}) {
        SCOPED_TRACE(equals);
        const std::string breaks = equals == "=" ? "" : "=";
        EXPECT_EQ(completed("--profile" + equals + "history watchlist cl", breaks), "clear\n");
        EXPECT_EQ(completed("--config" + equals + "a history li", breaks), "list\n");
        EXPECT_EQ(completed("history list --watch" + equals + "2 --ut", breaks), "--utc\n");
        EXPECT_EQ(completed("--brand" + equals + "h", breaks), "\n");
        EXPECT_EQ(completed("history list --watch" + equals + "h", breaks), "\n");
    }
    EXPECT_EQ(completed("--brand ="), "\n");
    EXPECT_EQ(completed("--watch ="), "\n");
}

TEST_F(SelfDescription, ZshAndFishGetEveryCommand) {
    const std::string zsh = run({"completion", "zsh"}).output;
    const std::string fish = run({"completion", "fish"}).output;
    EXPECT_THAT(zsh, testing::StartsWith("#compdef kestrin-profile\n"));
    for (const std::string command : commands) {
        EXPECT_THAT(zsh, HasSubstr("(' " + command + "')"));
        EXPECT_THAT(fish, HasSubstr("__kestrin_profile_at \\' " + command + "\\'"));
    }
    for (const auto& script : {zsh, fish})
        EXPECT_THAT(script, Not(testing::ContainsRegex("@[A-Z]+@")));
}

TEST_F(SelfDescription, ZshTakesTheScript) {
    if (!std::filesystem::exists("/usr/bin/zsh")) GTEST_SKIP() << "no zsh";
    const std::string script = directory / "_kestrin-profile";
    write(script, run({"completion", "zsh"}).output);
    outputOfProgram({"/usr/bin/zsh", "-n", script});
}

TEST_F(SelfDescription, FishTakesTheScript) {
    if (!std::filesystem::exists("/usr/bin/fish")) GTEST_SKIP() << "no fish";
    const std::string script = directory / "kestrin-profile.fish";
    write(script, run({"completion", "fish"}).output);
    outputOfProgram({"/usr/bin/fish", "--no-execute", script});
}

TEST_F(SelfDescription, FishCompletesCommandsOptionsAndFiles) {
    if (!std::filesystem::exists("/usr/bin/fish")) GTEST_SKIP() << "no fish";
    const std::string script = directory / "kestrin-profile.fish";
    write(script, run({"completion", "fish"}).output);
    write(directory / "some-ids.txt", "");
    const auto offered = [&](const std::string& line) {
        return outputOfProgram({"/usr/bin/fish", "--no-config", "-c",
                                "source " + script + "; complete -C 'kestrin-profile " + line +
                                    "' | string split -f 1 \\t; true"});
    };
    EXPECT_EQ(offered("hist"), "history\n");
    EXPECT_EQ(offered("favorites add"), "add\nadd-many\n");
    EXPECT_EQ(offered("--profile history watchlist cl"), "clear\n");
    EXPECT_EQ(offered("history add --pro"), "--profile\n--progress\n");
    EXPECT_EQ(offered("watchlist add --from " + std::string(directory / "some-")),
              std::string(directory / "some-ids.txt") + "\n");
}

TEST_F(SelfDescription, TheManPageHasEveryCommandAndSection) {
    const std::string page = run({"man"}).output;
    EXPECT_THAT(page, testing::StartsWith(".TH KESTRIN\\-PROFILE 1 "));
    for (const auto* const title :
         {"NAME", "SYNOPSIS", "OPTIONS", "COMMANDS", "EXIT STATUS", "FILES", "ENVIRONMENT"})
        EXPECT_THAT(page, HasSubstr("\n.SH " + std::string(title) + "\n"));
    for (std::string command : commands) {
        if (const auto dash = command.find('-'); dash != std::string::npos)
            command.insert(dash, "\\");
        EXPECT_THAT(page, HasSubstr("\n.SS \\fB" + command + "\\fR"));
    }
    EXPECT_THAT(page, AllOf(HasSubstr("[\\fIVIDEO_ID\\fR...]"), HasSubstr("NO_COLOR")));
}

TEST_F(SelfDescription, TheManPageIsRenderedWithoutAWarning) {
    if (!std::filesystem::exists("/usr/bin/groff")) GTEST_SKIP() << "no groff";
    const std::string page = directory / "kestrin-profile.1";
    write(page, run({"man"}).output);
    const std::string text =
        outputOfProgram({"/usr/bin/groff", "-man", "-Tascii", "-ww", "-P-cbou", page});
    EXPECT_THAT(text, AllOf(HasSubstr("history add"), HasSubstr("--dry-run"), HasSubstr("130")));
}

TEST_F(SelfDescription, HelpSaysTheSameAsTheManPage) {
    const std::string page = run({"man"}).output;
    const std::string help = run({"history", "add", "--help"}).output;
    for (const auto* const text : {"How far they were watched", "They were watched to the end"}) {
        EXPECT_THAT(help, HasSubstr(text));
        EXPECT_THAT(page, HasSubstr(text));
    }
}

}  // namespace
