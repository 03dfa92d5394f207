#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <rapidcheck.h>

#include <KestrinProfile/model/User.hpp>
#include <KestrinProfile/model/UserProfile.hpp>
#include <KestrinProfile/model/UserProfileElement.hpp>

// Generators of records, and of JSON that has little to do with them.

namespace TestSupport {

/// A value, or in one of three cases none.
template <class Value>
rc::Gen<std::optional<Value>> maybe(const rc::Gen<Value>& generator) {
    return rc::gen::oneOf(
        rc::gen::just(std::optional<Value>()),
        rc::gen::map(generator, [](Value value) { return std::optional<Value>(value); }),
        rc::gen::map(generator, [](Value value) { return std::optional<Value>(value); }));
}

/// Texts in UTF-8, with everything that JSON and descriptions escape.
inline rc::Gen<std::string> text() {
    const auto character = rc::gen::elementOf(std::vector<std::string>{"a",
                                                                       "B",
                                                                       "7",
                                                                       " ",
                                                                       "\"",
                                                                       "\\",
                                                                       "/",
                                                                       "'",
                                                                       "\n",
                                                                       "\t",
                                                                       "\x01",
                                                                       "\x7F",
                                                                       std::string(1, '\0'),
                                                                       "%",
                                                                       "&",
                                                                       "<",
                                                                       "{",
                                                                       "\xC3\xA9",
                                                                       "\xE2\x82\xAC",
                                                                       "\xF0\x9F\x8E\xAC"});
    return rc::gen::map(rc::gen::container<std::vector<std::string>>(character),
                        [](const std::vector<std::string>& characters) {
                            std::string all;
                            for (const auto& each : characters)
                                all += each;
                            return all;
                        });
}

/// Any date of the years 0001 to 9999, to the microsecond.
inline rc::Gen<KestrinProfile::Date> date() {
    using std::chrono::microseconds;
    using std::chrono::sys_days;
    constexpr microseconds first = sys_days(std::chrono::year(1) / 1 / 1).time_since_epoch();
    constexpr microseconds end = sys_days(std::chrono::year(10000) / 1 / 1).time_since_epoch();
    return rc::gen::map(rc::gen::inRange(first.count(), end.count()), [](std::int64_t count) {
        return KestrinProfile::Date(microseconds(count));
    });
}

inline KestrinProfile::UserProfileElement arbitraryEntry() {
    KestrinProfile::UserProfileElement entry;
    entry.id = *maybe(text());
    entry.type = *maybe(text());
    entry.progress = *maybe(rc::gen::arbitrary<std::int64_t>());
    entry.isCompleted = *maybe(rc::gen::arbitrary<bool>());
    entry.autoAddTimestamp = *maybe(date());
    return entry;
}

inline KestrinProfile::User arbitraryUser() {
    KestrinProfile::User user("", *maybe(text()), *maybe(text()), *maybe(text()),
                              *rc::gen::arbitrary<bool>());
    user.profileID = *maybe(text());
    return user;
}

inline KestrinProfile::UserProfile arbitraryList() {
    auto list = *KestrinProfile::UserProfile::fromJSON({});
    list.id = *maybe(text());
    list.maxSize = *maybe(rc::gen::arbitrary<std::int64_t>());
    if (*rc::gen::inRange(0, 4) == 0) return list;
    list.elements.emplace();
    for (int count = *rc::gen::inRange(0, 5); count > 0; --count)
        list.elements->push_back(arbitraryEntry());
    return list;
}

inline std::string arbitraryObject(int depth);

/// The JSON text of any value: of the kind that a reader wants, of a kind close to it, or nested.
inline std::string arbitraryValue(int depth) {
    static const std::vector<std::string> leaves{"null",
                                                 "true",
                                                 "false",
                                                 "0",
                                                 "-7",
                                                 "1.0",
                                                 "1e3",
                                                 "9223372036854775807",
                                                 "9223372036854775808",
                                                 "18446744073709551616",
                                                 R"("")",
                                                 R"("VIDEO")",
                                                 R"("\u0000\"\\")",
                                                 R"("2017-03-09T18:25:43.511Z")",
                                                 R"("2017-03-09T18:25:43Z")",
                                                 R"("true")",
                                                 "[]",
                                                 "{}"};
    const int form = *rc::gen::inRange(0, depth > 0 ? 4 : 2);
    if (form < 2) return *rc::gen::elementOf(leaves);
    if (form == 2) return arbitraryObject(depth - 1);
    std::string array = "[";
    for (int count = *rc::gen::inRange(0, 4); count > 0; --count)
        array +=
            (array.size() > 1 ? "," : "") +
            (*rc::gen::inRange(0, 5) == 0 ? arbitraryValue(depth - 1) : arbitraryObject(depth - 1));
    return array + "]";
}

/// The JSON text of an object, whose keys are those of the records and others.
inline std::string arbitraryObject(int depth) {
    static const std::vector<std::string> keys{"id",
                                               "type",
                                               "progress",
                                               "isCompleted",
                                               "autoAddTimestamp",
                                               "maxSize",
                                               "elements",
                                               "profileId",
                                               "username",
                                               "avatar",
                                               "group",
                                               "default",
                                               "other",
                                               "",
                                               "ID",
                                               "profileID"};
    std::string object = "{";
    for (int count = *rc::gen::inRange(0, 8); count > 0; --count)
        object += (object.size() > 1 ? ",\"" : "\"") + *rc::gen::elementOf(keys) +
                  "\":" + arbitraryValue(depth);
    return object + "}";
}

}  // namespace TestSupport
