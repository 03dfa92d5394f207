#include <algorithm>
#include <array>

#include <KestrinProfile/model/Types.hpp>

namespace KestrinProfile {

namespace {

/// In the order of the cases.
constexpr std::array<std::string_view, 5> rawValues{"SHOW", "VIDEO", "GAME", "COLLECTION", "none"};

}  // namespace

std::string_view rawValue(Types type) {
    return rawValues.at(static_cast<std::size_t>(type));
}

std::optional<Types> types(std::string_view rawValue) {
    const auto found = std::ranges::find(rawValues, rawValue);
    if (found == rawValues.end()) return std::nullopt;
    return static_cast<Types>(found - rawValues.begin());
}

}  // namespace KestrinProfile
