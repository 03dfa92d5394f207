#include "decode/Decoders.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace Bench {

const std::vector<Decoder>& decoders() {
    static const std::vector<Decoder> all = {
        {"KestrinProfile", &decodeWithKestrin},
        {"nlohmann-json", &decodeWithNlohmann},
        {"Boost.JSON DOM", &decodeWithBoost},
        {"Boost.JSON DOM, monotonic", &decodeWithBoostMonotonic},
        {"RapidJSON DOM", &decodeWithRapidJSON},
        {"simdjson DOM", &decodeWithSimdjsonDOM},
        {"simdjson On-Demand", &decodeWithSimdjsonOnDemand},
        {"copying the record", &copyRecord},
    };
    return all;
}

const Decoder& decoderNamed(std::string_view name) {
    const auto found =
        std::ranges::find_if(decoders(), [&](const Decoder& each) { return each.name == name; });
    if (found == decoders().end()) {
        std::fprintf(stderr, "there is no such decoder\n");
        std::exit(2);
    }
    return *found;
}

HalvardSling::Response replyOf(std::string text) {
    HalvardSling::ResponseParts parts;
    parts.status = 200;
    parts.effectiveURL = "https://api.example.com/v1/history";
    parts.body = std::move(text);
    return HalvardSling::Response(std::move(parts));
}

KestrinProfile::UserProfile emptyRecord() {
    return *KestrinProfile::UserProfile::fromJSON({});
}

}  // namespace Bench
