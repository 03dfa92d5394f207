// An exception that leaves a subscriber's function, and an error for which there is none, end the
// program. What they say is shown.

#include <csignal>
#include <string>

#include <gmock/gmock.h>

#include "support/Program.hpp"

using testing::HasSubstr;
using TestSupport::Program;

namespace {

/// Runs the program that dies; returns what it wrote.
std::string lastWordsOf(const std::string& outcome, const std::string& way) {
    // A sanitizer would take the end for a crash.
    Program program({DYING_PROGRAM, outcome, way},
                    {{"ASAN_OPTIONS", "handle_abort=0"}, {"TSAN_OPTIONS", "handle_abort=0"}});
    EXPECT_EQ(program.wait(), -SIGABRT) << outcome << ' ' << way;
    return program.errors();
}

TEST(Uncaught, AnExceptionOfASubscribersFunctionIsShown) {
    EXPECT_THAT(lastWordsOf("reply", "value"), HasSubstr("of the value"));
    EXPECT_THAT(lastWordsOf("reply", "completion"), HasSubstr("of completion"));
    EXPECT_THAT(lastWordsOf("error", "error"), HasSubstr("of the error"));
}

TEST(Uncaught, AnErrorWithoutAnErrorFunctionIsShown) {
    EXPECT_THAT(lastWordsOf("error", "missing"), HasSubstr("of the transfer"));
    EXPECT_THAT(lastWordsOf("error", "missing-mapped"), HasSubstr("of the transfer"));
    EXPECT_THAT(lastWordsOf("unsendable", "missing"), HasSubstr("URL"));
    EXPECT_THAT(lastWordsOf("unsendable", "error"), HasSubstr("of the error"));
}

}  // namespace
