// The readers of records, and their archives.

#include <optional>
#include <string>
#include <variant>

#include <HalvardSling/json/JSONDictionary.hpp>
#include <KestrinConfigManager/AnonymousBind.hpp>
#include <KestrinProfile/model/User.hpp>
#include <KestrinProfile/model/UserProfile.hpp>
#include <KestrinProfile/model/UserProfileElement.hpp>

#include "fuzz/Expect.hpp"

namespace {

using Fuzz::expect;
using HalvardSling::JSONDictionary;
using KestrinConfigManager::AnonymousBind;
using KestrinProfile::DateFormatter;
using KestrinProfile::User;
using KestrinProfile::UserProfile;
using KestrinProfile::UserProfileElement;

/// What a dictionary is after it was written and read.
JSONDictionary stored(const JSONDictionary& dictionary) {
    return std::get<JSONDictionary>(JSONDictionary::parse(std::string_view(dictionary.toJSON())));
}

template <class Record>
void archive(const Record& record) {
    const auto again = Record::fromEncoded(stored(record.encode()));
    expect(again && *again == record, "an archive gives the same record");
    expect(again->encode() == record.encode(), "and the same archive");
}

void readUser(const JSONDictionary& dictionary) {
    const auto user = User::fromJSON(dictionary);
    expect(user.has_value(), "a user is always read");
    expect(user->username.has_value() == dictionary.text("username").has_value(),
           "a field is there if it is a text");
    const auto again = User::fromEncoded(stored(user->encode()));
    expect(again && again->encode() == user->encode(), "an archive gives the same user");
}

void readEntry(const JSONDictionary& dictionary) {
    const DateFormatter& formatter = DateFormatter::iso8601();
    const auto entry = UserProfileElement::fromJSON(dictionary, formatter);
    expect(entry.has_value(), "an entry is always read");
    expect(entry->progress == dictionary.integer("progress"), "a field is there if it is one");
    const auto again = UserProfileElement::fromEncoded(stored(entry->encode(formatter)), formatter);
    expect(again && *again == *entry, "an archive gives the same entry");
    expect(!entry->description().empty(), "an entry can be described");
}

void readList(const JSONDictionary& dictionary) {
    const auto list = UserProfile::fromJSON(dictionary);
    expect(list.has_value(), "a list is always read");
    const auto items = dictionary.dictionaries("elements");
    expect(list->elements.has_value() == items.has_value(), "its entries are there if all are");
    if (items) expect(list->elements->size() == items->size(), "as many as there were");
    expect(!list->description().empty(), "a list can be described");
    archive(*list);
}

void readBind(const JSONDictionary& dictionary) {
    const auto bind = AnonymousBind::fromJSON(dictionary);
    if (!bind) return;
    const bool isValid = bind->isValid(AnonymousBind::Clock::time_point());
    expect(!isValid || (!bind->token.empty() && !bind->profileID.empty()),
           "a valid bind has both texts");
    archive(*bind);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto parsed = JSONDictionary::parse(Fuzz::textOf(data, size));
    const auto* const dictionary = std::get_if<JSONDictionary>(&parsed);
    if (dictionary == nullptr) return 0;
    readUser(*dictionary);
    readEntry(*dictionary);
    readList(*dictionary);
    readBind(*dictionary);
    return 0;
}
