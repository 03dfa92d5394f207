#include <algorithm>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <variant>
#include <vector>

#include <gtest/gtest.h>

#include <HalvardSling/json/JSONDictionary.hpp>

namespace {

using HalvardSling::JSONDictionary;

JSONDictionary parsed(const std::string& text) {
    return std::get<JSONDictionary>(JSONDictionary::parse(text));
}

std::string keyOf(int number) {
    return "key" + std::to_string(number);
}

/// The members "key0":0, "key1":{"x":1}, "key2":2, "key3":{"x":3} …, of which every fifth stands
/// there again with another value.
std::string membersUpTo(int count) {
    std::string text;
    for (int number = 0; number < count; ++number) {
        const std::string value = std::to_string(number);
        text += (number > 0 ? ",\"" : "\"") + keyOf(number) + "\":";
        text += number % 2 == 0 ? value : "{\"x\":" + value + "}";
        if (number % 5 == 0) text += ",\"" + keyOf(number) + "\":\"again\"";
    }
    return text;
}

/// What a look-up in the members above gives.
std::optional<std::int64_t> numberIn(const JSONDictionary& dictionary, int number) {
    if (number % 2 == 0) return dictionary.integer(keyOf(number));
    const auto inner = dictionary.dictionary(keyOf(number));
    return inner ? inner->integer("x") : std::nullopt;
}

class JSONLookup : public testing::TestWithParam<int> {
  protected:
    void expectAll(const JSONDictionary& dictionary, const std::vector<int>& order) const {
        for (const int number : order) {
            EXPECT_EQ(numberIn(dictionary, number), number);
            EXPECT_EQ(dictionary.text(keyOf(number)), std::nullopt);
            EXPECT_TRUE(dictionary.kind(keyOf(number)));
            EXPECT_FALSE(dictionary.kind(keyOf(number) + "x"));
        }
        EXPECT_FALSE(dictionary.kind(keyOf(GetParam())));
        EXPECT_FALSE(dictionary.kind(""));
    }

    [[nodiscard]] std::vector<int> all() const {
        std::vector<int> numbers;
        for (int number = 0; number < GetParam(); ++number)
            numbers.push_back(number);
        return numbers;
    }
};

INSTANTIATE_TEST_SUITE_P(Sizes, JSONLookup, testing::Values(0, 1, 31, 32, 33, 34, 36, 200));

TEST_P(JSONLookup, FindsEveryKeyInEveryOrder) {
    const JSONDictionary dictionary = parsed("{" + membersUpTo(GetParam()) + "}");
    std::vector<int> order = all();
    expectAll(dictionary, order);
    expectAll(dictionary, order);
    std::ranges::reverse(order);
    expectAll(dictionary, order);
    std::mt19937 random(7);
    std::ranges::shuffle(order, random);
    expectAll(dictionary, order);
}

TEST_P(JSONLookup, FindsTheKeysOfDictionariesThatStandInOneText) {
    const std::string members = "{" + membersUpTo(GetParam()) + "}";
    const JSONDictionary both = parsed("{\"a\":" + members + ",\"b\":" + members + "}");
    const JSONDictionary a = both.dictionary("a").value();
    const JSONDictionary b = both.dictionary("b").value();
    for (const int number : all()) {
        EXPECT_EQ(numberIn(a, number), number);
        EXPECT_EQ(numberIn(b, number), number);
    }
}

TEST_P(JSONLookup, FindsWhatWasBuiltAndChanged) {
    JSONDictionary built;
    for (const int number : all()) {
        built.setInteger(keyOf(number), number);
        EXPECT_EQ(built.integer(keyOf(number)), number);
        EXPECT_EQ(built.integer(keyOf(number / 2)), number / 2);
    }
    const JSONDictionary copy = built;
    for (const int number : all())
        if (number % 3 == 0) built.remove(keyOf(number));
    for (const int number : all()) {
        EXPECT_EQ(copy.integer(keyOf(number)), number);
        EXPECT_EQ(built.integer(keyOf(number)).has_value(), number % 3 != 0);
    }
}

TEST_P(JSONLookup, IsRightOnManyThreadsAtOnce) {
    const JSONDictionary dictionary = parsed("{" + membersUpTo(GetParam()) + "}");
    std::vector<std::thread> threads;
    for (unsigned seed = 0; seed < 4; ++seed)
        threads.emplace_back([&, seed] {
            std::vector<int> order = all();
            std::mt19937 random(seed);
            if (seed > 0) std::ranges::shuffle(order, random);
            expectAll(dictionary, order);
        });
    for (auto& thread : threads)
        thread.join();
}

}  // namespace
