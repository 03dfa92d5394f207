#include <KestrinProfile/model/Types.hpp>
#include <KestrinProfile/model/internal/RawValues.hpp>

namespace KestrinProfile {

namespace {

constexpr internal::RawValues<Types, 5> rawValues{{"SHOW", "VIDEO", "GAME", "COLLECTION", "none"}};

}  // namespace

std::string_view rawValue(Types type) {
    return rawValues.of(type);
}

std::optional<Types> types(std::string_view rawValue) {
    return rawValues.caseOf(rawValue);
}

}  // namespace KestrinProfile
