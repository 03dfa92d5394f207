#include <KestrinProfile/params/ProfileUtils.hpp>

namespace KestrinProfile {

using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::TextMap;

TextMap ProfileUtils::header(const std::optional<AnonymousBind>& bind) {
    if (!bind) return {};
    return {{ProfileHeaders::jwt, "JWT " + bind->token},
            {ProfileHeaders::profileID, bind->profileID}};
}

}  // namespace KestrinProfile
