#include <utility>

#include <KestrinConfigManager/Archivable.hpp>
#include <KestrinProfile/model/UserProfileElement.hpp>
#include <KestrinProfile/model/internal/DebugText.hpp>
#include <KestrinProfile/model/internal/Fields.hpp>

namespace KestrinProfile {

using HalvardSling::JSONDictionary;
using internal::debugText;
using internal::FieldReader;
using internal::FieldWriter;

static_assert(KestrinConfigManager::SerializableRecord<UserProfileElement>);
static_assert(KestrinConfigManager::Archivable<UserProfileElement>);

namespace {

using Keys = UserProfileElement::Keys;

void requestFields(auto& entry, const auto& field) {
    field(Keys::id, entry.id);
    field(Keys::type, entry.type);
}

void archiveFields(auto& entry, const auto& field) {
    requestFields(entry, field);
    field(Keys::progress, entry.progress);
    field(Keys::isCompleted, entry.isCompleted);
}

void allFields(auto& entry, const auto& field, const DateFormatter& formatter) {
    archiveFields(entry, field);
    field(Keys::autoAddTimestamp, entry.autoAddTimestamp, formatter);
}

/// What the shared formatter writes of a date, as a number: its texts and these go one to one.
std::optional<std::chrono::sys_time<std::chrono::milliseconds>> written(std::optional<Date> date) {
    if (!date) return std::nullopt;
    return std::chrono::floor<std::chrono::milliseconds>(*date);
}

}  // namespace

UserProfileElement::UserProfileElement(std::optional<std::string> anID, std::optional<Types> aType,
                                       std::optional<std::int64_t> aProgress,
                                       std::optional<bool> completed, std::optional<Date> timestamp)
    : id(std::move(anID)),
      progress(aProgress),
      isCompleted(completed),
      autoAddTimestamp(timestamp) {
    if (aType) type = rawValue(*aType);
}

std::optional<UserProfileElement> UserProfileElement::fromJSON(const JSONDictionary& dictionary) {
    std::optional<UserProfileElement> entry(std::in_place);
    archiveFields(*entry, FieldReader(dictionary));
    return entry;
}

std::optional<UserProfileElement> UserProfileElement::fromJSON(const JSONDictionary& dictionary,
                                                               const DateFormatter& formatter) {
    std::optional<UserProfileElement> entry(std::in_place);
    entry->read(dictionary, formatter);
    return entry;
}

void UserProfileElement::read(const JSONDictionary& dictionary, const DateFormatter& formatter) {
    allFields(*this, FieldReader(dictionary), formatter);
}

std::optional<UserProfileElement> UserProfileElement::fromEncoded(
    const JSONDictionary& dictionary) {
    return fromJSON(dictionary);
}

std::optional<UserProfileElement> UserProfileElement::fromEncoded(const JSONDictionary& dictionary,
                                                                  const DateFormatter& formatter) {
    return fromJSON(dictionary, formatter);
}

std::optional<JSONDictionary> UserProfileElement::serialized() const {
    JSONDictionary dictionary;
    requestFields(*this, FieldWriter(dictionary));
    return dictionary;
}

JSONDictionary UserProfileElement::encode() const {
    JSONDictionary dictionary;
    archiveFields(*this, FieldWriter(dictionary));
    return dictionary;
}

JSONDictionary UserProfileElement::encode(const DateFormatter& formatter) const {
    JSONDictionary dictionary;
    allFields(*this, FieldWriter(dictionary), formatter);
    return dictionary;
}

std::string UserProfileElement::description() const {
    std::string text = "\nUserProfileElement: {\n";
    text += "id: " + debugText(id) + "\n";
    text += "type: " + debugText(type) + "\n";
    text += "progress: " + debugText(progress) + "\n";
    text += "isCompleted: " + debugText(isCompleted) + "\n";
    text += "autoAddTimestamp: " + debugText(autoAddTimestamp) + " }\n";
    return text;
}

bool operator==(const UserProfileElement& left, const UserProfileElement& right) {
    return left.id == right.id && left.isCompleted == right.isCompleted &&
           left.progress == right.progress && left.type == right.type &&
           written(left.autoAddTimestamp) == written(right.autoAddTimestamp);
}

}  // namespace KestrinProfile
