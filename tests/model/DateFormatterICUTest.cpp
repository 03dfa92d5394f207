// The shared formatter against ICU's for the same pattern, which the phones' platforms use. The
// environment's KESTRIN_TEST_DATES says how many random dates are compared, e.g. a million for a
// soak of a minute or two.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
// The C interface only.
#define U_SHOW_CPLUSPLUS_API 0
#include <unicode/ucal.h>
#include <unicode/udat.h>
#include <unicode/ustring.h>

#include <KestrinProfile/model/DateFormatter.hpp>

namespace KestrinProfile {
namespace {

using std::chrono::milliseconds;
using std::chrono::sys_days;

const DateFormatter& iso8601 = DateFormatter::iso8601();

constexpr Date first = sys_days(std::chrono::year(1) / 1 / 1);
constexpr Date last = sys_days(std::chrono::year(10000) / 1 / 1) - std::chrono::microseconds(1);

void check(UErrorCode status) {
    if (U_FAILURE(status)) throw std::runtime_error(u_errorName(status));
}

/// ICU's formatter: strict, UTC, and Gregorian also before the year 1582.
class ICUFormatter {
  public:
    ICUFormatter() {
        UErrorCode status = U_ZERO_ERROR;
        format_.reset(udat_open(UDAT_PATTERN, UDAT_PATTERN, "en_US_POSIX@calendar=iso8601", u"GMT",
                                -1, u"yyyy-MM-dd'T'HH:mm:ss.SSSXXXXX", -1, &status));
        check(status);
        const std::unique_ptr<UCalendar*, void (*)(UCalendar**)> calendar(
            new UCalendar*(ucal_clone(udat_getCalendar(format_.get()), &status)),
            [](UCalendar** opened) {
                ucal_close(*opened);
                delete opened;
            });
        check(status);
        ucal_setGregorianChange(*calendar, -8.64e15, &status);
        check(status);
        udat_setCalendar(format_.get(), *calendar);
        udat_setLenient(format_.get(), false);
    }

    [[nodiscard]] std::string text(std::int64_t sinceEpoch) const {
        UErrorCode status = U_ZERO_ERROR;
        std::array<UChar, 64> buffer{};
        const auto size = udat_format(format_.get(), static_cast<double>(sinceEpoch), buffer.data(),
                                      static_cast<std::int32_t>(buffer.size()), nullptr, &status);
        check(status);
        return {buffer.begin(), buffer.begin() + size};
    }

    /// Milliseconds since 1970, where the whole text is a date.
    [[nodiscard]] std::optional<double> date(std::u16string_view text) const {
        UErrorCode status = U_ZERO_ERROR;
        std::int32_t end = 0;
        const auto size = static_cast<std::int32_t>(text.size());
        const double date = udat_parse(format_.get(), text.data(), size, &end, &status);
        if (U_FAILURE(status) || end != size) return std::nullopt;
        return date;
    }

  private:
    struct Close {
        void operator()(void** format) const { udat_close(format); }
    };
    std::unique_ptr<void*, Close> format_;
};

std::u16string wide(std::string_view ascii) {
    return {ascii.begin(), ascii.end()};
}

std::string utf8(const std::u16string& text) {
    std::array<char, 256> buffer{};
    std::int32_t size = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strToUTF8WithSub(buffer.data(), static_cast<std::int32_t>(buffer.size()), &size, text.data(),
                       static_cast<std::int32_t>(text.size()), 0xFFFD, nullptr, &status);
    check(status);
    return {buffer.data(), static_cast<std::size_t>(size)};
}

std::int64_t sinceEpoch(Date date) {
    return std::chrono::floor<milliseconds>(date).time_since_epoch().count();
}

class RandomDates {
  public:
    Date date() {
        return Date(std::chrono::microseconds(
            uniform(first.time_since_epoch().count(), last.time_since_epoch().count())));
    }

    /// `Z` or an offset, in one of its forms.
    std::string offset() {
        const auto form = uniform(0, 3);
        if (form == 0) return "Z";
        const auto size = uniform(0, 18 * 3600);
        std::string text = uniform(0, 1) == 0 ? "+" : "-";
        text += pair(size / 3600) + ":" + pair(size / 60 % 60);
        if (form == 1) text += ":" + pair(size % 60);
        return text;
    }

  private:
    std::int64_t uniform(std::int64_t lowest, std::int64_t highest) {
        return std::uniform_int_distribution(lowest, highest)(engine_);
    }
    static std::string pair(std::int64_t number) {
        return {static_cast<char>('0' + number / 10), static_cast<char>('0' + number % 10)};
    }

