#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinProfile/params/ProfileUtils.hpp>
#include <KestrinProfile/params/internal/RequestSupport.hpp>

namespace KestrinProfile::internal {

using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::ConfigurationManager;
using KestrinConfigManager::TextMap;

std::optional<AnonymousBind> givenOrHeld(std::optional<AnonymousBind> bind, bool parent) {
    if (bind) return bind;
    return ConfigurationManager::profileBind(parent);
}

std::optional<std::string> currentBrandID() {
    const auto configuration = ConfigurationManager::sharedInstance().currentConfiguration();
    const auto brand = configuration ? configuration->brand : std::nullopt;
    if (!brand) return std::nullopt;
    return brand->rawValue;
}

void fill(TextMap& mapping, const char* placeholder, const std::optional<std::string>& value) {
    if (value) mapping.insert_or_assign(placeholder, *value);
}

void fill(TextMap& mapping, const std::optional<AnonymousBind>& bind) {
    if (bind) mapping.insert_or_assign(ProfileMapping::uxid, bind->profileID);
}

}  // namespace KestrinProfile::internal
