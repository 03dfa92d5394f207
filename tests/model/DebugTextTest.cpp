#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include <gmock/gmock.h>

#include <KestrinProfile/model/internal/DebugText.hpp>

#include "model/RecordSupport.hpp"

namespace KestrinProfile {
namespace {

using internal::debugText;
using TestSupport::someDate;

const std::map<unsigned, std::string> escapedBytes{
    {0x00, R"(\0)"},     {0x01, R"(\u{01})"}, {0x02, R"(\u{02})"}, {0x03, R"(\u{03})"},
    {0x04, R"(\u{04})"}, {0x05, R"(\u{05})"}, {0x06, R"(\u{06})"}, {0x07, R"(\u{07})"},
    {0x08, R"(\u{08})"}, {0x09, R"(\t)"},     {0x0A, R"(\n)"},     {0x0B, R"(\u{0B})"},
    {0x0C, R"(\u{0C})"}, {0x0D, R"(\r)"},     {0x0E, R"(\u{0E})"}, {0x0F, R"(\u{0F})"},
    {0x10, R"(\u{10})"}, {0x11, R"(\u{11})"}, {0x12, R"(\u{12})"}, {0x13, R"(\u{13})"},
    {0x14, R"(\u{14})"}, {0x15, R"(\u{15})"}, {0x16, R"(\u{16})"}, {0x17, R"(\u{17})"},
    {0x18, R"(\u{18})"}, {0x19, R"(\u{19})"}, {0x1A, R"(\u{1A})"}, {0x1B, R"(\u{1B})"},
    {0x1C, R"(\u{1C})"}, {0x1D, R"(\u{1D})"}, {0x1E, R"(\u{1E})"}, {0x1F, R"(\u{1F})"},
    {'"', R"(\")"},      {'\'', R"(\')"},     {'\\', R"(\\)"},     {0x7F, R"(\u{7F})"},
};

TEST(DebugTextTest, QuotesAndEscapesEveryByte) {
    for (unsigned byte = 0; byte < 256; ++byte) {
        const std::string text(1, static_cast<char>(byte));
        const auto escaped = escapedBytes.find(byte);
        const auto& expected = escaped == escapedBytes.end() ? text : escaped->second;
        EXPECT_EQ(debugText(text), '"' + expected + '"') << byte;
    }
}

TEST(DebugTextTest, KeepsTheOrderAndOtherCharacters) {
    EXPECT_EQ(debugText(""), R"("")");
    EXPECT_EQ(debugText("a\nb \xC3\xA9\xF0\x9F\x8E\xAC\tc"),
              "\"a\\nb \xC3\xA9\xF0\x9F\x8E\xAC\\tc\"");
    EXPECT_EQ(debugText(debugText("a\"\n")), R"("\"a\\\"\\n\"")");
}

TEST(DebugTextTest, WritesIntegersAndBooleans) {
    EXPECT_EQ(debugText(std::int64_t{0}), "0");
    EXPECT_EQ(debugText(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
    EXPECT_EQ(debugText(std::numeric_limits<std::int64_t>::max()), "9223372036854775807");
    EXPECT_EQ(debugText(true), "true");
    EXPECT_EQ(debugText(false), "false");
}

TEST(DebugTextTest, WritesDatesToTheSecond) {
    EXPECT_EQ(debugText(someDate), "2017-03-09 18:25:43 +0000");
    EXPECT_EQ(debugText(Date()), "1970-01-01 00:00:00 +0000");
    EXPECT_EQ(debugText(Date(std::chrono::microseconds(-1))), "1969-12-31 23:59:59 +0000");
    EXPECT_EQ(debugText(Date(std::chrono::sys_days(std::chrono::year(12017) / 3 / 9))),
              "12017-03-09 00:00:00 +0000");
}

TEST(DebugTextTest, WritesFields) {
    EXPECT_EQ(debugText(std::optional<std::string>()), "nil");
    EXPECT_EQ(debugText(std::optional<std::string>("nil")), R"(Optional("nil"))");
    EXPECT_EQ(debugText(std::optional<std::int64_t>(-10)), "Optional(-10)");
    EXPECT_EQ(debugText(std::optional<bool>(false)), "Optional(false)");
    EXPECT_EQ(debugText(std::optional<Date>(someDate)), "Optional(2017-03-09 18:25:43 +0000)");
}

}  // namespace
}  // namespace KestrinProfile
