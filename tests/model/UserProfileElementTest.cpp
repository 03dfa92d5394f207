#include <chrono>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>

#include <KestrinConfigManager/Archivable.hpp>
#include <KestrinConfigManager/Serializable.hpp>
#include <KestrinProfile/model/UserProfileElement.hpp>

#include "model/RecordSupport.hpp"

namespace KestrinProfile {
namespace {

using HalvardSling::JSONDictionary;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using TestSupport::dictionary;
using TestSupport::someDate;

static_assert(KestrinConfigManager::SerializableRecord<UserProfileElement>);
static_assert(KestrinConfigManager::Archivable<UserProfileElement>);

const DateFormatter& iso8601 = DateFormatter::iso8601();

UserProfileElement fullEntry() {
    return UserProfileElement("123", Types::video, 10, false, someDate);
}

constexpr std::string_view fullJSON =
    R"({"id":"123","type":"VIDEO","progress":10,"isCompleted":false,)"
    R"("autoAddTimestamp":"2017-03-09T18:25:43.511Z"})";

UserProfileElement withoutTimestamp(UserProfileElement entry) {
    entry.autoAddTimestamp.reset();
    return entry;
}

void expectNothingIn(const std::optional<UserProfileElement>& entry) {
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->id, std::nullopt);
    EXPECT_EQ(entry->type, std::nullopt);
    EXPECT_EQ(entry->progress, std::nullopt);
    EXPECT_EQ(entry->isCompleted, std::nullopt);
    EXPECT_EQ(entry->autoAddTimestamp, std::nullopt);
}

/// What each of the four readers makes of a dictionary.
std::vector<std::optional<UserProfileElement>> readByAll(const JSONDictionary& from) {
    return {UserProfileElement::fromJSON(from), UserProfileElement::fromEncoded(from),
            UserProfileElement::fromJSON(from, iso8601),
            UserProfileElement::fromEncoded(from, iso8601)};
}

TEST(UserProfileElementTest, KeysAreTheWireNames) {
    EXPECT_STREQ(UserProfileElement::Keys::id, "id");
    EXPECT_STREQ(UserProfileElement::Keys::type, "type");
    EXPECT_STREQ(UserProfileElement::Keys::progress, "progress");
    EXPECT_STREQ(UserProfileElement::Keys::isCompleted, "isCompleted");
    EXPECT_STREQ(UserProfileElement::Keys::autoAddTimestamp, "autoAddTimestamp");
}

TEST(UserProfileElementTest, MadeWithAnySubset) {
    expectNothingIn(UserProfileElement());
    expectNothingIn(UserProfileElement(std::nullopt));
    EXPECT_EQ(UserProfileElement("1").id, "1");
    EXPECT_EQ(UserProfileElement("1", Types::show).progress, std::nullopt);
    EXPECT_EQ(UserProfileElement(std::nullopt, std::nullopt, 5).progress, 5);

    const auto entry = fullEntry();
    EXPECT_EQ(entry.id, "123");
    EXPECT_EQ(entry.type, "VIDEO");
    EXPECT_EQ(entry.progress, 10);
    EXPECT_EQ(entry.isCompleted, false);
    EXPECT_EQ(entry.autoAddTimestamp, someDate);
}

TEST(UserProfileElementTest, KeepsTheWireFormOfAKind) {
    EXPECT_EQ(UserProfileElement("1", Types::show).type, "SHOW");
    EXPECT_EQ(UserProfileElement("1", Types::video).type, "VIDEO");
    EXPECT_EQ(UserProfileElement("1", Types::game).type, "GAME");
    EXPECT_EQ(UserProfileElement("1", Types::collection).type, "COLLECTION");
    EXPECT_EQ(UserProfileElement("1", Types::none).type, "none");
    EXPECT_EQ(UserProfileElement("1", std::nullopt).type, std::nullopt);
    EXPECT_EQ(UserProfileElement(std::nullopt, Types::none).serialized()->toJSON(),
              R"({"type":"none"})");
}

TEST(UserProfileElementTest, ReadsNothingFromAnEmptyDictionary) {
    for (const auto& entry : readByAll({}))
        expectNothingIn(entry);
}

TEST(UserProfileElementTest, LeavesOutWhatHasTheWrongKind) {
    const auto from = dictionary(R"({"id": 1, "type": null, "progress": "10",
                                     "isCompleted": "true", "autoAddTimestamp": 1489083943511})");
    for (const auto& entry : readByAll(from))
        expectNothingIn(entry);
    const auto numbers = dictionary(R"({"progress": 10.0, "isCompleted": 1})");
    for (const auto& entry : readByAll(numbers))
        expectNothingIn(entry);
}

