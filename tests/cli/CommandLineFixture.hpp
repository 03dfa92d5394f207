#pragma once

#include <csignal>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "support/Program.hpp"

namespace TestSupport {

/// The program, with a home directory of its own and, where a test starts it, the service.
class CommandLine : public testing::Test {
  protected:
    struct Result {
        int code;
        std::string output;
        std::string errors;
    };

    /// Runs the program to its end.
    Result run(std::vector<std::string> arguments) {
        Program program(words(std::move(arguments)), environment);
        const int code = program.wait();
        return {code, program.output(), program.errors()};
    }

    /// Runs the program with the service's configuration.
    Result runConfigured(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"--config", configuration});
        return run(std::move(arguments));
    }

    /// The same for what has to succeed.
    /// @return its output
    std::string outputOf(std::vector<std::string> arguments) {
        const auto result = runConfigured(std::move(arguments));
        EXPECT_EQ(result.code, 0) << result.errors;
        return result.output;
    }

    /// Runs a script of the shell, to which "$client" is the program with the service's
    /// configuration.
    Result runShell(const std::string& script) {
        Program shell({"/bin/sh", "-c",
                       "client='" KESTRIN_CLIENT " --config " + configuration + "'; " + script},
                      environment);
        const int code = shell.wait();
        return {code, shell.output(), shell.errors()};
    }

    /// Runs the program on a terminal, which both its outputs go to.
    /// @param typed  what is typed there, in the form of printf; then the input ends
    Result runOnTerminal(const std::string& arguments, const std::string& typed = "") {
        return runShell("printf '" + typed + "' | script -qec \"$client " + arguments +
                        "\" /dev/null");
    }

    /// Runs the program on a terminal, and interrupts it there.
    /// @param shown     the interruption comes once the terminal has shown this
    /// @param prepared  commands of the shell that come first
    Result interruptedOnTerminal(const std::string& arguments, const std::string& shown,
                                 const std::string& prepared = "") {
        const Pipe keyboard(directory / "keyboard");
        Program program(
            {"/usr/bin/script", "-qec",
             prepared + "exec " KESTRIN_CLIENT " --config " + configuration + " " + arguments,
             "/dev/null"},
            environment, keyboard.file());
        static_cast<void>(program.awaitOutput(shown));
        keyboard.write("\x03");
        const int code = program.wait();
        return {code, program.output(), program.errors()};
    }

    void startService(const std::vector<std::string>& more = {}) {
        std::vector<std::string> all{KESTRIN_SERVER, "--port",         "0",
                                     "--database",   directory / "db", "--write-config",
                                     configuration,  "--quiet"};
        all.insert(all.end(), more.begin(), more.end());
        service = std::make_unique<Program>(all);
        ASSERT_THAT(service->firstLine(), testing::HasSubstr("ready")) << service->errors();
    }

    /// Configures binds and additions to the watch list alone, for a server of the test's own.
    void configureWatchList(const std::string& baseURL) const {
        write(configuration,
              R"({"version":1,"parentProfileID":"p","brand":"b","development":true,"services":{)"
              R"("personalization-bind-anonymous":{"method":"POST","url":")" +
                  baseURL +
                  R"(/bind"},"personalization-watchlist-add-video":{"method":"PUT","url":")" +
                  baseURL + R"(/?%VIDEO%"}}})");
    }

    /// Where the binds are kept.
    [[nodiscard]] std::filesystem::path bindFile() const { return stateFile("binds"); }

    /// Where writes are kept to be sent later.
    [[nodiscard]] std::filesystem::path outboxFile() const { return stateFile("outboxes"); }

    static std::vector<std::string> words(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), KESTRIN_CLIENT);
        return arguments;
    }

    TemporaryDirectory directory;
    std::string configuration = directory / "config.json";
    Environment environment{{"HOME", directory / "home"},
                            {"XDG_STATE_HOME", directory / "state"},
                            {"XDG_CONFIG_HOME", directory / "settings"},
                            {"NO_COLOR", ""}};
    std::unique_ptr<Program> service;

  private:
    [[nodiscard]] std::filesystem::path stateFile(const char* kind) const {
        return directory.path() / "state" / "kestrin-profile" / kind /
               std::filesystem::canonical(configuration).relative_path();
    }
};

}  // namespace TestSupport
