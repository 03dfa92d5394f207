// What an idle household asks of the system: strace sees all of it. That a wake-up might come after
// the moment that is looked at needs no waiting: the program itself makes sure that each of its
// threads waits for what no time brings, and the trace that there is no timer of another kind.

#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "support/Program.hpp"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using TestSupport::Program;

class IdleTest : public testing::Test {
  protected:
    void SetUp() override {
        Program probe({"strace", "-f", "-o", "/dev/null", "true"});
        if (probe.wait() != 0) GTEST_SKIP() << "strace cannot trace here: " << probe.errors();
        ASSERT_THAT(service.firstLine(), HasSubstr("ready")) << service.errors();
    }

    /// Runs the program, and returns the system calls of all its threads.
    std::string traceOf(const std::vector<std::string>& more = {}) {
        const auto trace = directory / "trace";
        std::vector<std::string> words{"strace",
                                       "-f",
                                       "-s",
                                       "100",
                                       "-o",
                                       trace,
                                       KESTRIN_IDLE_PROGRAM,
                                       configuration,
                                       directory / "outbox.db"};
        words.insert(words.end(), more.begin(), more.end());
        Program program(words);
        EXPECT_EQ(program.wait(), 0) << program.errors();
        return TestSupport::contentOf(trace);
    }

    /// The lines between those that the program writes.
    static std::vector<std::string> between(const std::string& trace) {
        std::vector<std::string> lines;
        bool isInside = false;
        bool hasEnded = false;
        std::istringstream all(trace);
        for (std::string line; std::getline(all, line);) {
            if (line.find("idle to here") != std::string::npos) hasEnded = isInside;
            if (isInside && !hasEnded) lines.push_back(line);
            if (line.find("idle from here") != std::string::npos) isInside = true;
        }
        EXPECT_TRUE(hasEnded) << "the trace is not whole";
        return lines;
    }

    TestSupport::TemporaryDirectory directory;
    std::string configuration = directory / "configuration.json";
    Program service{{KESTRIN_SERVER, "--port", "0", "--database", directory / "db",
                     "--write-config", configuration, "--quiet"}};
};

TEST_F(IdleTest, AHouseholdAnOutboxAndAPausedVideoAskNothingOfTheSystem) {
    const auto trace = traceOf();
    EXPECT_THAT(between(trace), IsEmpty());
    for (const char* const timer : {"timerfd_create(", "timer_create(", "setitimer(", "alarm("})
        EXPECT_THAT(trace, Not(HasSubstr(timer)));
}

TEST_F(IdleTest, WhatIsLookedForIsSeenOnceThereIsSomethingToDo) {
    EXPECT_THAT(between(traceOf({"busy"})),
                testing::Contains(testing::AnyOf(HasSubstr("pwrite64("), HasSubstr("write("))));
}

}  // namespace
