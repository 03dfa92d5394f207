#include <algorithm>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <HalvardSling/json/JSONDictionary.hpp>

namespace {

using HalvardSling::JSONDictionary;
using HalvardSling::JSONFailure;
using HalvardSling::JSONKind;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

JSONDictionary parsed(std::string_view text) {
    return std::get<JSONDictionary>(JSONDictionary::parse(text));
}

JSONFailure failureOf(std::string_view text, const HalvardSling::JSONLimits& limits = {}) {
    return std::get<JSONFailure>(JSONDictionary::parse(text, limits));
}

bool accepts(std::string_view text) {
    return std::holds_alternative<JSONDictionary>(
        JSONDictionary::parse(text, {.maxDepth = 10'000}));
}

/// Every kind of value once.
constexpr std::string_view everyKind = R"({"null":null,"boolean":true,"integer":42,"number":1.5,)"
                                       R"("text":"a","array":[1],"dictionary":{"b":2}})";

TEST(JSONDictionary, GivesAValueOnlyUnderItsOwnKind) {
    const auto dictionary = parsed(everyKind);
    for (const auto key : dictionary.keys()) {
        EXPECT_EQ(dictionary.text(key).has_value(), key == "text") << key;
        EXPECT_EQ(dictionary.integer(key).has_value(), key == "integer") << key;
        EXPECT_EQ(dictionary.boolean(key).has_value(), key == "boolean") << key;
        EXPECT_EQ(dictionary.dictionary(key).has_value(), key == "dictionary") << key;
        EXPECT_FALSE(dictionary.dictionaries(key).has_value()) << key;
        EXPECT_FALSE(dictionary.texts(key).has_value()) << key;
    }
}

TEST(JSONDictionary, SaysWhichKindAValueHas) {
    const auto dictionary = parsed(everyKind);
    const std::vector<std::pair<std::string_view, JSONKind>> kinds{
        {"null", JSONKind::null},
        {"boolean", JSONKind::boolean},
        {"integer", JSONKind::integer},
        {"number", JSONKind::number},
        {"text", JSONKind::text},
        {"array", JSONKind::array},
        {"dictionary", JSONKind::dictionary}};
    for (const auto& [key, kind] : kinds)
        EXPECT_EQ(dictionary.kind(key), kind) << key;
    EXPECT_EQ(dictionary.kind("missing"), std::nullopt);
}

TEST(JSONDictionary, NamesEveryKindForPeople) {
    EXPECT_EQ(name(JSONKind::null), "null");
    EXPECT_EQ(name(JSONKind::integer), "an integer");
    EXPECT_EQ(name(JSONKind::dictionary), "a dictionary");
}

TEST(JSONDictionary, AnIntegerIsANumberWithoutFractionThatFits64BitsSigned) {
    const auto dictionary = parsed(
        R"({"min":-9223372036854775808,"max":9223372036854775807,"over":9223372036854775808,)"
        R"("under":-9223372036854775809,"whole":1.0,"exponent":1e3,"minusZero":-0})");
    EXPECT_EQ(dictionary.integer("min"), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(dictionary.integer("max"), std::numeric_limits<std::int64_t>::max());
    for (const auto key : {"over", "under", "whole", "exponent"}) {
        EXPECT_EQ(dictionary.integer(key), std::nullopt) << key;
        EXPECT_EQ(dictionary.kind(key), JSONKind::number) << key;
    }
    EXPECT_EQ(dictionary.integer("minusZero"), 0);
}

TEST(JSONDictionary, ABooleanIsNeitherANumberNorAText) {
    const auto dictionary = parsed(R"({"one":1,"text":"true","yes":true,"no":false})");
    EXPECT_EQ(dictionary.boolean("one"), std::nullopt);
    EXPECT_EQ(dictionary.boolean("text"), std::nullopt);
    EXPECT_EQ(dictionary.boolean("yes"), true);
    EXPECT_EQ(dictionary.boolean("no"), false);
}

TEST(JSONDictionary, DecodesEscapesInKeysAndTexts) {
    const auto dictionary =
        parsed(R"({"k\u00e9y\"":"a\n\t\\\/\"\u0041\ud83d\ude00","plain":"b","last\u0000":"c"})");
    EXPECT_EQ(dictionary.text("k\u00e9y\""), "a\n\t\\/\"A\U0001F600");
    EXPECT_EQ(dictionary.text("plain"), "b");
    EXPECT_EQ(dictionary.text(std::string_view("last\0", 5)), "c");
}

TEST(JSONDictionary, TheFirstOfEqualKeysCountsEverywhere) {
    auto dictionary = parsed(R"({"a":"first","b":{"c":1},"a":[{}],"\u0061":{"x":{}},"z":2})");
    EXPECT_EQ(dictionary.text("a"), "first");
    EXPECT_EQ(dictionary.size(), 3U);
    EXPECT_THAT(dictionary.keys(), ElementsAre("a", "b", "z"));
    EXPECT_EQ(dictionary.toJSON(), R"({"a":"first","b":{"c":1},"z":2})");
    EXPECT_EQ(dictionary.dictionary("b")->integer("c"), 1);
    EXPECT_EQ(dictionary.integer("z"), 2);
    dictionary.remove("a");
    EXPECT_EQ(dictionary.toJSON(), R"({"b":{"c":1},"z":2})");
}

TEST(JSONDictionary, ARepeatedKeyInsideAnotherValueIsDroppedToo) {
    auto dictionary = parsed(R"({"l":[{"a":1,"a":{"b":2}},{"c":3}],"d":{"e":{"f":4,"f":5}}})");
    const auto* const text = R"({"l":[{"a":1},{"c":3}],"d":{"e":{"f":4}}})";
    EXPECT_EQ(dictionary.toJSON(), text);
    dictionary.setBoolean("new", true);
    dictionary.remove("new");
    EXPECT_EQ(dictionary.toJSON(), text);
    std::vector<std::size_t> sizes;
    const auto list = *dictionary.dictionaries("l");
    for (const auto& each : list)
        sizes.push_back(each.size());
    EXPECT_THAT(sizes, ElementsAre(1, 1));
}

TEST(JSONDictionary, SaysWhichKeysTheTextRepeats) {
    auto dictionary = parsed(R"({"a":1,"b":2,"b":{},"a":3,"b":4,"c":{"d":1,"d":2}})");
    EXPECT_THAT(dictionary.repeatedKeys(), ElementsAre("b", "a"));
    EXPECT_THAT(dictionary.dictionary("c")->repeatedKeys(), ElementsAre("d"));
    EXPECT_THAT(parsed(everyKind).repeatedKeys(), IsEmpty());
    dictionary.setInteger("c", 1);
    EXPECT_THAT(dictionary.repeatedKeys(), IsEmpty());
}

TEST(JSONDictionary, EqualityIsSymmetricIfAKeyIsRepeated) {
    const auto repeated = parsed(R"({"a":1,"a":1})");
    const auto two = parsed(R"({"a":1,"b":1})");
    EXPECT_FALSE(repeated == two);
    EXPECT_FALSE(two == repeated);
    EXPECT_TRUE(repeated == parsed(R"({"a":1})"));
    EXPECT_TRUE(parsed(R"({"a":1,"a":2})") == repeated);
}

std::string manyMembers(std::uint64_t count, std::uint64_t step) {
    std::string text = "{";
    for (std::uint64_t i = 0; i < count; ++i)
        text += "\"key " + std::to_string(i * step % count) + "\":1,";
    return text + R"("key 7":2})";
}

// Each key compared with every other, these would take minutes.
TEST(JSONDictionary, ManyKeysAreReadComparedAndListed) {
    const auto dictionary = parsed(manyMembers(100'000, 1));
    EXPECT_EQ(dictionary.size(), 100'000U);
    EXPECT_EQ(dictionary.keys().size(), 100'000U);
    EXPECT_THAT(dictionary.repeatedKeys(), ElementsAre("key 7"));
    EXPECT_EQ(dictionary, parsed(manyMembers(100'000, 99'999)));
}

/// A dictionary of members in this order, their values counted up.
std::string membersOf(const std::vector<std::string>& keys) {
    std::string text = "{";
    for (std::size_t i = 0; i < keys.size(); ++i)
        text += (i > 0 ? ",\"" : "\"") + keys[i] + "\":[" + std::to_string(i) + ",{\"x\":1}]";
    return text + '}';
}

TEST(JSONDictionary, OfAnyNumberOfRepeatedKeysTheFirstCounts) {
    std::uint32_t random = 1;
    for (const std::size_t count : {2U, 3U, 5U, 31U, 32U, 33U, 34U, 100U, 1000U})
        for (const std::size_t different : {1U, 2U, 30U, 500U, 100'000U}) {
            std::vector<std::string> keys;
            for (std::size_t i = 0; i < count; ++i) {
                random = random * 1'664'525U + 1'013'904'223U;
                keys.push_back("key " + std::to_string((random >> 8U) % different));
            }
            std::vector<std::string> firsts;
            std::vector<std::string> repeated;
            std::string expected = "{";
            for (std::size_t i = 0; i < count; ++i)
                if (std::ranges::find(firsts, keys[i]) == firsts.end()) {
                    expected += (firsts.empty() ? "\"" : ",\"") + keys[i] + "\":[" +
                                std::to_string(i) + ",{\"x\":1}]";
                    firsts.push_back(keys[i]);
                } else if (std::ranges::find(repeated, keys[i]) == repeated.end()) {
                    repeated.push_back(keys[i]);
                }
            const auto dictionary = parsed(membersOf(keys));
            ASSERT_EQ(dictionary.toJSON(), expected + '}');
            ASSERT_THAT(dictionary.repeatedKeys(), testing::ElementsAreArray(repeated));
        }
}

TEST(JSONDictionary, AnArrayOfDictionariesIsGivenOnlyWhole) {
    EXPECT_EQ(parsed(R"({"a":[]})").dictionaries("a")->size(), 0U);
    EXPECT_EQ(parsed(R"({"a":[{},{"b":1}]})").dictionaries("a")->size(), 2U);
    EXPECT_FALSE(parsed(R"({"a":[{},1]})").dictionaries("a"));
    EXPECT_FALSE(parsed(R"({"a":[{},[{}]]})").dictionaries("a"));
    EXPECT_FALSE(parsed(R"({"a":{}})").dictionaries("a"));
    EXPECT_FALSE(parsed(R"({"a":null})").dictionaries("a"));
}

TEST(JSONDictionary, GoesThroughAnArrayInOrder) {
    const auto dictionary = parsed(R"({"a":[{"n":1,"in":{"x":[1,2]}},{},{"n":3}],"z":"after"})");
    const auto list = *dictionary.dictionaries("a");
    std::vector<std::optional<std::int64_t>> numbers;
    for (const auto& each : list)
        numbers.push_back(each.integer("n"));
    EXPECT_THAT(numbers, ElementsAre(1, std::nullopt, 3));
    EXPECT_EQ(dictionary.text("z"), "after");
}

TEST(JSONDictionary, WhatWasTakenOutLivesOnItsOwn) {
    JSONDictionary inner;
    JSONDictionary item;
    {
        const auto outer = parsed(R"({"a":[{"n":"first"},{"n":"second"}],"d":{"t":"text"}})");
        inner = *outer.dictionary("d");
        const auto list = *outer.dictionaries("a");
        auto place = list.begin();
        item = *++place;
    }
    EXPECT_EQ(inner.text("t"), "text");
    EXPECT_EQ(item.text("n"), "second");
}

TEST(JSONDictionary, CopiesOfAParsedOneShareItsText) {
    const auto original = parsed(R"({"a":"shared"})");
    const JSONDictionary copy = original;  // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_EQ(original.text("a")->data(), copy.text("a")->data());
}

TEST(JSONDictionary, ReadsFromTheGivenTextWithoutACopy) {
    const auto text = std::make_shared<const std::string>(R"({"a":"in place"})");
    const auto dictionary = std::get<JSONDictionary>(JSONDictionary::parse(text));
    const auto view = *dictionary.text("a");
    EXPECT_TRUE(view.data() >= text->data() && view.data() < text->data() + text->size());
}

TEST(JSONDictionary, GivesTextsOnlyOfAnArrayOfTexts) {
    EXPECT_THAT(*parsed(R"({"a":["x","y\n"]})").texts("a"), ElementsAre("x", "y\n"));
    EXPECT_THAT(*parsed(R"({"a":[]})").texts("a"), IsEmpty());
    EXPECT_FALSE(parsed(R"({"a":["x",1]})").texts("a"));
}

TEST(JSONDictionary, AnEmptyOneHasNoKeys) {
    const JSONDictionary empty;
    EXPECT_TRUE(empty.empty());
    EXPECT_THAT(empty.keys(), IsEmpty());
    EXPECT_EQ(empty.toJSON(), "{}");
    EXPECT_EQ(empty, parsed(" { } "));
}

TEST(JSONDictionary, IsBuiltAndWrittenInOrder) {
    JSONDictionary inner;
    inner.setInteger("n", -5);
    JSONDictionary outer;
    outer.setText("t", "x");
    outer.setBoolean("b", false);
    outer.setDictionary("d", inner);
    outer.setDictionaries("l", {inner, {}, inner});
    outer.setTexts("s", {"p", "q"});
    EXPECT_EQ(outer.toJSON(),
              R"({"t":"x","b":false,"d":{"n":-5},"l":[{"n":-5},{},{"n":-5}],"s":["p","q"]})");
    EXPECT_EQ(outer.dictionaries("l")->size(), 3U);
    EXPECT_EQ(outer.dictionary("d")->integer("n"), -5);
    EXPECT_THAT(outer.keys(), ElementsAre("t", "b", "d", "l", "s"));
}

TEST(JSONDictionary, SettingAKeyAgainReplacesItsValue) {
    JSONDictionary dictionary = parsed(R"({"a":{"deep":[1,{"x":2}]},"b":1,"a":"twice"})");
    dictionary.setText("a", "new");
    EXPECT_EQ(dictionary.toJSON(), R"({"b":1,"a":"new"})");
    EXPECT_EQ(dictionary.size(), 2U);
}

TEST(JSONDictionary, RemovingAKeyLeavesTheOthers) {
    JSONDictionary dictionary = parsed(R"({"a":[{"x":1},{"y":[2]}],"b":{"z":3},"c":"t"})");
    dictionary.remove("a");
    dictionary.remove("missing");
    EXPECT_EQ(dictionary.toJSON(), R"({"b":{"z":3},"c":"t"})");
    dictionary.remove("c");
    dictionary.remove("b");
    EXPECT_EQ(dictionary, JSONDictionary());
}

TEST(JSONDictionary, ChangingACopyLeavesTheOriginal) {
    const auto original = parsed(R"({"a":"b"})");
    JSONDictionary copy = original;
    copy.setText("a", "changed");
    EXPECT_EQ(original.text("a"), "b");
    JSONDictionary second = copy;
    second.remove("a");
    EXPECT_EQ(copy.text("a"), "changed");
}

TEST(JSONDictionary, CanHoldItself) {
    JSONDictionary dictionary;
    dictionary.setText("a", "b");
    dictionary.setDictionary("self", dictionary);
    EXPECT_EQ(dictionary.toJSON(), R"({"a":"b","self":{"a":"b"}})");
}

TEST(JSONDictionary, TakesItsOwnTextsAndKeysAsArguments) {
    const std::string longText(100, 'x');
    for (const bool isBuilt : {false, true}) {
        auto dictionary = parsed(R"({"a":")" + longText + R"(","b":"c","l":["m"]})");
        if (isBuilt) dictionary.remove("l");
        dictionary.setText("new", *dictionary.text("a"));
        EXPECT_EQ(dictionary.text("new"), longText);
        dictionary.setText("a", *dictionary.text("a"));
        EXPECT_EQ(dictionary.text("a"), longText);
        dictionary.setText(*dictionary.text("a"), *dictionary.text("new"));
        EXPECT_EQ(dictionary.text(longText), longText);
        dictionary.setInteger(*dictionary.text("b"), 1);
        dictionary.setBoolean(dictionary.keys().front(), true);
        dictionary.setTexts(dictionary.keys().front(), {"t"});
        dictionary.setDictionary(dictionary.keys().front(), {});
        dictionary.setDictionaries(dictionary.keys().front(), {});
        while (!dictionary.empty())
            dictionary.remove(dictionary.keys().front());
        EXPECT_EQ(dictionary.toJSON(), "{}");
    }
}

TEST(JSONDictionary, TakesItselfAndItsOwnDictionariesAsArguments) {
    auto dictionary = parsed(R"({"d":{"t":"text"},"l":[{"t":"other"}]})");
    dictionary.setDictionary("d", *dictionary.dictionary("d"));
    dictionary.setDictionary("copy", *dictionary.dictionary("d"));
    dictionary.setDictionary("l", *dictionary.dictionaries("l")->begin());
    EXPECT_EQ(dictionary.toJSON(), R"({"d":{"t":"text"},"copy":{"t":"text"},"l":{"t":"other"}})");

    std::vector<JSONDictionary> list(2, parsed(R"({"t":"x"})"));
    for (int i = 0; i < 2; ++i)
        list.front().setDictionaries("in", list);
    list.front().setDictionary("self", list.front());
    EXPECT_EQ(list.front().toJSON(),
              R"({"t":"x","in":[{"t":"x","in":[{"t":"x"},{"t":"x"}]},{"t":"x"}],)"
              R"("self":{"t":"x","in":[{"t":"x","in":[{"t":"x"},{"t":"x"}]},{"t":"x"}]}})");
}

TEST(JSONDictionary, OneThatWasMovedFromIsEmptyAndUsable) {
    const auto outer = parsed(R"({"a":1,"d":{"x":{"y":2}}})");
    JSONDictionary inner = *outer.dictionary("d");
    JSONDictionary target = std::move(inner);
    // NOLINTBEGIN(bugprone-use-after-move): this is what is tested.
    EXPECT_EQ(inner.size(), 0U);
    EXPECT_THAT(inner.keys(), IsEmpty());
    EXPECT_EQ(inner.toJSON(), "{}");
    EXPECT_EQ(inner.dictionary("x"), std::nullopt);
    inner = std::move(target);
    EXPECT_EQ(inner.toJSON(), R"({"x":{"y":2}})");
    EXPECT_EQ(target, JSONDictionary());
    target.setInteger("b", 3);
    EXPECT_EQ(target.toJSON(), R"({"b":3})");
    // NOLINTEND(bugprone-use-after-move)
}

TEST(JSONDictionary, CanBeAssignedToItself) {
    JSONDictionary dictionary = parsed(R"({"a":"b"})");
    dictionary = *&dictionary;
    EXPECT_EQ(dictionary.text("a"), "b");
}

TEST(JSONDictionary, EscapesWhatJSONRequiresAndNothingElse) {
    JSONDictionary dictionary;
    std::string all;
    for (int c = 0; c < 0x80; ++c)
        all += static_cast<char>(c);
    all += "\u00e9/<>\U0001F600";
    dictionary.setText("a", all);
    EXPECT_THAT(dictionary.toJSON(), HasSubstr("\u00e9/<>\U0001F600"));
    EXPECT_THAT(dictionary.toJSON(), HasSubstr(R"(\u0000\u0001)"));
    EXPECT_THAT(dictionary.toJSON(), HasSubstr(R"(\b\t\n\u000b\f\r)"));
    EXPECT_EQ(nlohmann::json::parse(dictionary.toJSON())["a"], all);
    EXPECT_EQ(parsed(dictionary.toJSON()).text("a"), all);
}

TEST(JSONDictionary, WritesEveryNumberSoThatItIsReadBackTheSame) {
    const auto dictionary = parsed(
        R"({"i":-9223372036854775808,"u":18446744073709551615,"d":0.1,"s":5e-324,"b":1.7976931348623157e308,"n":null,"w":3.0})");
    EXPECT_EQ(parsed(dictionary.toJSON()).toJSON(), dictionary.toJSON());
    EXPECT_EQ(nlohmann::json::parse(dictionary.toJSON())["d"], 0.1);
    EXPECT_EQ(nlohmann::json::parse(dictionary.toJSON())["u"], 18446744073709551615ULL);
}

TEST(JSONDictionary, ANumberIsWrittenAsItWasRead) {
    for (const std::string_view number :
         {"1.0", "-0.0", "-0.0e-5", "1e3", "1E+03", "0.10", "1e400", "-1e400", "1e-400", "0e400",
          "18446744073709551615", "9223372036854775808", "-9223372036854775809",
          "0e39223372036854775808", "1e39223372036854775808", "1.5E-39223372036854775808"}) {
        const std::string text = R"({"n":)" + std::string(number) + R"(,"i":7})";
        const auto dictionary = parsed(text);
        EXPECT_EQ(dictionary.toJSON(), text);
        EXPECT_EQ(dictionary, parsed(text)) << number;
        EXPECT_EQ(dictionary.kind("n"), JSONKind::number) << number;
        EXPECT_EQ(dictionary.integer("n"), std::nullopt) << number;
        EXPECT_EQ(dictionary.integer("i"), 7) << number;
        JSONDictionary built = dictionary;
        built.setInteger("more", 1);
        EXPECT_EQ(built.dictionary("n"), std::nullopt);
        built.remove("more");
        EXPECT_EQ(built.toJSON(), text);
    }
}

TEST(JSONDictionary, AnIntegerOfAnyLengthIsANumber) {
    const std::string digits(401, '9');
    const auto dictionary = parsed(R"({"n":)" + digits + R"(,"m":-)" + digits + "}");
    EXPECT_EQ(dictionary.kind("n"), JSONKind::number);
    EXPECT_EQ(dictionary.integer("n"), std::nullopt);
    EXPECT_EQ(dictionary.toJSON(), R"({"n":)" + digits + R"(,"m":-)" + digits + "}");
}

/// Whether another parser takes a text as a number. It refuses what it cannot hold, so every digit
/// is made small.
bool isNumberElsewhere(std::string text) {
    std::ranges::replace(text, '9', '1');
    return nlohmann::json::accept(text);
}

/// Every text of so many of some characters.
std::vector<std::string> everyText(std::size_t size, std::string_view characters) {
    if (size == 0) return {""};
    std::vector<std::string> texts;
    for (const auto& shorter : everyText(size - 1, characters))
        for (const char each : characters)
            texts.push_back(shorter + each);
    return texts;
}

// In front of a long text the parser takes another way through a number.
TEST(JSONDictionary, TakesTheSameNumbersAsAnotherParser) {
    const std::string behind = R"(,"b":")" + std::string(40, 'b') + "\"}";
    std::size_t taken = 0;
    for (std::size_t size = 1; size <= 5; ++size)
        for (const auto& number : everyText(size, "-+.eE09")) {
            const bool isNumber = isNumberElsewhere(number);
            taken += isNumber ? 1 : 0;
            for (const std::string& tail : {std::string("}"), behind}) {
                const std::string text = R"({"a":)" + number + tail;
                ASSERT_EQ(accepts(text), isNumber) << text;
                if (!isNumber) continue;
                const auto dictionary = parsed(text);
                if (const auto integer = dictionary.integer("a"))
                    ASSERT_EQ(*integer, nlohmann::json::parse(number).get<std::int64_t>()) << text;
                else
                    ASSERT_EQ(dictionary.toJSON(), text);
                ASSERT_EQ(parsed(dictionary.toJSON()), dictionary) << text;
            }
        }
    EXPECT_GT(taken, 100U);
}

TEST(JSONDictionary, NumbersOfOneValueAreEqual) {
    const std::vector<std::vector<std::string_view>> values{
        {"1.0", "1.00", "10e-1", "0.1e1", "0.001e+3", "100.0E-2"},
        {"-1.0", "-10e-1"},
        {"0.0", "-0.0", "0e5", "0e39223372036854775808", "-0E-39223372036854775808"},
        {"1e400", "10e399", "0.1e401"},
        {"1e401"},
        {"1e-400"},
        {"120.5", "1.205e2"},
        {"12.05", "0.01205e3"},
        {"18446744073709551616", "18446744073709551616.0"},
        {"18446744073709551617"},
        {"1.5e3", "1500.0"},
        {"2.5e3"},
        {"-1.5e3"},
        {"1e2000000000000000000"},  // beyond what is computed: equal only as a text
        {"10e1999999999999999999"},
        {"1e-2000000000000000000"},
        {"1e39223372036854775808"},
        {"1e39223372036854775809"}};
    const auto holding = [](std::string_view number) {
        return parsed(R"({"n":)" + std::string(number) + "}");
    };
    for (const auto& left : values)
        for (const auto& right : values)
            for (const auto& one : left)
                for (const auto& other : right)
                    EXPECT_EQ(holding(one) == holding(other), &left == &right)
                        << one << " and " << other;
}

TEST(JSONDictionary, ALongExponentLeavesEverythingElseAsItIs) {
    const std::string text = R"({"e12345678901":"e12345678901\"e12345678901","a\\":1e12345678901,)"
                             R"("true":true,"b":[-2.5E+12345678901,"e\u0041"],"c":1e-12345678901})";
    const auto dictionary = parsed(text);
    EXPECT_EQ(dictionary.text("e12345678901"), "e12345678901\"e12345678901");
    EXPECT_EQ(dictionary.boolean("true"), true);
    EXPECT_THAT(dictionary.toJSON(), HasSubstr(R"([-2.5E+12345678901,"eA"],"c":1e-12345678901})"));
    EXPECT_EQ(failureOf(R"({"a":1e12345678901,"b":})").column, 24U);
}

TEST(JSONDictionary, ALongExponentDoesNotHideThatTheTextIsCutBehindIt) {
    for (const char* const rest : {"\"\\", "\"", "1e", "1e+", ""}) {
        const std::string text = R"({"a":1e12345678901,"b":)" + std::string(rest);
        EXPECT_EQ(failureOf(text).offset, text.size()) << text;
    }
}

TEST(JSONDictionary, ALongExponentCountsForTheLimitOfTheMemory) {
    const std::string text = R"({"a":1e12345678901,"b":")" + std::string(1000, 'x') + "\"}";
    const auto refused = JSONDictionary::parse(text, {.maxMemory = text.size() + 500});
    EXPECT_TRUE(std::holds_alternative<JSONFailure>(refused));
    const auto taken = JSONDictionary::parse(text, {.maxMemory = 4 * text.size()});
    EXPECT_TRUE(std::holds_alternative<JSONDictionary>(taken));
}

TEST(JSONDictionary, EqualityLooksAtKeysAndValuesNotAtTheirOrder) {
    EXPECT_EQ(parsed(R"({"a":1,"b":[{"c":true}]})"), parsed(R"({"b":[{"c":true}],"a":1})"));
    EXPECT_NE(parsed(R"({"a":1})"), parsed(R"({"a":1.0})"));
    EXPECT_NE(parsed(R"({"a":1})"), parsed(R"({"a":true})"));
    EXPECT_NE(parsed(R"({"a":[1,2]})"), parsed(R"({"a":[2,1]})"));
    EXPECT_NE(parsed(R"({"a":1})"), parsed(R"({"b":1})"));
    EXPECT_NE(parsed(R"({"a":1})"), parsed(R"({"a":1,"b":2})"));
    EXPECT_NE(parsed(R"({"a":null})"), parsed("{}"));
}

TEST(JSONDictionary, ABuiltOneEqualsTheParsedOneOfTheSameContent) {
    JSONDictionary built;
    built.setText("t", "a\"b");
    built.setDictionaries("l", {JSONDictionary()});
    EXPECT_EQ(built, parsed(R"({"l":[{}],"t":"a\"b"})"));
}

TEST(JSONFailure, SaysWhatAndWhere) {
    EXPECT_EQ(failureOf("").text(), "incomplete JSON at line 1, column 1");
    EXPECT_EQ(failureOf("{\n \"a\": x}").line, 2U);
    EXPECT_EQ(failureOf("{\n \"a\": x}").column, 7U);
    EXPECT_EQ(failureOf("{} {}").offset, 3U);
}

TEST(JSONFailure, SaysThatTheTopIsNoDictionary) {
    for (const std::string_view text : {"[]", "1", "1.5", "\"a\"", "true", "null", "[{}]"})
        EXPECT_THAT(failureOf(text).reason, HasSubstr("expected a dictionary")) << text;
}

TEST(JSONFailure, NeverQuotesTheText) {
    for (const auto text : {R"({"token":"s3cret)", R"({"token":s3cret})", "\"s3cret\"",
                            R"({"token":"s3cret"}s3cret)"})
        EXPECT_THAT(failureOf(text).text(), Not(HasSubstr("s3cret"))) << text;
}

std::string nested(std::size_t depth) {
    std::string text = R"({"a":)";
    for (std::size_t i = 1; i < depth; ++i)
        text += '[';
    for (std::size_t i = 1; i < depth; ++i)
        text += ']';
    return text + '}';
}

TEST(JSONFailure, MoreThanTheMemoryAllowsIsTooLarge) {
    const std::string text = R"({"a":[{},{},{},{}],"b":"text"})";
    const auto isTooLarge = [&](std::size_t memory) {
        const auto parsed = JSONDictionary::parse(text, {.maxMemory = memory});
        const auto* const failure = std::get_if<JSONFailure>(&parsed);
        if (failure == nullptr) return false;
        EXPECT_EQ(failure->kind, JSONFailure::Kind::tooLarge) << memory;
        EXPECT_THAT(failure->text(), HasSubstr("memory")) << memory;
        return true;
    };
    // The text, nine values and keys, five dictionaries, one text.
    const std::size_t counted = text.size() + 9 * 16 + 5 * 176 + 28;
    for (std::size_t memory = 0; memory < counted; ++memory)
        ASSERT_TRUE(isTooLarge(memory)) << memory;
    // Room for a few values that did not come.
    EXPECT_FALSE(isTooLarge(counted + 8 * 16));
    EXPECT_EQ(failureOf("{").kind, JSONFailure::Kind::malformed);
}

TEST(JSONFailure, NestingBeyondTheLimitIsAFailureAndNoCrash) {
    EXPECT_TRUE(std::holds_alternative<JSONDictionary>(JSONDictionary::parse(nested(64))));
    EXPECT_THAT(failureOf(nested(65)).text(), HasSubstr("too deep"));
    EXPECT_THAT(failureOf(nested(3), {.maxDepth = 2}).text(), HasSubstr("too deep"));
    failureOf(nested(1'000'000));
}

TEST(JSONFailure, NoCommentsNoTrailingCommasNoInvalidUTF8NoLoneSurrogates) {
    for (const std::string_view text :
         {"{/* */}", "{}//", R"({"a":1,})", R"({"a":[1,]})", "{\"a\":\"\xff\"}", "{\"a\":\"\xc3\"}",
          "{\"a\":\"\xed\xa0\x80\"}", R"({"a":"\ud800"})", "{\"a\":\"\n\"}", R"({"a":01})",
          R"({"a":+1})", R"({"a":.5})", R"({"a":1.})", R"({"a":NaN})", R"({'a':1})", R"({a:1})",
          "\xef\xbb\xbf{}", R"({"a":1)", R"({"a" 1})"})
        EXPECT_FALSE(accepts(text)) << text;
    EXPECT_FALSE(accepts(std::string_view("{}\0", 3)));
}

TEST(JSONFailure, TakesAndRefusesTheSameTextsAsAnotherParserAfterEveryOneByteChange) {
    const std::string valid =
        R"({"id":"h1","maxSize":50,"elements":[{"id":"v\u00e9-1","type":"VIDEO","progress":-12,)"
        "\"isCompleted\":false,\"title\":\"\u00e9\U0001F600\"},{\"x\":1.5e3,\"n\":null}]}";
    ASSERT_TRUE(accepts(valid));
    for (std::size_t at = 0; at < valid.size(); ++at) {
        for (int byte = 0; byte < 256; ++byte) {
            std::string changed = valid;
            changed[at] = static_cast<char>(byte);
            // The other parser takes a byte-order mark and any top; this text keeps its brace.
            ASSERT_EQ(accepts(changed), nlohmann::json::accept(changed) && changed[0] == '{')
                << "byte " << byte << " at " << at;
        }
    }
    for (std::size_t size = 0; size < valid.size(); ++size)
        ASSERT_FALSE(accepts(valid.substr(0, size))) << size;
}

}  // namespace
