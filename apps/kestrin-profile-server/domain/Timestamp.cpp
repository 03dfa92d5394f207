#include <array>
#include <chrono>
#include <cstdio>

#include <kestrin-profile-server/domain/Timestamp.hpp>

namespace KestrinProfileServer {

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
    const auto count = [](auto duration) { return static_cast<int>(duration.count()); };

    std::array<char, 64> text{};
    const int size =
        std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ",
                      static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                      static_cast<unsigned>(date.day()), count(clock.hours()),
                      count(clock.minutes()), count(clock.seconds()), count(clock.subseconds()));
    return {text.data(), static_cast<std::size_t>(size)};
}

}  // namespace KestrinProfileServer
