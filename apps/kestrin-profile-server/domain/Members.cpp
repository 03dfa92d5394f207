#include <algorithm>
#include <chrono>
#include <utility>

#include <boost/json/serialize.hpp>

#include <internal/ASCII.hpp>
#include <internal/Number.hpp>
#include <kestrin-profile-server/domain/Members.hpp>
#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/domain/Text.hpp>

namespace KestrinProfileServer {
namespace {

namespace json = boost::json;

const json::object& objectIn(const json::value& value, const std::string& place) {
    if (const auto* const object = value.if_object()) return *object;
    throw Problem(ProblemKind::invalidRequest,
                  place + " is " + excerptOf(json::serialize(value)) + "; expected is an object");
}

/// The number that so many digits stand for, which are taken away; absent if others stand there.
std::optional<int> takeDigits(std::string_view& text, std::size_t count) {
    if (text.size() < count ||
        !std::ranges::all_of(text.substr(0, count), KestrinInternal::isDigit))
        return std::nullopt;
    const auto number = KestrinInternal::decimalNumber(text.substr(0, count));
    text.remove_prefix(count);
    return static_cast<int>(number.value_or(0));
}

bool take(std::string_view& text, char mark) {
    if (!text.starts_with(mark)) return false;
    text.remove_prefix(1);
    return true;
}

std::optional<Milliseconds> takeFraction(std::string_view& text) {
    if (!take(text, '.')) return 0;
    Milliseconds fraction = 0;
    int digits = 0;
    for (; digits < 3; ++digits) {
        const auto digit = takeDigits(text, 1);
        if (!digit) break;
        fraction = fraction * 10 + *digit;
    }
    if (digits == 0) return std::nullopt;
    for (; digits < 3; ++digits)
        fraction *= 10;
    return fraction;
}

}  // namespace

Members::Members(const json::value& value, std::string place)
    : object_(objectIn(value, place)), place_(std::move(place)) {}

const json::value* Members::value(std::string_view name) {
    known_.push_back(name);
    return object_.if_contains(name);
}

std::optional<std::string> Members::text(std::string_view name) {
    const auto* const found = value(name);
    if (found == nullptr) return std::nullopt;
    if (!found->is_string() || found->get_string().size() > longestText ||
        found->get_string().find('\0') != json::string::npos) {
        refuse(name, "a text of at most " + std::to_string(longestText) + " bytes without a zero");
    }
    return std::string(found->get_string());
}

std::optional<bool> Members::boolean(std::string_view name) {
    const auto* const found = value(name);
    if (found == nullptr) return std::nullopt;
    if (!found->is_bool()) refuse(name, "true or false");
    return found->get_bool();
}

std::optional<std::int64_t> Members::integer(std::string_view name, std::int64_t least,
                                             std::int64_t most) {
    const auto* const found = value(name);
    if (found == nullptr) return std::nullopt;
    if (!found->is_int64() || found->get_int64() < least || found->get_int64() > most) {
        refuse(name, "an integer from " + std::to_string(least) + " to " + std::to_string(most));
    }
    return found->get_int64();
}

std::optional<double> Members::number(std::string_view name) {
    const auto* const found = value(name);
    if (found == nullptr) return std::nullopt;
    if (!found->is_number()) refuse(name, "a number");
    return found->to_number<double>();
}

std::optional<Milliseconds> Members::time(std::string_view name) {
    const auto written = text(name);
    if (!written) return std::nullopt;
    const auto time = timeIn(*written);
    if (!time) refuse(name, "a time in UTC like 2017-03-09T18:25:43.511Z");
    return time;
}

const json::array* Members::array(std::string_view name) {
    const auto* const found = value(name);
    if (found == nullptr) return nullptr;
    if (!found->is_array()) refuse(name, "an array");
    return &found->get_array();
}

std::string Members::requiredText(std::string_view name) {
    auto found = text(name);
    if (!found) refuse(name, "a text");
    return *std::move(found);
}

bool Members::requiredBoolean(std::string_view name) {
    const auto found = boolean(name);
    if (!found) refuse(name, "true or false");
    return *found;
}

std::string Members::placeOf(std::string_view name) const {
    return place_ + "." + std::string(name);
}

void Members::refuse(std::string_view name, const std::string& expected) const {
    const auto* const found = object_.if_contains(name);
    throw Problem(ProblemKind::invalidRequest,
                  placeOf(name) + " is " +
                      (found == nullptr ? "missing" : excerptOf(json::serialize(*found))) +
                      "; expected is " + expected);
}

void Members::finish() const {
    for (const auto& member : object_) {
        const std::string_view name = member.key();
        if (std::ranges::find(known_, name) != known_.end()) continue;
        std::string names;
        for (const std::string_view each : known_)
            names += (names.empty() ? "'" : ", '") + std::string(each) + "'";
        throw Problem(ProblemKind::invalidRequest, place_ + " has the unexpected member '" +
                                                       excerptOf(name) + "'; known are " + names);
    }
}

std::optional<Milliseconds> timeIn(std::string_view text) {
    using namespace std::chrono;
    constexpr int hoursPerDay = 24;
    constexpr int sixty = 60;
    const auto year = takeDigits(text, 4);
    const bool hasMonth = take(text, '-');
    const auto month = takeDigits(text, 2);
    const bool hasDay = take(text, '-');
    const auto day = takeDigits(text, 2);
    const bool hasTime = take(text, 'T');
    const auto hour = takeDigits(text, 2);
    const bool hasMinute = take(text, ':');
    const auto minute = takeDigits(text, 2);
    const bool hasSecond = take(text, ':');
    const auto second = takeDigits(text, 2);
    const auto fraction = takeFraction(text);
    if (!hasMonth || !hasDay || !hasTime || !hasMinute || !hasSecond || text != "Z" || !year ||
        !month || !day || !hour || !minute || !second || !fraction)
        return std::nullopt;
    const year_month_day date{std::chrono::year{*year},
                              std::chrono::month{static_cast<unsigned>(*month)},
                              std::chrono::day{static_cast<unsigned>(*day)}};
    if (!date.ok() || *hour >= hoursPerDay || *minute >= sixty || *second >= sixty)
        return std::nullopt;
    const auto instant = sys_days(date) + hours(*hour) + minutes(*minute) + seconds(*second) +
                         milliseconds(*fraction);
    return instant.time_since_epoch().count();
}

}  // namespace KestrinProfileServer
