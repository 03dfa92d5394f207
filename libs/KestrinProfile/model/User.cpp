#include <utility>

#include <KestrinConfigManager/Archivable.hpp>
#include <KestrinProfile/model/User.hpp>
#include <KestrinProfile/model/internal/Fields.hpp>

namespace KestrinProfile {

using HalvardSling::JSONDictionary;
using internal::FieldReader;
using internal::FieldWriter;

static_assert(KestrinConfigManager::SerializableRecord<User>);
static_assert(KestrinConfigManager::Archivable<User>);

namespace {

using Keys = User::Keys;

void requestFields(auto& user, const auto& field) {
    field(Keys::username, user.username);
    field(Keys::avatar, user.avatar);
    field(Keys::group, user.group);
    field(Keys::defaultUser, user.defaultUser);
}

void allFields(auto& user, const auto& field) {
    field(Keys::profileID, user.profileID);
    requestFields(user, field);
}

}  // namespace

User::User(std::string aProfileID, std::optional<std::string> aUsername,
           std::optional<std::string> anAvatar, std::optional<std::string> aGroup, bool isDefault)
    : profileID(std::move(aProfileID)),
      username(std::move(aUsername)),
      avatar(std::move(anAvatar)),
      group(std::move(aGroup)),
      defaultUser(isDefault) {}

User User::withoutProfileID(std::string username, std::string avatar, std::string group,
                            bool defaultUser) {
    User user;
    user.username = std::move(username);
    user.avatar = std::move(avatar);
    user.group = std::move(group);
    user.defaultUser = defaultUser;
    return user;
}

std::optional<User> User::fromJSON(const JSONDictionary& dictionary) {
    User user;
    allFields(user, FieldReader(dictionary));
    return user;
}

std::optional<User> User::fromEncoded(const JSONDictionary& dictionary) {
    return fromJSON(dictionary);
}

std::optional<JSONDictionary> User::serialized() const {
    JSONDictionary dictionary;
    requestFields(*this, FieldWriter(dictionary));
    return dictionary;
}

JSONDictionary User::encode() const {
    JSONDictionary dictionary;
    allFields(*this, FieldWriter(dictionary));
    return dictionary;
}

}  // namespace KestrinProfile
