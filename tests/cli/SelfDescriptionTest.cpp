#include <algorithm>
#include <iterator>
#include <regex>
#include <sstream>
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
                                    "outbox list",
                                    "outbox send",
                                    "outbox drop",
                                    "unbind",
                                    "doctor",
                                    "api",
                                    "help",
                                    "service status",
                                    "service configuration",
                                    "service households",
                                    "service profile",
                                    "service reset",
                                    "service block",
                                    "service unblock",
                                    "service token",
                                    "service state show",
                                    "service state replace",
                                    "service state add",
                                    "service scenarios list",
                                    "service scenarios apply",
                                    "service faults list",
                                    "service faults add",
                                    "service faults clear",
                                    "service journal list",
                                    "service journal show",
                                    "service journal count",
                                    "service journal verify",
                                    "service journal wait",
                                    "service journal export",
                                    "service journal clear",
                                    "service snapshots list",
                                    "service snapshots take",
                                    "service snapshots restore",
                                    "service snapshots delete",
                                    "service clock show",
                                    "service clock set",
                                    "service clock freeze",
                                    "service clock run",
                                    "service clock advance",
                                    "service namespaces list",
                                    "service namespaces add",
                                    "service namespaces delete",
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

TEST_F(SelfDescription, TheNamesOfProfilesComeFromTheService) {
    startService();
    outputOf({"profiles", "create", "Anna"});
    outputOf({"profiles", "create", "Anna B"});
    // As long as it takes: how quick the machine is does not matter here.
    environment["KESTRIN_PROFILE_COMPLETION_SECONDS"] = "3600";
    const std::string script = directory / "completion.bash";
    write(script, run({"completion", "bash"}).output);
    const auto offered = [&](const std::string& words) {
        return outputOfProgram({"/bin/bash", "-c",
                                "source " + script +
                                    "; kestrin-profile() { " KESTRIN_CLIENT " \"$@\"; }; " +
                                    "COMP_WORDBREAKS='='; COMP_WORDS=(kestrin-profile " + words +
                                    "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _kestrin_profile; "
                                    "printf '%s\\n' \"${COMPREPLY[@]}\""});
    };
    const std::string begin = "--config " + configuration + " ";
    EXPECT_EQ(offered(begin + "--profile A"), "Anna\nAnna\\ B\n");
    EXPECT_EQ(offered(begin + "--profile = P"), "Parent\n");
    EXPECT_EQ(offered("--config = " + configuration + " profiles edit P"), "Parent\n");
    EXPECT_EQ(offered(begin + "bind Anna"), "Anna\nAnna\\ B\n");
    EXPECT_EQ(offered(begin + "bind --ne"), "--new\n");
    EXPECT_EQ(offered("--profile A"), "\n") << "no configuration, no name and no word of it";
    environment["KESTRIN_PROFILE_COMPLETION_SECONDS"] = "0";
    EXPECT_EQ(offered(begin + "--profile A"), "\n") << "nobody is asked";
}

