#include <utility>

#include <HalvardMorrow/OptionalSequences.hpp>
#include <KestrinConfigManager/Archivable.hpp>
#include <KestrinProfile/model/UserProfile.hpp>
#include <KestrinProfile/model/internal/DebugText.hpp>
#include <KestrinProfile/model/internal/Fields.hpp>

namespace KestrinProfile {

using HalvardSling::JSONDictionary;
using internal::debugText;
using internal::FieldReader;
using internal::FieldWriter;

static_assert(KestrinConfigManager::SerializableRecord<UserProfile>);
static_assert(KestrinConfigManager::Archivable<UserProfile>);

namespace {

using Keys = UserProfile::Keys;
using Elements = std::vector<UserProfileElement>;

void plainFields(auto& list, const auto& field) {
    field(Keys::id, list.id);
    field(Keys::maxSize, list.maxSize);
}

std::vector<JSONDictionary> encoded(const Elements& elements) {
    std::vector<JSONDictionary> items;
    items.reserve(elements.size());
    for (const auto& entry : elements)
        items.push_back(entry.encode(DateFormatter::iso8601()));
    return items;
}

std::string listText(const Elements& elements) {
    std::string text = "[";
    for (const auto& entry : elements) {
        if (text.size() > 1) text += ", ";
        text += entry.description();
    }
    return text + "]";
}

}  // namespace

std::optional<UserProfile> UserProfile::fromJSON(const JSONDictionary& dictionary) {
    UserProfile list;
    plainFields(list, FieldReader(dictionary));
    list.readElements(dictionary);
    return list;
}

void UserProfile::readElements(const JSONDictionary& dictionary) {
    const auto items = dictionary.dictionaries(Keys::elements);
    if (!items) return;
    const DateFormatter& formatter = DateFormatter::iso8601();
    elements.emplace().reserve(items->size());
    for (const JSONDictionary& item : *items)
        elements->emplace_back().read(item, formatter);
}

std::optional<UserProfile> UserProfile::fromEncoded(const JSONDictionary& dictionary) {
    return fromJSON(dictionary);
}

JSONDictionary UserProfile::encode() const {
    JSONDictionary dictionary;
    plainFields(*this, FieldWriter(dictionary));
    if (elements) dictionary.setDictionaries(Keys::elements, encoded(*elements));
    return dictionary;
}

std::string UserProfile::description() const {
    std::optional<std::string> list;
    if (elements) list = listText(*elements);
    std::string text = "UserProfile: {";
    text += "id:" + debugText(id) + "\n";
    text += "maxSize:" + debugText(maxSize) + "\n";
    text += "elements:" + debugText(list) + "\n";
    return text;
}

bool operator==(const UserProfile& left, const UserProfile& right) {
    return left.id == right.id && left.maxSize == right.maxSize &&
           HalvardMorrow::equal(left.elements, right.elements);
}

}  // namespace KestrinProfile
