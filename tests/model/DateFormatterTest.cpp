#include <array>
#include <barrier>
#include <chrono>
#include <cstdio>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <KestrinProfile/model/DateFormatter.hpp>

#include "model/RecordSupport.hpp"

namespace KestrinProfile {
namespace {

using std::chrono::days;
using std::chrono::hours;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;
using std::chrono::sys_days;
using TestSupport::someDate;

const DateFormatter& iso8601 = DateFormatter::iso8601();

constexpr Date midnight(int year, unsigned month, unsigned day) {
    return sys_days(std::chrono::year(year) / std::chrono::month(month) / std::chrono::day(day));
}

TEST(DateFormatterTest, WritesUTCWithMilliseconds) {
    EXPECT_EQ(iso8601.text(someDate), "2017-03-09T18:25:43.511Z");
    EXPECT_EQ(iso8601.text(Date()), "1970-01-01T00:00:00.000Z");
    EXPECT_EQ(iso8601.text(midnight(1, 1, 1)), "0001-01-01T00:00:00.000Z");
    EXPECT_EQ(iso8601.text(midnight(476, 9, 4)), "0476-09-04T00:00:00.000Z");
    EXPECT_EQ(iso8601.text(midnight(10000, 1, 1) - microseconds(1)), "9999-12-31T23:59:59.999Z");
}

TEST(DateFormatterTest, RoundsDownToTheMillisecond) {
    EXPECT_EQ(iso8601.text(someDate + microseconds(999)), "2017-03-09T18:25:43.511Z");
    EXPECT_EQ(iso8601.text(someDate - microseconds(1)), "2017-03-09T18:25:43.510Z");
    EXPECT_EQ(iso8601.text(Date(microseconds(-1))), "1969-12-31T23:59:59.999Z");
    EXPECT_EQ(iso8601.text(Date(microseconds(-999))), "1969-12-31T23:59:59.999Z");
    EXPECT_EQ(iso8601.text(Date(microseconds(-1000))), "1969-12-31T23:59:59.999Z");
    EXPECT_EQ(iso8601.text(Date(microseconds(-1001))), "1969-12-31T23:59:59.998Z");
    EXPECT_EQ(iso8601.text(midnight(1, 1, 1) + microseconds(1)), "0001-01-01T00:00:00.000Z");
}

TEST(DateFormatterTest, ReadsOffsets) {
    const std::vector<std::pair<std::string, seconds>> offsets{
        {"Z", seconds(0)},
        {"+00:00", seconds(0)},
        {"-00:00", seconds(0)},
        {"+02:00", hours(2)},
        {"-02:00", -hours(2)},
        {"+05:45", hours(5) + minutes(45)},
        {"-11:30", -(hours(11) + minutes(30))},
        {"+00:00:01", seconds(1)},
        {"-01:02:03", -(hours(1) + minutes(2) + seconds(3))},
        {"+17:59:59", hours(18) - seconds(1)},
        {"+18:00", hours(18)},
        {"-18:00:00", -hours(18)},
    };
    for (const auto& [text, offset] : offsets)
        EXPECT_EQ(iso8601.date("2017-03-09T18:25:43.511" + text), someDate - offset) << text;
    EXPECT_EQ(iso8601.date("2017-03-09T20:25:43.511+02:00"), someDate);
}

TEST(DateFormatterTest, RefusesWhatDiffersFromThePattern) {
    for (const std::string_view text : {"",
                                        "Z",
                                        "2017",
                                        "2017-03-09",
                                        "2017-03-09T18:25:43Z",
                                        "2017-03-09 18:25:43",
                                        "2017-03-09T18:25:43.511",
                                        "2017-03-09T18:25:43.51Z",
                                        "2017-03-09T18:25:43.5111Z",
                                        "2017-03-09T18:25:43,511Z",
                                        "2017-03-09 18:25:43.511Z",
                                        "2017-03-09t18:25:43.511Z",
                                        "2017-03-09T18:25:43.511z",
                                        "17-03-09T18:25:43.511Z",
                                        "02017-03-09T18:25:43.511Z",
                                        "+2017-03-09T18:25:43.511Z",
                                        "-2017-03-09T18:25:43.511Z",
                                        "2017-3-09T18:25:43.511Z",
                                        "2017-03-9T18:25:43.511Z",
                                        "2017-03-09T8:25:43.511Z",
                                        "20170309T182543.511Z",
                                        "2017-068T18:25:43.511Z",
                                        "2017-W10-4T18:25:43.511Z",
                                        " 2017-03-09T18:25:43.511Z",
                                        "2017-03-09T18:25:43.511Z ",
                                        "2017-03-09T18:25:43.511Z+",
                                        "2017-03-09T18:25:43.511ZZ",
                                        "2017-03-09T18:25:43.511 Z",
                                        "2017-03-09T18:25:43.511+02",
                                        "2017-03-09T18:25:43.511+2:00",
                                        "2017-03-09T18:25:43.511+0200",
                                        "2017-03-09T18:25:43.511+020000",
                                        "2017-03-09T18:25:43.511+02:00Z",
                                        "2017-03-09T18:25:43.511+02:00:0",
                                        "2017-03-09T18:25:43.511+02:00:00:00",
                                        "2017-03-09T18:25:43.511 02:00",
                                        "2017-03-09T18:25:43.511\xE2\x88\x92"
                                        "02:00",
                                        "2017-03-09T18:25:43.511GMT",
                                        "2017-03-09T18:25:43.511UTC",
                                        "2017-03-09T18:25:43.511*",
                                        "2017-03-09T18:25:43.\xD9\xA1\xD9\xA1Z"})
        EXPECT_EQ(iso8601.date(text), std::nullopt) << text;
    EXPECT_EQ(iso8601.date(std::string("2017-03-09T18:25:43.511Z\0", 25)), std::nullopt);
}

TEST(DateFormatterTest, RefusesTimesThatDoNotExist) {
    for (const std::string_view time :
         {"24:00:00.000Z", "18:60:43.511Z", "18:25:60.000Z", "23:59:60.000Z", "99:25:43.511Z",
          "18:25:43.511+18:01", "18:25:43.511+18:00:01", "18:25:43.511-18:00:01",
          "18:25:43.511+19:00", "18:25:43.511+99:00", "18:25:43.511+02:60",
          "18:25:43.511+02:00:60"})
        EXPECT_EQ(iso8601.date("2017-03-09T" + std::string(time)), std::nullopt) << time;
}

TEST(DateFormatterTest, ReadsOnlyDatesThatItCanWrite) {
    EXPECT_EQ(iso8601.date("0001-01-01T18:00:00.000+18:00"), midnight(1, 1, 1));
    EXPECT_EQ(iso8601.date("0001-01-01T17:59:59.999+18:00"), std::nullopt);
    EXPECT_EQ(iso8601.date("9999-12-31T05:59:59.999-18:00"),
              midnight(10000, 1, 1) - milliseconds(1));
    EXPECT_EQ(iso8601.date("9999-12-31T06:00:00.000-18:00"), std::nullopt);
    EXPECT_EQ(iso8601.date("0000-12-31T23:59:59.999Z"), std::nullopt);
    EXPECT_EQ(iso8601.date("0000-12-31T23:59:59.999-01:00"), std::nullopt);
}

TEST(DateFormatterTest, WritesDatesOutsideItsYearsButDoesNotReadThem) {
    const std::vector<std::pair<Date, std::string>> dates{
        {midnight(1, 1, 1) - microseconds(1), "0000-12-31T23:59:59.999Z"},
        {midnight(0, 1, 1), "0000-01-01T00:00:00.000Z"},
        {midnight(0, 1, 1) - milliseconds(1), "-0001-12-31T23:59:59.999Z"},
        {midnight(-1234, 2, 28), "-1234-02-28T00:00:00.000Z"},
        {midnight(10000, 1, 1), "10000-01-01T00:00:00.000Z"},
        {midnight(12000, 2, 29), "12000-02-29T00:00:00.000Z"},
        {Date::max(), "294247-01-10T04:00:54.775Z"},
        {Date::min(), "-290308-12-21T19:59:05.224Z"},
    };
    for (const auto& [date, text] : dates) {
        EXPECT_EQ(iso8601.text(date), text);
        EXPECT_EQ(iso8601.date(text), std::nullopt) << text;
    }
}

std::string timeText(int hour, int minute, int second, int millisecond) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%02d:%02d:%02d.%03dZ", hour, minute, second,
                  millisecond);
    return text.data();
}