TEST(UserProfileElementTest, KeepsAnUnknownKind) {
    for (const auto& entry : readByAll(dictionary(R"({"type": "MOVIE"})")))
        EXPECT_EQ(entry->type, "MOVIE");
}

TEST(UserProfileElementTest, ReadsTheTimestampOnlyWithAFormatter) {
    const auto from = dictionary(fullJSON);
    EXPECT_EQ(UserProfileElement::fromJSON(from), withoutTimestamp(fullEntry()));
    EXPECT_EQ(UserProfileElement::fromEncoded(from), withoutTimestamp(fullEntry()));
    EXPECT_EQ(UserProfileElement::fromJSON(from, iso8601), fullEntry());
    EXPECT_EQ(UserProfileElement::fromEncoded(from, iso8601), fullEntry());
}

TEST(UserProfileElementTest, ATextThatIsNoDateLeavesTheTimestampAbsent) {
    for (const std::string text : {"2017-03-09T18:25:43Z", "2017-03-09 18:25:43", "", "now"}) {
        const auto from = dictionary(R"({"id": "1", "autoAddTimestamp": ")" + text + R"("})");
        const auto entry = UserProfileElement::fromJSON(from, iso8601);
        ASSERT_TRUE(entry);
        EXPECT_EQ(entry->id, "1");
        EXPECT_EQ(entry->autoAddTimestamp, std::nullopt) << text;
    }
}

TEST(UserProfileElementTest, WritesAnOffsetBackInUTC) {
    const auto from = dictionary(R"({"autoAddTimestamp": "2017-03-09T20:25:43.511+02:00"})");
    const auto entry = UserProfileElement::fromJSON(from, iso8601);
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->autoAddTimestamp, someDate);
    EXPECT_EQ(entry->encode(iso8601).toJSON(),
              R"({"autoAddTimestamp":"2017-03-09T18:25:43.511Z"})");
}

/// Dates as a count of seconds, to see that the given formatter is the one that is used.
class SecondsFormatter final : public DateFormatter {
  public:
    [[nodiscard]] std::string text(Date date) const override {
        return std::to_string(date.time_since_epoch() / std::chrono::seconds(1));
    }
    [[nodiscard]] std::optional<Date> date(std::string_view text) const override {
        return Date(std::chrono::seconds(std::stol(std::string(text))));
    }
};

TEST(UserProfileElementTest, UsesTheGivenFormatter) {
    const SecondsFormatter formatter;
    const Date date(std::chrono::seconds(1489083943));
    const UserProfileElement entry("1", std::nullopt, std::nullopt, std::nullopt, date);
    EXPECT_EQ(entry.encode(formatter).toJSON(), R"({"id":"1","autoAddTimestamp":"1489083943"})");
    EXPECT_EQ(UserProfileElement::fromJSON(entry.encode(formatter), formatter), entry);
    EXPECT_EQ(UserProfileElement::fromEncoded(entry.encode(formatter), formatter), entry);
}

TEST(UserProfileElementTest, WritesItsThreeForms) {
    const auto entry = fullEntry();
    EXPECT_EQ(entry.serialized()->toJSON(), R"({"id":"123","type":"VIDEO"})");
    EXPECT_EQ(entry.encode().toJSON(),
              R"({"id":"123","type":"VIDEO","progress":10,"isCompleted":false})");
    EXPECT_EQ(entry.encode(iso8601).toJSON(), fullJSON);
}

TEST(UserProfileElementTest, LeavesAbsentFieldsOutOfEveryForm) {
    const UserProfileElement nothing;
    ASSERT_TRUE(nothing.serialized());
    EXPECT_EQ(nothing.serialized()->toJSON(), "{}");
    EXPECT_EQ(nothing.encode().toJSON(), "{}");
    EXPECT_EQ(nothing.encode(iso8601).toJSON(), "{}");

    const UserProfileElement watched(std::nullopt, std::nullopt, 0, true);
    EXPECT_EQ(watched.serialized()->toJSON(), "{}");
    EXPECT_EQ(watched.encode().toJSON(), R"({"progress":0,"isCompleted":true})");
    EXPECT_EQ(watched.encode(iso8601).toJSON(), watched.encode().toJSON());
}

