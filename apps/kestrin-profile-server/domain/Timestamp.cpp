#include <chrono>

#include <kestrin-profile-server/domain/Timestamp.hpp>

namespace KestrinProfileServer {
namespace {

void appendPadded(std::string& text, unsigned value, unsigned divisor) {
    for (; divisor > 0; divisor /= 10)
        text.push_back(static_cast<char>('0' + value / divisor % 10));
}

}  // namespace

Milliseconds systemTime() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

std::string timestampText(Milliseconds time) {
    using namespace std::chrono;
    const sys_time<milliseconds> instant{milliseconds{time}};
    const auto day = floor<days>(instant);
    const year_month_day date{day};
    const hh_mm_ss clock{instant - day};
    const auto count = [](auto duration) { return static_cast<unsigned>(duration.count()); };

    std::string text;
    text.reserve(24);
    appendPadded(text, static_cast<unsigned>(static_cast<int>(date.year())), 1000);
    text.push_back('-');
    appendPadded(text, static_cast<unsigned>(date.month()), 10);
    text.push_back('-');
    appendPadded(text, static_cast<unsigned>(date.day()), 10);
    text.push_back('T');
    appendPadded(text, count(clock.hours()), 10);
    text.push_back(':');
    appendPadded(text, count(clock.minutes()), 10);
    text.push_back(':');
    appendPadded(text, count(clock.seconds()), 10);
    text.push_back('.');
    appendPadded(text, count(clock.subseconds()), 100);
    text.push_back('Z');
    return text;
}

}  // namespace KestrinProfileServer
