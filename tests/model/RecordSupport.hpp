#pragma once

#include <chrono>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include <HalvardSling/json/JSONDictionary.hpp>
#include <KestrinProfile/model/User.hpp>
#include <KestrinProfile/model/UserProfile.hpp>
#include <KestrinProfile/model/UserProfileElement.hpp>

namespace KestrinProfile {

// How failures show the records.
inline void PrintTo(const UserProfileElement& entry, std::ostream* out) {
    *out << entry.description();
}
inline void PrintTo(const UserProfile& list, std::ostream* out) {
    *out << list.description();
}
inline void PrintTo(const User& user, std::ostream* out) {
    *out << user.encode().toJSON();
}

}  // namespace KestrinProfile

namespace TestSupport {

/// The dictionary of a JSON text.
inline HalvardSling::JSONDictionary dictionary(std::string_view text) {
    auto result = HalvardSling::JSONDictionary::parse(text);
    if (const auto* failure = std::get_if<HalvardSling::JSONFailure>(&result))
        throw std::invalid_argument(failure->text());
    return std::get<HalvardSling::JSONDictionary>(std::move(result));
}

/// 2017-03-09T18:25:43.511Z.
inline constexpr KestrinProfile::Date someDate =
    std::chrono::sys_days(std::chrono::year(2017) / 3 / 9) + std::chrono::hours(18) +
    std::chrono::minutes(25) + std::chrono::seconds(43) + std::chrono::milliseconds(511);

}  // namespace TestSupport
