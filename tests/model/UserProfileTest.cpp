#include <chrono>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>

#include <KestrinConfigManager/Archivable.hpp>
#include <KestrinConfigManager/Serializable.hpp>
#include <KestrinProfile/model/UserProfile.hpp>

#include "model/RecordSupport.hpp"

namespace KestrinProfile {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;
using TestSupport::dictionary;
using TestSupport::someDate;

static_assert(KestrinConfigManager::SerializableRecord<UserProfile>);
static_assert(KestrinConfigManager::Archivable<UserProfile>);
static_assert(!std::is_default_constructible_v<UserProfile>, "only its readers make one");

UserProfile listOf(std::string_view json) {
    return *UserProfile::fromJSON(dictionary(json));
}

TEST(UserProfileTest, KeysAreTheWireNames) {
    EXPECT_STREQ(UserProfile::Keys::id, "id");
    EXPECT_STREQ(UserProfile::Keys::maxSize, "maxSize");
    EXPECT_STREQ(UserProfile::Keys::elements, "elements");
}

TEST(UserProfileTest, ReadsNothingFromAnEmptyDictionary) {
    for (const auto& list : {UserProfile::fromJSON({}), UserProfile::fromEncoded({})}) {
        ASSERT_TRUE(list);
        EXPECT_EQ(list->id, std::nullopt);
        EXPECT_EQ(list->maxSize, std::nullopt);
        EXPECT_EQ(list->elements, std::nullopt);
    }
}

constexpr std::string_view fullJSON =
    R"({"id":"h1","maxSize":50,"elements":[)"
    R"({"id":"2","type":"VIDEO","progress":10,"isCompleted":false,)"
    R"("autoAddTimestamp":"2017-03-09T18:25:43.511Z"},{"id":"1"},{}]})";

TEST(UserProfileTest, ReadsAllFieldsInOrder) {
    const auto from = dictionary(fullJSON);
    for (const auto& list : {UserProfile::fromJSON(from), UserProfile::fromEncoded(from)}) {
        ASSERT_TRUE(list);
        EXPECT_EQ(list->id, "h1");
        EXPECT_EQ(list->maxSize, 50);
        EXPECT_THAT(list->elements,
                    Optional(ElementsAre(UserProfileElement("2", Types::video, 10, false, someDate),
                                         UserProfileElement("1"), UserProfileElement())));
    }
}

TEST(UserProfileTest, ReadsAnEntryWhateverIsInIt) {
    const auto list = listOf(R"({"elements": [{"id": 1, "x": {"elements": []}}, {"id": "2"}]})");
    EXPECT_THAT(list.elements,
                Optional(ElementsAre(UserProfileElement(), UserProfileElement("2"))));
}

TEST(UserProfileTest, AnEmptyListIsPresent) {
    const auto list = listOf(R"({"elements": []})");
    EXPECT_THAT(list.elements, Optional(IsEmpty()));
    EXPECT_EQ(list.encode().toJSON(), R"({"elements":[]})");
}

TEST(UserProfileTest, OneItemThatIsNoObjectDropsTheWholeList) {
    for (const std::string_view elements :
         {R"([{"id": "1"}, 1])", R"([1, {"id": "1"}])", R"([{"id": "1"}, null])", R"(["1"])",
          R"([[{"id": "1"}]])", R"({"id": "1"})", "null", R"("[]")", "true", "0"}) {
        const auto list =
            listOf(R"({"id": "h1", "elements": )" + std::string(elements) + R"(, "maxSize": 5})");
        EXPECT_EQ(list.elements, std::nullopt) << elements;
        EXPECT_EQ(list.encode().toJSON(), R"({"id":"h1","maxSize":5})");
    }
}

TEST(UserProfileTest, LeavesOutWhatHasTheWrongKind) {
    EXPECT_EQ(listOf(R"({"id": 1, "maxSize": "50"})"), *UserProfile::fromJSON({}));
    EXPECT_EQ(listOf(R"({"id": null, "maxSize": 50.0})"), *UserProfile::fromJSON({}));
    EXPECT_EQ(listOf(R"({"maxSize": 9223372036854775808})").maxSize, std::nullopt);
    EXPECT_EQ(listOf(R"({"maxSize": 9223372036854775807})").maxSize,
              std::numeric_limits<std::int64_t>::max());
}

TEST(UserProfileTest, ArchivesWithTimestamps) {
    const auto list = listOf(fullJSON);
    EXPECT_EQ(list.encode().toJSON(), fullJSON);
    EXPECT_EQ(UserProfile::fromEncoded(list.encode()), list);
    EXPECT_EQ(UserProfile::fromEncoded(list.encode())->elements->front().autoAddTimestamp,
              someDate);
}

TEST(UserProfileTest, ArchivesNoKeyForAbsentFields) {
    EXPECT_EQ(UserProfile::fromJSON({})->encode().toJSON(), "{}");
    EXPECT_EQ(listOf(R"({"maxSize": -1})").encode().toJSON(), R"({"maxSize":-1})");
}

TEST(UserProfileTest, IsNeverSentAsAWhole) {
    EXPECT_EQ(listOf(fullJSON).serialized(), std::nullopt);
}

TEST(UserProfileTest, EqualityComparesEveryField) {
    const auto list = listOf(fullJSON);
    EXPECT_EQ(list, listOf(fullJSON));

    std::vector<UserProfile> others(7, list);
    others[0].id = "h2";
    others[1].id.reset();
    others[2].maxSize = 51;
    others[3].maxSize.reset();
    others[4].elements.reset();
    others[5].elements->pop_back();
    std::swap(others[6].elements->front(), others[6].elements->back());
    for (const auto& other : others) {
        EXPECT_NE(other, list);
        EXPECT_NE(list, other);
    }
}

TEST(UserProfileTest, AbsentEntriesDifferFromNone) {
    EXPECT_NE(listOf("{}"), listOf(R"({"elements": []})"));
    EXPECT_EQ(listOf("{}"), listOf("{}"));
    EXPECT_EQ(listOf(R"({"elements": []})"), listOf(R"({"elements": []})"));
}

TEST(UserProfileTest, ComparesEntriesByTheirMillisecond) {
    auto list = listOf(fullJSON);
    list.elements->front().autoAddTimestamp = someDate + std::chrono::microseconds(999);
    EXPECT_EQ(list, listOf(fullJSON));
    list.elements->front().autoAddTimestamp = someDate + std::chrono::milliseconds(1);
    EXPECT_NE(list, listOf(fullJSON));
}

TEST(UserProfileTest, DescribesAListWithoutEntries) {
    EXPECT_EQ(listOf(R"({"id": "h1", "maxSize": 50, "elements": []})").description(),
              "UserProfile: {id:Optional(\"h1\")\n"
              "maxSize:Optional(50)\n"
              "elements:Optional(\"[]\")\n");
    EXPECT_EQ(listOf("{}").description(),
              "UserProfile: {id:nil\n"
              "maxSize:nil\n"
              "elements:nil\n");
}

TEST(UserProfileTest, EscapesTheEntriesDescriptionsOnceMore) {
    const auto list = listOf(R"({"id": "a\"b", "elements": [
        {"id": "1\n\"2\"", "type": "VIDEO", "progress": 10, "isCompleted": true,
         "autoAddTimestamp": "2017-03-09T18:25:43.511Z"},
        {}]})");
    EXPECT_EQ(list.description(), R"(UserProfile: {id:Optional("a\"b"))"
                                  "\n"
                                  "maxSize:nil\n"
                                  R"(elements:Optional("[)"
                                  R"(\nUserProfileElement: {\n)"
                                  R"(id: Optional(\"1\\n\\\"2\\\"\")\n)"
                                  R"(type: Optional(\"VIDEO\")\n)"
                                  R"(progress: Optional(10)\n)"
                                  R"(isCompleted: Optional(true)\n)"
                                  R"(autoAddTimestamp: Optional(2017-03-09 18:25:43 +0000) }\n)"
                                  R"(, )"
                                  R"(\nUserProfileElement: {\n)"
                                  R"(id: nil\n)"
                                  R"(type: nil\n)"
                                  R"(progress: nil\n)"
                                  R"(isCompleted: nil\n)"
                                  R"(autoAddTimestamp: nil }\n)"
                                  R"(]"))"
                                  "\n");
}

}  // namespace
}  // namespace KestrinProfile
