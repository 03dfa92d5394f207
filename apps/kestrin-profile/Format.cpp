#include "Format.hpp"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>

#include <fmt/format.h>

#include <internal/Number.hpp>

namespace KestrinProfileCLI {

namespace {

constexpr std::int64_t mostSeconds = KestrinInternal::largestExactInteger;
constexpr std::int64_t barColumns = 10;

std::string repeated(std::string_view text, std::int64_t times) {
    std::string result;
    for (; times > 0; --times)
        result += text;
    return result;
}

}  // namespace

std::string durationText(std::int64_t seconds) {
    if (seconds < 0) return fmt::format("{} s", seconds);
    return fmt::format("{}:{:02}:{:02}", seconds / 3600, seconds / 60 % 60, seconds % 60);
}

std::optional<std::int64_t> durationOf(std::string_view text) {
    std::int64_t total = 0;
    for (int parts = 1;; ++parts) {
        const std::size_t colon = text.find(':');
        const std::string_view digits = text.substr(0, colon);
        const auto number = KestrinInternal::decimalNumber(digits);
        const bool isLower = parts > 1;
        if (!number || (isLower && (*number > 59 || digits.size() != 2))) return std::nullopt;
        if (total > (mostSeconds - *number) / 60) return std::nullopt;
        total = total * 60 + *number;
        if (colon == std::string_view::npos) return total;
        if (parts == 3) return std::nullopt;
        text.remove_prefix(colon + 1);
    }
}

std::optional<std::chrono::duration<double>> secondsOf(const std::string& text,
                                                       std::chrono::duration<double> least,
                                                       std::chrono::duration<double> most) {
    char* end = nullptr;
    const std::chrono::duration<double> time{std::strtod(text.c_str(), &end)};
    const bool isWhole = !text.empty() && *end == '\0';
    return isWhole && time >= least && time <= most ? std::optional(time) : std::nullopt;
}

std::string ageText(std::chrono::seconds age) {
    using namespace std::chrono;
    if (age < minutes(1)) return fmt::format("{} s", std::max<std::int64_t>(age.count(), 0));
    if (age < hours(1)) return fmt::format("{} min", duration_cast<minutes>(age).count());
    if (age < days(2)) return fmt::format("{} h", duration_cast<hours>(age).count());
    return fmt::format("{} d", duration_cast<days>(age).count());
}

std::string dateText(KestrinProfile::Date date, bool utc) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(date);
    const std::time_t time = seconds.time_since_epoch().count();
    std::tm parts{};
    const bool known = (utc ? gmtime_r(&time, &parts) : localtime_r(&time, &parts)) != nullptr;
    if (!known) return "?";
    return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", parts.tm_year + 1900,
                       parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
}

std::string bar(std::int64_t part, std::int64_t whole) {
    const double share = static_cast<double>(part) / static_cast<double>(whole);
    auto full = static_cast<std::int64_t>(share * static_cast<double>(barColumns));
    if (part > 0) full = std::max<std::int64_t>(full, 1);
    if (part < whole) full = std::min(full, barColumns - 1);
    full = std::clamp<std::int64_t>(full, 0, barColumns);
    return repeated("█", full) + repeated("░", barColumns - full);
}

}  // namespace KestrinProfileCLI
