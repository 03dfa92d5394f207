#include <utility>

#include <KestrinProfile/model/internal/OperationTable.hpp>
#include <KestrinProfile/params/ProfileUtils.hpp>
#include <KestrinProfile/params/UserParams.hpp>
#include <KestrinProfile/params/internal/RequestSupport.hpp>

namespace KestrinProfile {

using HalvardSling::JSONDictionary;
using internal::fill;
using internal::rowOf;
using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::TextMap;

using Body = internal::OperationRow::Body;
using Need = internal::OperationRow::Need;

UserParams::UserParams(std::optional<AnonymousBind> aBind, std::optional<User> aUser)
    : bind(internal::givenOrHeld(std::move(aBind), true)), user(std::move(aUser)) {}

std::optional<TextMap> UserParams::headers() const {
    return ProfileUtils::header(bind);
}

std::optional<JSONDictionary> UserParams::dictionaryRepresentation() const {
    if (rowOf(operation).body != Body::user || !user) return std::nullopt;
    return user->serialized();
}

std::optional<TextMap> UserParams::URLMapping() const {
    TextMap mapping;
    if (rowOf(operation).need != Need::identifiedUser)
        fill(mapping, bind);
    else if (user)
        fill(mapping, ProfileMapping::uxid, user->profileID);
    return mapping;
}

bool UserParams::hasValidParams() const {
    if (!bind) return false;
    const Need need = rowOf(operation).need;
    if (need == Need::identifiedUser) return user && user->profileID;
    return need != Need::user || user;
}

}  // namespace KestrinProfile
