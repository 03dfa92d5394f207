#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include <HalvardSling/http/Response.hpp>
#include <KestrinProfile/model/UserProfile.hpp>

#include "support/Reply.hpp"

namespace Bench {

/// A way from a reply to the finished record. All read dates with the library's own formatter, so
/// that what differs is the JSON.
struct Decoder {
    const char* name;
    /// @throws any exception where the reply is refused
    KestrinProfile::UserProfile (*decode)(const HalvardSling::Response& reply);
};

[[nodiscard]] const std::vector<Decoder>& decoders();

/// The decoder with a name; ends the program where there is none.
[[nodiscard]] const Decoder& decoderNamed(std::string_view name);

/// A record to fill: only its readers make one.
[[nodiscard]] KestrinProfile::UserProfile emptyRecord();

KestrinProfile::UserProfile decodeWithKestrin(const HalvardSling::Response& reply);
KestrinProfile::UserProfile copyRecord(const HalvardSling::Response& reply);
KestrinProfile::UserProfile decodeWithNlohmann(const HalvardSling::Response& reply);
KestrinProfile::UserProfile decodeWithBoost(const HalvardSling::Response& reply);
KestrinProfile::UserProfile decodeWithBoostMonotonic(const HalvardSling::Response& reply);
KestrinProfile::UserProfile decodeWithRapidJSON(const HalvardSling::Response& reply);
/// Gives back what the two below keep.
void forgetSimdjsonParsers();
KestrinProfile::UserProfile decodeWithSimdjsonDOM(const HalvardSling::Response& reply);
KestrinProfile::UserProfile decodeWithSimdjsonOnDemand(const HalvardSling::Response& reply);

/// The date of a text, as every decoder reads it.
[[nodiscard]] inline std::optional<KestrinProfile::Date> dateOf(std::string_view text) {
    return KestrinProfile::DateFormatter::iso8601().date(text);
}

}  // namespace Bench
