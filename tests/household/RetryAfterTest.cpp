#include <chrono>
#include <optional>
#include <string_view>

#include <gtest/gtest.h>

#include <KestrinHousehold/retry/internal/RetryAfter.hpp>
#include <internal/HTTPDate.hpp>

namespace {

using HalvardSling::Headers;
using KestrinHousehold::internal::retryAfter;
using KestrinInternal::parseHTTPDate;
using std::chrono::sys_days;
using std::chrono::sys_seconds;
using std::chrono::system_clock;
using namespace std::chrono_literals;

const system_clock::time_point now = sys_days(2024y / 6 / 1);
const sys_seconds example = sys_days(1994y / 11 / 6) + 8h + 49min + 37s;

TEST(HTTPDate, HasThreeForms) {
    EXPECT_EQ(parseHTTPDate("Sun, 06 Nov 1994 08:49:37 GMT", now), example);
    EXPECT_EQ(parseHTTPDate("Sunday, 06-Nov-94 08:49:37 GMT", now), example);
    EXPECT_EQ(parseHTTPDate("Sun Nov  6 08:49:37 1994", now), example);
    EXPECT_EQ(parseHTTPDate("Sun Nov 16 08:49:37 1994", now), example + std::chrono::days(10));
}

TEST(HTTPDate, OfTwoDigitsIsNotMoreThanFiftyYearsAhead) {
    EXPECT_EQ(parseHTTPDate("Friday, 01-Jan-74 00:00:00 GMT", now), sys_days(2074y / 1 / 1));
    EXPECT_EQ(parseHTTPDate("Friday, 01-Jan-75 00:00:00 GMT", now), sys_days(1975y / 1 / 1));
}

TEST(HTTPDate, OfAnyYearIsRight) {
    EXPECT_EQ(parseHTTPDate("Fri, 31 Dec 9999 23:59:59 GMT", now), sys_days(10000y / 1 / 1) - 1s);
}

TEST(HTTPDate, IsNothingElse) {
    for (const std::string_view text :
         {"", "Sun", ",", "Sun, 06 Nov 1994 08:49:37", "Sun, 6 Nov 1994 08:49:37 GMT",
          "Sun, 06 Nov 1994 08:49:37 UTC", "Sun, 31 Feb 1994 08:49:37 GMT",
          "Sun, 06 Xxx 1994 08:49:37 GMT", "Sun, 06 Nov 1994 24:49:37 GMT",
          "Sun, 06 Nov 1994 08:60:37 GMT", "Sun, 06 Nov 1994 08:49:61 GMT",
          "Sun, 06 Nov 19x4 08:49:37 GMT", "1994-11-06T08:49:37Z", "Sun Nov  6 08:49:37 1994 "})
        EXPECT_EQ(parseHTTPDate(text, now), std::nullopt) << text;
}

std::optional<std::chrono::seconds> asked(std::string_view text, Headers headers = {}) {
    headers.add("Retry-After", text);
    return retryAfter(headers, now);
}

TEST(RetryAfter, IsANumberOfSecondsOrADate) {
    EXPECT_EQ(asked("120"), 120s);
    EXPECT_EQ(asked("0"), 0s);
    EXPECT_EQ(asked("Sat, 01 Jun 2024 00:00:30 GMT"), 30s);
}

TEST(RetryAfter, OfADateThatHasPassedIsNothingToWaitFor) {
    EXPECT_EQ(asked("Sun, 06 Nov 1994 08:49:37 GMT"), 0s);
}

TEST(RetryAfter, IsCountedFromTheServicesOwnDate) {
    EXPECT_EQ(asked("Sun, 06 Nov 1994 08:49:37 GMT", {{"Date", "Sun, 06 Nov 1994 08:49:07 GMT"}}),
              30s);
}

TEST(RetryAfter, ThatIsNeitherIsIgnored) {
    EXPECT_EQ(retryAfter({}, now), std::nullopt);
    for (const std::string_view text : {"", "-1", "1.5", "soon", "12 s"})
        EXPECT_EQ(asked(text), std::nullopt) << text;
}

TEST(RetryAfter, OfAnyLengthCanBeReckonedWith) {
    constexpr std::chrono::seconds longest =
        std::chrono::floor<std::chrono::seconds>(std::chrono::nanoseconds::max());
    for (const std::string_view text : {"9007199254740991", "Fri, 31 Dec 9999 23:59:59 GMT"}) {
        EXPECT_GT(asked(text), std::chrono::hours(24 * 365)) << text;
        EXPECT_LT(asked(text), longest) << text;
    }
    EXPECT_EQ(asked("99999999999999999999"), std::nullopt);
}

}  // namespace
