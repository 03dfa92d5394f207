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

KestrinProfile::UserProfile emptyRecord() {
    return *KestrinProfile::UserProfile::fromJSON({});
}

}  // namespace Bench