    std::mt19937_64 engine_{20170309};
};

/// How many random dates are written and read: a second's work unless the environment says more.
int randomCount() {
    const char* const wanted = std::getenv("KESTRIN_TEST_DATES");
    return wanted != nullptr ? std::stoi(wanted) : 20'000;
}

TEST(DateFormatterICUTest, WritesTheSameTexts) {
    const ICUFormatter icu;
    RandomDates random;
    for (int count = randomCount(); count > 0; --count) {
        const Date date = random.date();
        ASSERT_EQ(iso8601.text(date), icu.text(sinceEpoch(date)));
    }
    for (const Date date : {first, last, Date(), Date(std::chrono::microseconds(-1))})
        EXPECT_EQ(iso8601.text(date), icu.text(sinceEpoch(date)));
}

TEST(DateFormatterICUTest, ReadsTheSameDates) {
    const ICUFormatter icu;
    RandomDates random;
    for (int count = randomCount(); count > 0; --count) {
        auto text = iso8601.text(random.date());
        text.replace(text.size() - 1, 1, random.offset());
        const auto date = iso8601.date(text);
        const auto expected = icu.date(wide(text));
        ASSERT_TRUE(expected) << text;
        const bool isInRange = *expected >= static_cast<double>(sinceEpoch(first)) &&
                               *expected <= static_cast<double>(sinceEpoch(last));
        ASSERT_EQ(date.has_value(), isInRange) << text;
        if (!date) continue;
        ASSERT_EQ(static_cast<double>(sinceEpoch(*date)), *expected) << text;
    }
}

/// Why ICU's parser takes a text that is no date here. The list is complete for the texts that
/// differ from a date in one character.
enum class Laxity {
    otherScripts,  ///< digits, signs and spaces outside ASCII
    whiteSpace,    ///< before a number
    digitCount,    ///< numbers with fewer or more digits, a fourth digit of the fraction
    numberFormat,  ///< a number with a minus sign or an exponent
    lowerCase,     ///< z for Z
    offsetForm,    ///< an offset without colons, or of hours alone
    offsetSize,    ///< an offset of more than 18 hours
    yearRange,     ///< an offset that puts it outside the years 0001 to 9999
    unknown,
};

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

/// The text with every digit made a 0.
std::string shapeOf(std::string text) {
    for (char& c : text)
        if (isDigit(c)) c = '0';
    return text;
}

/// What stands between the numbers of a text, whose numbers may have signs and exponents.
std::string separatorsOf(const std::string& text) {
    std::string separators;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        const bool isSign = c == '-' && (at == 0 || !isDigit(text[at - 1]));
        if (!isDigit(c) && !isSign && c != 'E' && c != 'e') separators += c;
    }
    return separators;
}

Laxity laxityOf(const std::string& text) {
    for (const char c : text)
        if (static_cast<unsigned char>(c) >= 0x80) return Laxity::otherScripts;
    for (const char c : text)
        if (c <= ' ') return Laxity::whiteSpace;

    // The zone begins after the fraction, which may have a sign.
    const auto zoneAt = text.find_first_of("Zz+-", text.find('.') + 2);
    if (zoneAt == std::string::npos) return Laxity::unknown;
    const auto time = shapeOf(text.substr(0, zoneAt));
    if (separatorsOf(time) != "--T::.") return Laxity::unknown;
    const bool isPlain =
        std::ranges::count(time, '-') == 2 && time.find_first_of("Ee") == std::string::npos;
    if (!isPlain) return Laxity::numberFormat;
    if (time != "0000-00-00T00:00:00.000") return Laxity::digitCount;

    const auto zone = text.substr(zoneAt);
    if (zone == "z") return Laxity::lowerCase;
    const auto offset = shapeOf(zone.substr(1));
    if (zone != "Z" && offset.size() <= 6 && offset == std::string(offset.size(), '0'))
        return Laxity::offsetForm;
    if (zone != "Z" && offset != "00:00" && offset != "00:00:00") return Laxity::unknown;
    if (zone.substr(1) > "18:00") return Laxity::offsetSize;
    return text.starts_with("0001-01-01") || text.starts_with("9999-12-31") ? Laxity::yearRange
                                                                            : Laxity::unknown;
}

TEST(DateFormatterICUTest, RefusesWhatOnlyALaxParserTakes) {
    const std::vector<std::pair<std::u16string, Laxity>> examples{
        {u"2017-03-09T18:25:43.51\u0661Z", Laxity::otherScripts},
        {u"\uFF12017-03-09T18:25:43.511Z", Laxity::otherScripts},
        {u"1999-12-31T00:\u22120:00.000Z", Laxity::otherScripts},
        {u"2017-03-09T18:25:\u00A043.511Z", Laxity::otherScripts},
        {u"2017-03-09T18:25: 43.511Z", Laxity::whiteSpace},
        {u" 2017-03-09T18:25:43.511Z", Laxity::whiteSpace},
        {u"217-03-09T18:25:43.511Z", Laxity::digitCount},
        {u"20170-03-09T18:25:43.511Z", Laxity::digitCount},
        {u"2017-3-09T18:25:43.511Z", Laxity::digitCount},
        {u"2017-03-09T8:25:43.51Z", Laxity::digitCount},
        {u"2017-03-09T18:25:43.511999Z", Laxity::digitCount},
        {u"2017-03-09T18:25:4E0.511Z", Laxity::numberFormat},
        {u"2017-03-09T18:25:-0.511Z", Laxity::numberFormat},
        {u"2017-03-09T18:25:43.511z", Laxity::lowerCase},
        {u"2017-03-09T18:25:43.511+02", Laxity::offsetForm},
        {u"2017-03-09T18:25:43.511+0200", Laxity::offsetForm},
        {u"2017-03-09T18:25:43.511+18:00:01", Laxity::offsetSize},
        {u"2017-03-09T18:25:43.511-23:59", Laxity::offsetSize},
        {u"0001-01-01T00:00:00.000+00:01", Laxity::yearRange},
        {u"9999-12-31T23:59:59.999-00:01", Laxity::yearRange},
    };
    const ICUFormatter icu;
    for (const auto& [text, laxity] : examples) {
        EXPECT_TRUE(icu.date(text)) << utf8(text);
        EXPECT_EQ(iso8601.date(utf8(text)), std::nullopt) << utf8(text);
        EXPECT_EQ(laxityOf(utf8(text)), laxity) << utf8(text);
    }
}

/// Counts what the two make of texts.
struct Comparison {
    void compare(const std::u16string& text) {
        const auto bytes = utf8(text);
        const auto date = iso8601.date(bytes);
        const auto expected = icu.date(text);
        ++compared;
        if (date) {
            ++taken;
            ASSERT_TRUE(expected) << bytes;
            ASSERT_EQ(static_cast<double>(sinceEpoch(*date)), *expected) << bytes;
        } else if (expected) {
            ++laxlyTaken;
            ASSERT_NE(laxityOf(bytes), Laxity::unknown) << bytes;
        }
    }