TEST_F(SelfDescription, TheNamesOfProfilesAreSilentAboutAServiceThatIsAway) {
    startService();
    service.reset();
    const auto result = runConfigured({"completion", "profiles"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.output + result.errors, "");
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

/// What `--help` of a command prints.
class HelpPage : public SelfDescription {
  protected:
    std::string pageOf(const std::string& command) {
        std::istringstream words(command + " --help");
        std::vector<std::string> arguments{std::istream_iterator<std::string>(words), {}};
        const auto result = run(std::move(arguments));
        EXPECT_EQ(result.code, 0) << result.errors;
        return result.output;
    }

    static std::vector<std::string> linesOf(const std::string& text) {
        std::istringstream stream(text);
        std::vector<std::string> lines;
        for (std::string line; std::getline(stream, line);)
            lines.push_back(line);
        return lines;
    }

    /// The lines of the examples of a page.
    static std::vector<std::string> examplesIn(const std::string& page) {
        const auto lines = linesOf(page);
        auto line = std::ranges::find(lines, "Examples:");
        std::vector<std::string> examples;
        while (line != lines.end() && ++line != lines.end() && line->starts_with("  "))
            examples.push_back(line->substr(2));
        return examples;
    }
};

TEST_F(HelpPage, OfEveryCommandFitsEightyColumnsAndHasExamples) {
    std::vector<std::string> all{"",
                                 "profiles",
                                 "history",
                                 "favorites",
                                 "watchlist",
                                 "search",
                                 "outbox",
                                 "config",
                                 "completion",
                                 "service",
                                 "service state",
                                 "service scenarios",
                                 "service faults",
                                 "service journal",
                                 "service snapshots",
                                 "service clock",
                                 "service namespaces"};
    all.insert(all.end(), std::begin(commands), std::end(commands));
    for (const auto& command : all) {
        SCOPED_TRACE(command);
        const std::string page = pageOf(command);
        for (const auto& line : linesOf(page)) {
            const auto columns =
                std::ranges::count_if(line, [](unsigned char c) { return (c & 0xC0U) != 0x80U; });
            EXPECT_LE(columns, 80) << line;
        }
        EXPECT_THAT(examplesIn(page),
                    testing::SizeIs(testing::AllOf(testing::Ge(2U), testing::Le(3U))));
    }
}

TEST_F(HelpPage, HasExamplesThatAreAccepted) {
    startService();
    write(directory / "ids.txt", "v1\nv2\n");
    write(directory / "seed.json", R"({"households":[]})");
    write(directory / "faults.json", R"({"faults":[]})");
    environment["KESTRIN_PROFILE_CONFIG"] = configuration;
    for (const std::string command : commands)
        for (const auto& example : examplesIn(pageOf(command))) {
            if (!example.starts_with("kestrin-profile ")) continue;
            if (example.find_first_of("|<>") != std::string::npos) continue;
            Program shell(
                {"/bin/bash", "-c",
                 "cd " + std::string(directory.path()) +
                     "; kestrin-profile() { " KESTRIN_CLIENT " --dry-run \"$@\"; }; " + example},
                environment);
            const int code = shell.wait();
            EXPECT_NE(code, 2) << example << "\n" << shell.errors();
        }
}

TEST_F(HelpPage, ShowsTheOptionsOfTheProgramThatMeanSomethingToTheCommand) {
    EXPECT_THAT(pageOf("history list"),
                AllOf(HasSubstr("\nGlobal options:\n"), HasSubstr("--brand ID"),
                      HasSubstr("$KESTRIN_PROFILE_BRAND")));
    EXPECT_THAT(pageOf("profiles create"),
                AllOf(HasSubstr("--profile PROFILE"), Not(HasSubstr("--brand"))));
    EXPECT_THAT(pageOf("config check"), AllOf(HasSubstr("--config FILE"), Not(HasSubstr("--retry")),
                                              Not(HasSubstr("--profile"))));
    EXPECT_THAT(pageOf("man"), Not(HasSubstr("--config FILE")));
    for (const auto* const option : {"--version", "--brand", "--no-retry", "--dry-run"})
        EXPECT_THAT(pageOf(""), HasSubstr(option));
}

TEST_F(HelpPage, HasNoOptionThatTheDocumentationDoesNotName) {
    const std::string documentation = TestSupport::contentOf(KESTRIN_SOURCE "/docs/cli.md");
    const std::regex option("--[a-z][a-z-]+");
    for (const std::string command : commands) {
        const std::string page = pageOf(command);
        EXPECT_THAT(documentation, HasSubstr(command.substr(0, command.find(' ')))) << command;
        for (std::sregex_iterator each(page.begin(), page.end(), option), end; each != end; ++each)
            EXPECT_THAT(documentation, HasSubstr(each->str())) << command;
    }
}

TEST_F(HelpPage, LeavesWhatIsLongToTheManPage) {
    EXPECT_THAT(pageOf(""),
                AllOf(Not(HasSubstr("130")), HasSubstr("kestrin-profile man | man -l -")));
    EXPECT_THAT(run({"man"}).output, AllOf(HasSubstr("130"), HasSubstr("KESTRIN_PROFILE_CONFIG"),
                                           HasSubstr("\nkestrin\\-profile history add v1")));
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