TEST(UserProfileElementTest, CarriesAllOf64Bits) {
    for (const auto progress :
         {std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()}) {
        const UserProfileElement entry("1", Types::video, progress);
        EXPECT_EQ(UserProfileElement::fromEncoded(dictionary(entry.encode().toJSON())), entry);
    }
}

TEST(UserProfileElementTest, EqualityComparesEveryField) {
    const auto entry = fullEntry();
    EXPECT_EQ(entry, fullEntry());

    std::vector<UserProfileElement> others(9, entry);
    others[0].id = "124";
    others[1].id.reset();
    others[2].type = "video";
    others[3].type.reset();
    others[4].progress = 11;
    others[5].progress.reset();
    others[6].isCompleted = true;
    others[7].isCompleted.reset();
    others[8].autoAddTimestamp.reset();
    for (const auto& other : others) {
        EXPECT_NE(other, entry);
        EXPECT_NE(entry, other);
    }
}

UserProfileElement entryAt(Date date) {
    return UserProfileElement("1", Types::video, 1, true, date);
}

TEST(UserProfileElementTest, TimestampsWithinAMillisecondAreEqual) {
    const std::vector<Date> millisecondStarts{
        someDate, Date(), Date(milliseconds(-1)),
        Date(std::chrono::sys_days(std::chrono::year(1) / 1 / 1)),
        Date(std::chrono::sys_days(std::chrono::year(9999) / 12 / 31))};
    for (const Date start : millisecondStarts) {
        EXPECT_EQ(entryAt(start), entryAt(start + microseconds(1)));
        EXPECT_EQ(entryAt(start), entryAt(start + microseconds(999)));
        EXPECT_NE(entryAt(start), entryAt(start - microseconds(1)));
        EXPECT_NE(entryAt(start), entryAt(start + milliseconds(1)));
        EXPECT_NE(entryAt(start), entryAt(start - milliseconds(1)));
    }
}

TEST(UserProfileElementTest, TimestampsAreEqualExactlyWhereTheirTextsAre) {
    for (int left = -3000; left <= 3000; left += 250)
        for (int right = -3000; right <= 3000; right += 250) {
            const Date a(microseconds{left});
            const Date b(microseconds{right});
            EXPECT_EQ(entryAt(a) == entryAt(b), iso8601.text(a) == iso8601.text(b))
                << left << " " << right;
        }
}

TEST(UserProfileElementTest, DescribesAnEntry) {
    EXPECT_EQ(withoutTimestamp(fullEntry()).description(),
              "\nUserProfileElement: {\n"
              "id: Optional(\"123\")\n"
              "type: Optional(\"VIDEO\")\n"
              "progress: Optional(10)\n"
              "isCompleted: Optional(false)\n"
              "autoAddTimestamp: nil }\n");
    EXPECT_EQ(fullEntry().description(),
              "\nUserProfileElement: {\n"
              "id: Optional(\"123\")\n"
              "type: Optional(\"VIDEO\")\n"
              "progress: Optional(10)\n"
              "isCompleted: Optional(false)\n"
              "autoAddTimestamp: Optional(2017-03-09 18:25:43 +0000) }\n");
}

TEST(UserProfileElementTest, DescribesAnEmptyEntry) {
    EXPECT_EQ(UserProfileElement().description(),
              "\nUserProfileElement: {\n"
              "id: nil\n"
              "type: nil\n"
              "progress: nil\n"
              "isCompleted: nil\n"
              "autoAddTimestamp: nil }\n");
}

TEST(UserProfileElementTest, EscapesTextsInTheDescription) {
    UserProfileElement entry("a\"b\\c\n\x01");
    entry.type = "it's \xC3\xA9";
    EXPECT_EQ(entry.description(),
              "\nUserProfileElement: {\n"
              "id: Optional(\"a\\\"b\\\\c\\n\\u{01}\")\n"
              "type: Optional(\"it\\'s \xC3\xA9\")\n"
              "progress: nil\n"
              "isCompleted: nil\n"
              "autoAddTimestamp: nil }\n");
}

}  // namespace
}  // namespace KestrinProfile
