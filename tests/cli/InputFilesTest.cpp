#include <array>
#include <csignal>
#include <filesystem>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "CommandLineFixture.hpp"
#include "support/RawServer.hpp"
#include "support/Waiting.hpp"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using TestSupport::CommandLine;
using TestSupport::eventually;
using TestSupport::httpReply;
using TestSupport::Pipe;
using TestSupport::Program;
using TestSupport::RawConnection;
using TestSupport::RawServer;
using TestSupport::write;

/// Whether a process has a file open.
bool hasOpen(pid_t process, const std::filesystem::path& file) {
    std::error_code failed;
    const auto wanted = std::filesystem::weakly_canonical(file);
    const std::string all = "/proc/" + std::to_string(process) + "/fd";
    for (const auto& each : std::filesystem::directory_iterator(all, failed))
        if (std::filesystem::read_symlink(each, failed) == wanted) return true;
    return false;
}

class InputFiles : public CommandLine {
  protected:
    /// Adds what a file names, by the shell, in which "$client" is the program.
    Result addFrom(const std::string& script) { return runShell(script); }

    std::unique_ptr<Program> start(std::vector<std::string> arguments,
                                   const std::filesystem::path& input = "/dev/null") {
        arguments.insert(arguments.begin(), {"--config", configuration});
        return std::make_unique<Program>(words(std::move(arguments)), environment, input);
    }
};

TEST_F(InputFiles, AConfigurationThatIsNoRegularFileIsSaidAtOnce) {
    const std::string pipe = directory / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    struct Case {
        std::string file;
        const char* kind;
    };
    for (const Case& each : std::vector<Case>{{pipe, "a pipe"},
                                              {directory.path(), "a directory"},
                                              {"/dev/null", "a device"},
                                              {"/dev/zero", "a device"}}) {
        for (const auto& command : std::vector<std::vector<std::string>>{
                 {"watchlist", "list"}, {"config", "check"}, {"config", "show"}}) {
            auto arguments = command;
            arguments.insert(arguments.begin(), {"--config", each.file});
            const auto result = run(arguments);
            EXPECT_EQ(result.code, 2);
            EXPECT_THAT(result.output + result.errors,
                        AllOf(HasSubstr(each.file), HasSubstr(each.kind)));
        }
    }
}

TEST_F(InputFiles, ItemsComeThroughAnyPipe) {
    startService();
    const std::string pipe = directory / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string script :
         {"printf 'v1\\nv2\\n' | $client watchlist add --from -",
          "printf 'v1\\nv2\\n' | $client watchlist add --from /dev/fd/0",
          "printf 'v1\\nv2\\n' | $client watchlist add --from /dev/stdin"}) {
        const auto result = runShell(script);
        EXPECT_EQ(result.code, 0) << result.errors;
        EXPECT_EQ(result.output, "added 2 of 2 to the watch list\n") << script;
    }
    // Whoever writes may come late, and in pieces.
    const auto named = runShell("(printf v1; printf '\\nv2\\n') > " + pipe +
                                " & $client watchlist add --from " + pipe);
    EXPECT_EQ(named.output, "added 2 of 2 to the watch list\n") << named.errors;
}

TEST_F(InputFiles, ItemsComeFromASubstitutedProcess) {
    if (!std::filesystem::exists("/bin/bash")) GTEST_SKIP() << "no bash";
    startService();
    Program shell({"/bin/bash", "-c",
                   "exec " KESTRIN_CLIENT " --config " + configuration +
                       " watchlist add --from <(printf 'v1\\nv2\\n')"},
                  environment);
    EXPECT_EQ(shell.wait(), 0) << shell.errors();
    EXPECT_EQ(shell.output(), "added 2 of 2 to the watch list\n");
}

TEST_F(InputFiles, ThatAreNoFilesOfItemsAreSaidAtOnce) {
    startService();
    for (const std::string& file : {directory.path().string(), std::string("/dev/zero"),
                                    std::string(directory / "missing")}) {
        const auto result = runConfigured({"watchlist", "add", "--from", file});
        EXPECT_EQ(result.code, 2) << file;
        EXPECT_THAT(result.errors, HasSubstr("cannot read " + file));
    }
}

TEST_F(InputFiles, ASignalEndsTheWaitForAPipeThatNobodyWritesTo) {
    startService();
    for (const int signal : {SIGINT, SIGTERM}) {
        const std::string file = directory / ("pipe" + std::to_string(signal));
        ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
        const auto program = start({"watchlist", "add", "--from", file});
        ASSERT_TRUE(eventually([&] { return hasOpen(program->process(), file); }));
        program->signal(signal);
        EXPECT_EQ(program->wait(), 130);
    }
}

TEST_F(InputFiles, ASignalEndsTheWaitForTheRestOfAPipe) {
    startService();
    for (const int signal : {SIGINT, SIGTERM}) {
        const Pipe pipe(directory / ("pipe" + std::to_string(signal)));
        const auto named = start({"watchlist", "add", "--from", pipe.file()});
        pipe.write("v1\n");
        ASSERT_TRUE(pipe.isRead());
        named->signal(signal);
        EXPECT_EQ(named->wait(), 130);

        const auto standard = start({"watchlist", "add", "--from", "-"}, pipe.file());
        pipe.write("v1\n");
        ASSERT_TRUE(pipe.isRead());
        standard->signal(signal);
        EXPECT_EQ(standard->wait(), 130);
    }
}

TEST_F(InputFiles, TheSecondSignalEndsWhatTheFirstDoesNot) {
    if (UNDER_THREAD_SANITIZER)
        GTEST_SKIP() << "ThreadSanitizer waits for the output before an end at once";
    // Nobody reads what is printed, so the program is stuck in the middle of it.
    RawServer server([](RawConnection& connection) {
        std::string list = R"({"id":"watchlist","elements":[)";
        for (int entry = 0; entry < 20'000; ++entry)
            list += (entry > 0 ? R"(,{"id":"v")" : R"({"id":"v")") + std::string(R"(})");
        list += "]}";
        while (const auto request = connection.readRequest())
            connection.send(httpReply(
                200, request->starts_with("POST") ? R"({"profileId":"p","token":"t"})" : list));
    });
    write(configuration,
          R"({"version":1,"parentProfileID":"p","brand":"b","development":true,"services":{)"
          R"("personalization-bind-anonymous":{"method":"POST","url":")" +
              server.url("/bind") + R"("},"personalization-watchlist-get":{"url":")" +
              server.url("/list") + R"("}}})");
    const Pipe unread(directory / "unread");
    Program shell({"/bin/sh", "-c",
                   "echo $$; exec " KESTRIN_CLIENT " --config " + configuration +
                       " watchlist list > " + unread.file().string()},
                  environment);
    ASSERT_NE(shell.firstLine(), "");
    ASSERT_TRUE(server.awaitRequests(2));
    ASSERT_TRUE(eventually([&] { return unread.isFull(); }));
    shell.signal(SIGINT);
    shell.signal(SIGTERM);
    EXPECT_EQ(shell.wait(), 130);
}

}  // namespace
