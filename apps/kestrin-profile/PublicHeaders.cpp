#include "PublicHeaders.hpp"

#include <algorithm>
#include <array>

#include <HalvardSling/http/Headers.hpp>
#include <KestrinProfile/params/ProfileUtils.hpp>

namespace KestrinProfileCLI {

bool isPublicHeader(std::string_view name) {
    static constexpr std::array<std::string_view, 4> names{
        "Accept", "Content-Type", "User-Agent", KestrinProfile::ProfileHeaders::profileID};
    return std::ranges::any_of(names, [name](std::string_view each) {
        return HalvardSling::Headers::sameName(each, name);
    });
}

}  // namespace KestrinProfileCLI