TEST(DateFormatterTest, AgreesWithTheClockAtEverySecond) {
    for (int second = 0; second < 24 * 60 * 60; ++second) {
        const auto text =
            "2017-03-09T" + timeText(second / 3600, second / 60 % 60, second % 60, second % 1000);
        const Date date = midnight(2017, 3, 9) + seconds(second) + milliseconds(second % 1000);
        ASSERT_EQ(iso8601.text(date), text);
        ASSERT_EQ(iso8601.date(text), date) << text;
    }
}

int lengthOf(int month, int year) {
    constexpr std::array lengths{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool isLeap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
    return lengths.at(static_cast<std::size_t>(month - 1)) + (month == 2 && isLeap ? 1 : 0);
}

std::string dayText(int year, int month, int day) {
    std::array<char, 48> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT12:00:00.000Z", year, month, day);
    return text.data();
}

TEST(DateFormatterTest, AgreesWithTheCalendarOnEveryDay) {
    Date date = midnight(1970, 1, 1) - days(719162) + hours(12);
    for (int year = 1; year <= 9999; ++year)
        for (int month = 1; month <= 12; ++month)
            for (int day = 1; day <= lengthOf(month, year); ++day, date += days(1)) {
                const auto text = dayText(year, month, day);
                ASSERT_EQ(iso8601.text(date), text);
                ASSERT_EQ(iso8601.date(text), date) << text;
            }
    EXPECT_EQ(date, midnight(10000, 1, 1) + hours(12));
}

TEST(DateFormatterTest, RefusesDaysThatDoNotExist) {
    for (int year = 1; year <= 9999; ++year)
        for (int month = 1; month <= 12; ++month) {
            ASSERT_EQ(iso8601.date(dayText(year, month, 0)), std::nullopt) << year << " " << month;
            ASSERT_EQ(iso8601.date(dayText(year, month, lengthOf(month, year) + 1)), std::nullopt)
                << year << " " << month;
        }
    for (int month = 0; month <= 99; ++month)
        for (int day = 0; day <= 99; ++day) {
            const bool exists =
                month >= 1 && month <= 12 && day >= 1 && day <= lengthOf(month, 2017);
            EXPECT_EQ(iso8601.date(dayText(2017, month, day)).has_value(), exists)
                << month << " " << day;
        }
}

/// The text with every digit made a 0.
std::string shapeOf(std::string text) {
    for (char& c : text)
        if (std::string_view("0123456789").find(c) != std::string_view::npos) c = '0';
    return text;
}

/// Whether a text is a date, by a second definition.
bool isDate(const std::string& text) {
    constexpr std::size_t zoneAt = 23;
    if (shapeOf(text.substr(0, zoneAt)) != "0000-00-00T00:00:00.000") return false;
    const auto zone = shapeOf(text.substr(zoneAt));
    const bool isUTC = zone == "Z";
    const bool isShort = zone == "+00:00" || zone == "-00:00";
    const bool isLong = zone == "+00:00:00" || zone == "-00:00:00";
    if (!isUTC && !isShort && !isLong) return false;

    const auto number = [&](std::size_t at, std::size_t size = 2) {
        return std::stoi(text.substr(at, size));
    };
    const int year = number(0, 4);
    const int month = number(5);
    if (year < 1 || month < 1 || month > 12) return false;
    if (number(8) < 1 || number(8) > lengthOf(month, year)) return false;
    if (number(11) > 23 || number(14) > 59 || number(17) > 59) return false;
    if (isUTC) return true;
    const int minute = number(zoneAt + 4);
    const int second = isLong ? number(zoneAt + 7) : 0;
    return minute <= 59 && second <= 59 &&
           number(zoneAt + 1) * 3600 + minute * 60 + second <= 18 * 3600;
}

const std::vector<std::string> validTexts{
    "2017-03-09T18:25:43.511Z", "2016-02-29T23:59:59.999+02:00", "1999-12-31T00:00:00.000-11:30",
    "2000-01-01T12:30:10.010-01:02:03"};

TEST(DateFormatterTest, TakesAChangedByteOnlyWhereThePatternDoes) {
    int taken = 0;
    for (const auto& valid : validTexts)
        for (std::size_t at = 0; at < valid.size(); ++at)
            for (int byte = 0; byte < 256; ++byte) {
                auto text = valid;
                text[at] = static_cast<char>(byte);
                ASSERT_EQ(iso8601.date(text).has_value(), isDate(text)) << text;
                taken += isDate(text) ? 1 : 0;

                text = valid;
                text.insert(at, 1, static_cast<char>(byte));
                ASSERT_EQ(iso8601.date(text), std::nullopt) << text;
            }
    EXPECT_GT(taken, 500);
}

TEST(DateFormatterTest, TakesNoTextThatLacksOrHasMore) {
    for (const auto& valid : validTexts) {
        for (std::size_t at = 0; at < valid.size(); ++at) {
            auto text = valid;
            text.erase(at, 1);
            EXPECT_EQ(iso8601.date(text), std::nullopt) << text;
        }
        for (std::size_t size = 0; size < valid.size(); ++size) {
            // "…-01:02" is a date too.
            const bool endsInMinutes = size == 29;
            EXPECT_EQ(iso8601.date(valid.substr(0, size)).has_value(), endsInMinutes) << size;
        }
        for (int byte = 0; byte < 256; ++byte)
            EXPECT_EQ(iso8601.date(valid + static_cast<char>(byte)), std::nullopt) << byte;
    }
}

TEST(DateFormatterTest, ReadsNotBeyondTheText) {
    for (const auto& valid : validTexts)
        for (std::size_t size = 0; size <= valid.size(); ++size) {
            // In memory of its own, so that a sanitizer sees a read after its end.
            const std::vector<char> exact(valid.begin(),
                                          valid.begin() + static_cast<std::ptrdiff_t>(size));
            const auto date = iso8601.date(std::string_view(exact.data(), exact.size()));
            EXPECT_EQ(date.has_value(), size == valid.size() || size == 29);
        }
}

TEST(DateFormatterTest, IsOneForAllThreads) {
    constexpr int count = 8;
    std::barrier start(count);
    std::array<const DateFormatter*, count> seen{};
    std::array<int, count> right{};
    std::vector<std::thread> threads;
    for (std::size_t thread = 0; thread < count; ++thread)
        threads.emplace_back([&, thread] {
            start.arrive_and_wait();
            seen[thread] = &DateFormatter::iso8601();
            for (int step = 0; step < 1000; ++step) {
                const Date date = someDate + milliseconds(step) * static_cast<int>(thread + 1);
                right[thread] += seen[thread]->date(seen[thread]->text(date)) == date ? 1 : 0;
            }
        });
    for (auto& thread : threads)
        thread.join();
    for (std::size_t thread = 0; thread < count; ++thread) {
        EXPECT_EQ(seen[thread], seen[0]);
        EXPECT_EQ(right[thread], 1000);
    }
}

}  // namespace
}  // namespace KestrinProfile
