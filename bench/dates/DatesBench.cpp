// Dates of the wire format, from text and to text: ours beside ICU, which the phones' platforms
// use, and beside what a C++ program would take otherwise.

#include <array>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <date/date.h>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <benchmark/benchmark.h>
#include <fmt/chrono.h>
#include <fmt/format.h>
// The C interface only.
#define U_SHOW_CPLUSPLUS_API 0
#include <unicode/udat.h>

#include <KestrinProfile/model/DateFormatter.hpp>

namespace {

using KestrinProfile::Date;
using std::chrono::milliseconds;

struct Sample {
    Date date;
    std::string text;
    std::u16string wide;
};

// A power of two: taking the next one in turn costs no division.
constexpr std::size_t sampleCount = 1024;

std::vector<Sample> samples() {
    const auto& formatter = KestrinProfile::DateFormatter::iso8601();
    std::mt19937_64 random(1);
    std::vector<Sample> all;
    for (std::size_t i = 0; i < sampleCount; ++i) {
        // The years 1970 to 2069.
        const Date date{milliseconds(random() % 3'155'760'000'000)};
        const std::string text = formatter.text(date);
        all.push_back({date, text, {text.begin(), text.end()}});
    }
    return all;
}

/// Measures a function of a sample; each sample in turn.
template <class Work>
void overSamples(benchmark::State& state, Work work) {
    static const std::vector<Sample> all = samples();
    std::size_t next = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(work(all[next++ % sampleCount]));
    state.SetItemsProcessed(state.iterations());
}

UDateFormat* icuFormat() {
    static UDateFormat* const format = [] {
        UErrorCode status = U_ZERO_ERROR;
        return udat_open(UDAT_PATTERN, UDAT_PATTERN, "en_US_POSIX@calendar=iso8601", u"GMT", -1,
                         u"yyyy-MM-dd'T'HH:mm:ss.SSSXXXXX", -1, &status);
    }();
    return format;
}

void parseKestrin(benchmark::State& state) {
    const auto& formatter = KestrinProfile::DateFormatter::iso8601();
    overSamples(state, [&](const Sample& sample) { return formatter.date(sample.text); });
}

void parseICU(benchmark::State& state) {
    overSamples(state, [](const Sample& sample) {
        UErrorCode status = U_ZERO_ERROR;
        return udat_parse(icuFormat(), sample.wide.data(),
                          static_cast<std::int32_t>(sample.wide.size()), nullptr, &status);
    });
}

// The fraction is read by hand, and the offset is only Z.
void parseStrptime(benchmark::State& state) {
    overSamples(state, [](const Sample& sample) {
        std::tm parts{};
        const char* const rest = strptime(sample.text.c_str(), "%Y-%m-%dT%H:%M:%S.", &parts);
        return timegm(&parts) * 1000 + std::strtol(rest, nullptr, 10);
    });
}

void parseDateLibrary(benchmark::State& state) {
    overSamples(state, [](const Sample& sample) {
        std::istringstream stream(sample.text);
        date::sys_time<milliseconds> date;
        date::from_stream(stream, "%Y-%m-%dT%H:%M:%SZ", date);
        return date;
    });
}

void formatKestrin(benchmark::State& state) {
    const auto& formatter = KestrinProfile::DateFormatter::iso8601();
    overSamples(state, [&](const Sample& sample) { return formatter.text(sample.date); });
}

void formatICU(benchmark::State& state) {
    overSamples(state, [](const Sample& sample) {
        UErrorCode status = U_ZERO_ERROR;
        std::array<UChar, 64> text{};
        const auto date = std::chrono::duration_cast<milliseconds>(sample.date.time_since_epoch());
        const auto size = udat_format(icuFormat(), static_cast<double>(date.count()), text.data(),
                                      static_cast<std::int32_t>(text.size()), nullptr, &status);
        return std::string(text.begin(), text.begin() + size);
    });
}

void formatStrftime(benchmark::State& state) {
    overSamples(state, [](const Sample& sample) {
        const auto second = std::chrono::floor<std::chrono::seconds>(sample.date);
        const std::time_t time = std::chrono::system_clock::to_time_t(second);
        std::tm parts{};
        gmtime_r(&time, &parts);
        std::array<char, 40> text{};
        const std::size_t size =
            std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
        const auto fraction = std::chrono::duration_cast<milliseconds>(sample.date - second);
        const int more = std::snprintf(text.data() + size, text.size() - size, ".%03dZ",
                                       static_cast<int>(fraction.count()));
        return std::string(text.data(), size + static_cast<std::size_t>(more));
    });
}

void formatFmt(benchmark::State& state) {
    overSamples(state, [](const Sample& sample) {
        const auto second = std::chrono::floor<std::chrono::seconds>(sample.date);
        const auto fraction = std::chrono::duration_cast<milliseconds>(sample.date - second);
        return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z",
                           fmt::gmtime(std::chrono::system_clock::to_time_t(second)),
                           fraction.count());
    });
}

void formatDateLibrary(benchmark::State& state) {
    overSamples(state, [](const Sample& sample) {
        return date::format("%Y-%m-%dT%H:%M:%SZ", std::chrono::floor<milliseconds>(sample.date));
    });
}

}  // namespace

BENCHMARK(parseKestrin)->Name("date_parse/KestrinProfile/1");
BENCHMARK(parseICU)->Name("date_parse/ICU/1");
BENCHMARK(parseStrptime)->Name("date_parse/strptime and timegm/1");
BENCHMARK(parseDateLibrary)->Name("date_parse/date::from_stream/1");
BENCHMARK(formatKestrin)->Name("date_format/KestrinProfile/1");
BENCHMARK(formatICU)->Name("date_format/ICU/1");
BENCHMARK(formatStrftime)->Name("date_format/strftime and snprintf/1");
BENCHMARK(formatFmt)->Name("date_format/fmt/1");
BENCHMARK(formatDateLibrary)->Name("date_format/date::format/1");
BENCHMARK_MAIN();