    ICUFormatter icu;
    int compared = 0;
    int taken = 0;
    int laxlyTaken = 0;
};

std::vector<char16_t> tellingCharacters() {
    std::vector<char16_t> all;
    for (char16_t c = 0; c < 256; ++c)
        all.push_back(c);
    // Signs, digits, colons, stops and spaces of other scripts, and half of a surrogate pair.
    for (const char16_t c : std::u16string_view(
             u"\u2212\u2013\u2010\uFE63\uFF0D\uFF0B\uFF11\u0661\u0966\u2003\uFF1A\u200E\uFF0E\u3000"
             u"\uFF3A\uFF34"))
        all.push_back(c);
    all.push_back(0xD835);
    return all;
}

TEST(DateFormatterICUTest, TakesNoChangedTextThatICURefuses) {
    const auto characters = tellingCharacters();
    Comparison comparison;
    for (const std::u16string valid :
         {u"2017-03-09T18:25:43.511Z", u"2016-02-29T23:59:59.999+02:00",
          u"1999-12-31T00:00:00.000-11:30", u"0001-01-01T12:30:10.010-01:02:03",
          u"9999-12-31T12:30:10.010+17:59:59", u"1582-10-10T10:10:10.100+18:00"}) {
        comparison.compare(valid);
        for (std::size_t at = 0; at <= valid.size(); ++at) {
            ASSERT_NO_FATAL_FAILURE(comparison.compare(valid.substr(0, at)));
            for (const char16_t c : characters) {
                auto text = valid;
                text.insert(at, 1, c);
                ASSERT_NO_FATAL_FAILURE(comparison.compare(text));
                if (at == valid.size()) continue;
                text.erase(at + 1, 1);
                ASSERT_NO_FATAL_FAILURE(comparison.compare(text));
            }
            if (at == valid.size()) continue;
            auto text = valid;
            text.erase(at, 1);
            ASSERT_NO_FATAL_FAILURE(comparison.compare(text));
        }
    }
    EXPECT_GT(comparison.compared, 80'000);
    EXPECT_GT(comparison.taken, 500);
    EXPECT_GT(comparison.laxlyTaken, 1'000);
}

}  // namespace
}  // namespace KestrinProfile
