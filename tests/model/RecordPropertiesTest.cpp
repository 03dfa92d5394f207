#include <algorithm>
#include <chrono>
#include <initializer_list>
#include <optional>
#include <string_view>

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include <KestrinProfile/model/User.hpp>
#include <KestrinProfile/model/UserProfile.hpp>
#include <KestrinProfile/model/UserProfileElement.hpp>

#include "model/Generators.hpp"
#include "model/RecordSupport.hpp"

namespace KestrinProfile {
namespace {

using HalvardSling::JSONDictionary;
using TestSupport::arbitraryEntry;
using TestSupport::arbitraryList;
using TestSupport::arbitraryObject;
using TestSupport::arbitraryUser;
using TestSupport::dictionary;

const DateFormatter& iso8601 = DateFormatter::iso8601();

/// The dictionary after a journey as text.
JSONDictionary sent(const JSONDictionary& original) {
    return dictionary(original.toJSON());
}

/// The entry with the time stamp that a text can carry.
UserProfileElement toTheMillisecond(UserProfileElement entry) {
    if (entry.autoAddTimestamp)
        entry.autoAddTimestamp =
            std::chrono::floor<std::chrono::milliseconds>(*entry.autoAddTimestamp);
    return entry;
}

/// Equal in every field, without the tolerance that `==` has for time stamps.
bool identical(const UserProfileElement& left, const UserProfileElement& right) {
    return left == right && left.autoAddTimestamp == right.autoAddTimestamp;
}

bool holdsOnly(const JSONDictionary& dictionary, std::initializer_list<std::string_view> keys) {
    return std::ranges::all_of(dictionary.keys(), [&](std::string_view key) {
        return std::ranges::find(keys, key) != keys.end();
    });
}

RC_GTEST_PROP(RecordProperties, AnEntrySurvivesItsArchiveWithAFormatter, ()) {
    const auto entry = arbitraryEntry();
    for (const auto& archive : {entry.encode(iso8601), sent(entry.encode(iso8601))}) {
        const auto read = UserProfileElement::fromEncoded(archive, iso8601);
        RC_ASSERT(read == entry);
        RC_ASSERT(identical(*read, toTheMillisecond(entry)));
    }
}

RC_GTEST_PROP(RecordProperties, AnEntryLosesItsTimestampWithoutAFormatter, ()) {
    const auto entry = arbitraryEntry();
    auto expected = entry;
    expected.autoAddTimestamp.reset();
    RC_ASSERT(UserProfileElement::fromEncoded(entry.encode()) == expected);
    RC_ASSERT(UserProfileElement::fromEncoded(entry.encode(), iso8601) == expected);
    RC_ASSERT(UserProfileElement::fromEncoded(entry.encode(iso8601)) == expected);
}

RC_GTEST_PROP(RecordProperties, ASentEntryIsIdentifierAndKind, ()) {
    const auto entry = arbitraryEntry();
    UserProfileElement expected(entry.id);
    expected.type = entry.type;
    RC_ASSERT(UserProfileElement::fromJSON(sent(*entry.serialized()), iso8601) == expected);
}

RC_GTEST_PROP(RecordProperties, AListSurvivesItsArchive, ()) {
    const auto list = arbitraryList();
    RC_ASSERT(UserProfile::fromEncoded(list.encode()) == list);
    const auto read = UserProfile::fromEncoded(sent(list.encode()));
    RC_ASSERT(read == list);
    for (std::size_t at = 0; list.elements && at < list.elements->size(); ++at)
        RC_ASSERT(identical(read->elements->at(at), toTheMillisecond(list.elements->at(at))));
}

RC_GTEST_PROP(RecordProperties, AUserSurvivesItsArchive, ()) {
    const auto user = arbitraryUser();
    RC_ASSERT(User::fromEncoded(user.encode()) == user);
    RC_ASSERT(User::fromEncoded(sent(user.encode())) == user);
}

RC_GTEST_PROP(RecordProperties, ASentUserLosesExactlyItsIdentifier, ()) {
    const auto user = arbitraryUser();
    auto expected = user;
    expected.profileID.reset();
    RC_ASSERT(User::fromJSON(sent(*user.serialized())) == expected);
    RC_ASSERT((User::fromJSON(*user.serialized()) == user) == !user.profileID);
}

RC_GTEST_PROP(RecordProperties, ReadersAlwaysYieldARecordThatWritesOnlyItsOwnKeys, ()) {
    const auto from = dictionary(arbitraryObject(3));

    const auto entry = UserProfileElement::fromJSON(from, iso8601);
    RC_ASSERT(entry);
    RC_ASSERT(holdsOnly(*entry->serialized(), {"id", "type"}));
    RC_ASSERT(holdsOnly(entry->encode(), {"id", "type", "progress", "isCompleted"}));
    RC_ASSERT(holdsOnly(entry->encode(iso8601),
                        {"id", "type", "progress", "isCompleted", "autoAddTimestamp"}));

    const auto user = User::fromJSON(from);
    RC_ASSERT(user);
    RC_ASSERT(holdsOnly(*user->serialized(), {"username", "avatar", "group", "default"}));
    RC_ASSERT(holdsOnly(user->encode(), {"profileId", "username", "avatar", "group", "default"}));

    const auto list = UserProfile::fromJSON(from);
    RC_ASSERT(list);
    RC_ASSERT(!list->serialized());
    RC_ASSERT(holdsOnly(list->encode(), {"id", "maxSize", "elements"}));
}

RC_GTEST_PROP(RecordProperties, BothReadersAreOne, ()) {
    const auto from = dictionary(arbitraryObject(3));
    RC_ASSERT(UserProfileElement::fromEncoded(from) == UserProfileElement::fromJSON(from));
    RC_ASSERT(UserProfileElement::fromEncoded(from, iso8601) ==
              UserProfileElement::fromJSON(from, iso8601));
    RC_ASSERT(User::fromEncoded(from) == User::fromJSON(from));
    RC_ASSERT(UserProfile::fromEncoded(from) == UserProfile::fromJSON(from));
}

RC_GTEST_PROP(RecordProperties, WhatWasReadOnceReadsAgain, ()) {
    const auto from = dictionary(arbitraryObject(3));
    const auto list = UserProfile::fromJSON(from);
    RC_ASSERT(UserProfile::fromEncoded(list->encode()) == list);
    const auto user = User::fromJSON(from);
    RC_ASSERT(User::fromEncoded(user->encode()) == user);
}

RC_GTEST_PROP(RecordProperties, EqualEntriesHaveEqualArchives, ()) {
    const auto left = arbitraryEntry();
    auto right = left;
    const auto shift = std::chrono::microseconds(*rc::gen::inRange(-1500, 1500));
    if (right.autoAddTimestamp) *right.autoAddTimestamp += shift;
    RC_ASSERT((left == right) == (left.encode(iso8601) == right.encode(iso8601)));
    RC_ASSERT((left == right) == (right == left));
    RC_ASSERT(left == left);
}

RC_GTEST_PROP(RecordProperties, DescriptionsHaveNoOtherLinesThanTheirOwn, ()) {
    const auto lines = [](const std::string& text) { return std::ranges::count(text, '\n'); };
    RC_ASSERT(lines(arbitraryEntry().description()) == 7);
    RC_ASSERT(lines(arbitraryList().description()) == 3);
}

}  // namespace
}  // namespace KestrinProfile
