#include <KestrinProfile/params/ProfileUtils.hpp>

namespace KestrinProfile {

using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::TextMap;

TextMap ProfileUtils::header(const std::optional<AnonymousBind>& bind) {
    TextMap header;
    if (!bind) return header;
    header.emplace(ProfileHeaders::jwt, "JWT " + bind->token);
    header.emplace(ProfileHeaders::profileID, bind->profileID);
    return header;
}

}  // namespace KestrinProfile
