#include <utility>

#include <KestrinProfile/params/AnonymousBindParams.hpp>
#include <KestrinProfile/params/ProfileUtils.hpp>

namespace KestrinProfile {

using HalvardSling::JSONDictionary;
using KestrinConfigManager::TextMap;

AnonymousBindParams::AnonymousBindParams(std::string aProfileID, ProfileOperation anOperation)
    : profileID(std::move(aProfileID)), operation(anOperation) {}

std::optional<JSONDictionary> AnonymousBindParams::dictionaryRepresentation() const {
    JSONDictionary body;
    body.setText(Keys::profileID, profileID);
    return body;
}

std::optional<TextMap> AnonymousBindParams::URLMapping() const {
    return TextMap{{ProfileMapping::uxid, profileID}};
}

bool AnonymousBindParams::hasValidParams() const {
    return true;
}

}  // namespace KestrinProfile
