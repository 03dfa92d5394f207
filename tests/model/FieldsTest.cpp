#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>

#include <KestrinProfile/model/internal/Fields.hpp>

#include "model/RecordSupport.hpp"

namespace KestrinProfile {
namespace {

using HalvardSling::JSONDictionary;
using internal::FieldReader;
using internal::FieldWriter;
using TestSupport::dictionary;
using TestSupport::someDate;

constexpr auto lowest = std::numeric_limits<std::int64_t>::min();
constexpr auto highest = std::numeric_limits<std::int64_t>::max();

/// A value as it stands in a JSON text, and what a field of each type takes from it.
struct Row {
    std::string_view value;
    std::optional<std::string> text = {};
    std::optional<std::int64_t> integer = {};
    std::optional<bool> boolean = {};
    std::optional<Date> date = {};
};

const std::vector<Row> rows{
    {.value = "null"},
    {.value = "true", .boolean = true},
    {.value = "false", .boolean = false},
    {.value = "0", .integer = 0},
    {.value = "-0", .integer = 0},
    {.value = "1", .integer = 1},
    {.value = "-42", .integer = -42},
    {.value = "-9223372036854775808", .integer = lowest},
    {.value = "9223372036854775807", .integer = highest},
    {.value = "9223372036854775808"},
    {.value = "18446744073709551615"},
    {.value = "18446744073709551616"},
    {.value = "-9223372036854775809"},
    {.value = "1.0"},
    {.value = "0.0"},
    {.value = "1e3"},
    {.value = "1.5"},
    {.value = R"("")", .text = ""},
    {.value = R"("10")", .text = "10"},
    {.value = R"("true")", .text = "true"},
    {.value = R"("false")", .text = "false"},
    {.value = R"("null")", .text = "null"},
    {.value = R"("a\u0000b")", .text = std::string("a\0b", 3)},
    {.value = R"("2017-03-09T18:25:43.511Z")",
     .text = "2017-03-09T18:25:43.511Z",
     .date = someDate},
    {.value = R"("2017-03-09T18:25:43Z")", .text = "2017-03-09T18:25:43Z"},
    {.value = "[]"},
    {.value = R"(["text"])"},
    {.value = "[1]"},
    {.value = "[true]"},
    {.value = "{}"},
    {.value = R"({"key": "text"})"},
};

TEST(FieldReaderTest, TakesExactlyTheKindOfTheField) {
    for (const auto& row : rows) {
        SCOPED_TRACE(row.value);
        const auto from = dictionary("{\"key\": " + std::string(row.value) + "}");
        const FieldReader read(from);

        // What was in the field before does not stay.
        std::optional<std::string> text = "before";
        std::optional<std::int64_t> integer = 7;
        std::optional<bool> boolean = true;
        bool flag = true;
        std::optional<Date> date = Date();
        read("key", text);
        read("key", integer);
        read("key", boolean);
        read("key", flag);
        read("key", date, DateFormatter::iso8601());

        EXPECT_EQ(text, row.text);
        EXPECT_EQ(integer, row.integer);
        EXPECT_EQ(boolean, row.boolean);
        EXPECT_EQ(flag, row.boolean.value_or(false));
        EXPECT_EQ(date, row.date);
    }
}

TEST(FieldReaderTest, TakesNothingFromAnotherKey) {
    const auto from = dictionary(R"({"Key": "text", "key ": 1, "ke": true})");
    std::optional<std::string> text = "before";
    std::optional<std::int64_t> integer = 7;
    bool flag = true;
    const FieldReader read(from);
    read("key", text);
    read("key", integer);
    read("key", flag);
    EXPECT_EQ(text, std::nullopt);
    EXPECT_EQ(integer, std::nullopt);
    EXPECT_FALSE(flag);
}

TEST(FieldWriterTest, WritesPresentFieldsInOrder) {
    JSONDictionary to;
    const FieldWriter write(to);
    write("text", std::optional<std::string>("a\"b"));
    write("integer", std::optional<std::int64_t>(lowest));
    write("boolean", std::optional<bool>(false));
    write("flag", true);
    write("date", std::optional<Date>(someDate), DateFormatter::iso8601());
    EXPECT_EQ(to.toJSON(),
              R"({"text":"a\"b","integer":-9223372036854775808,"boolean":false,"flag":true,)"
              R"("date":"2017-03-09T18:25:43.511Z"})");
}

TEST(FieldWriterTest, LeavesNoKeyForAbsentFields) {
    std::optional<std::string> text;
    std::optional<std::int64_t> integer;
    std::optional<bool> boolean;
    std::optional<Date> date;
    const JSONDictionary nothing;
    const FieldReader read(nothing);
    read("text", text);
    read("integer", integer);
    read("boolean", boolean);
    read("date", date, DateFormatter::iso8601());

    JSONDictionary to;
    const FieldWriter write(to);
    write("text", text);
    write("integer", integer);
    write("boolean", boolean);
    write("date", date, DateFormatter::iso8601());
    EXPECT_TRUE(to.empty()) << to.toJSON();
}

}  // namespace
}  // namespace KestrinProfile
