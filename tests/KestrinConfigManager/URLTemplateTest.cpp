#include <array>
#include <cstddef>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>

#include <KestrinConfigManager/URLTemplate.hpp>

namespace {

using KestrinConfigManager::TextMap;
using KestrinConfigManager::URLTemplate;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> placeholders(std::string_view text) {
    const URLTemplate url{std::string(text)};
    const auto views = url.placeholders();
    return {views.begin(), views.end()};
}

TEST(URLTemplate, KeepsItsText) {
    EXPECT_EQ(URLTemplate("https://h/%UXID%").text(), "https://h/%UXID%");
    EXPECT_EQ(URLTemplate().text(), "");
}

TEST(URLTemplate, FindsPlaceholdersInOrderAndAsOftenAsTheyStandThere) {
    EXPECT_THAT(placeholders("https://h/%UXID%/%BRANDNAME%?a=%UXID%"),
                ElementsAre("%UXID%", "%BRANDNAME%", "%UXID%"));
}

TEST(URLTemplate, APlaceholderHasThreeOrMoreUpperCaseLetters) {
    EXPECT_THAT(placeholders("%ABC%"), ElementsAre("%ABC%"));
    for (const std::string_view text :
         {"", "%", "%%", "%A%", "%AB%", "%abc%", "%ABc%", "%AB1%", "%AB_C%", "%ABC", "ABC%",
          "% ABC%", "%\xC3\x84\xC3\x96\xC3\x9C%", "%2FUXID%"})
        EXPECT_THAT(placeholders(text), IsEmpty()) << text;
}

TEST(URLTemplate, EncodedBytesBesideAPlaceholderAreNoPartOfIt) {
    EXPECT_THAT(placeholders("%20%UXID%"), ElementsAre("%UXID%"));
    EXPECT_THAT(placeholders("%UXID%%20"), ElementsAre("%UXID%"));
    EXPECT_THAT(placeholders("%UXID%20%UXID%"), ElementsAre("%UXID%", "%UXID%"));
    EXPECT_THAT(placeholders("%AB%UXID%"), ElementsAre("%UXID%"));
    EXPECT_THAT(placeholders("%%UXID%%"), ElementsAre("%UXID%"));
}

TEST(URLTemplate, OfTwoReadingsTheLeftOneCounts) {
    EXPECT_THAT(placeholders("%ABC%UXID%"), ElementsAre("%ABC%"));
    EXPECT_THAT(placeholders("%ABC%UXID%SHOW%"), ElementsAre("%ABC%", "%SHOW%"));
}

TEST(URLTemplate, EveryPlaceholderIsFilledWithItsValueAsItStands) {
    const URLTemplate url("https://h/%UXID%/%SHOWID%?again=%UXID%");
    EXPECT_EQ(url.filled({{"%UXID%", "a b/ä%41"}, {"%SHOWID%", ""}}),
              "https://h/a b/ä%41/?again=a b/ä%41");
}

TEST(URLTemplate, APlaceholderWithoutValueStays) {
    EXPECT_EQ(URLTemplate("/%UXID%/%SHOWID%/").filled({{"%SHOWID%", "s"}}), "/%UXID%/s/");
    EXPECT_EQ(URLTemplate("/%UXID%").filled({}), "/%UXID%");
}

TEST(URLTemplate, ValuesWithoutPlaceholderAreLeftOut) {
    EXPECT_EQ(URLTemplate("/a").filled({{"%UXID%", "x"}, {"a", "y"}, {"", "z"}}), "/a");
    EXPECT_EQ(URLTemplate().filled({{"%UXID%", "x"}}), "");
}

TEST(URLTemplate, ANameOfTheSameLengthAndEndsIsAnotherName) {
    for (const std::string letters :
         {"AAAA", "AAAAAA", "AAAAAAAA", "AAAAAAAAAAAA", "AAAAAAAAAAAAAAAAAA"})
        for (std::size_t at = 0; at < letters.size(); ++at) {
            const std::string token = "%" + letters + "%";
            std::string other = token;
            other[1 + at] = 'B';
            EXPECT_EQ(URLTemplate("/" + token).filled({{other, "x"}}), "/" + token) << other;
            EXPECT_EQ(URLTemplate("/" + other).filled({{other, "x"}, {token, "y"}}), "/x") << other;
        }
}

TEST(URLTemplate, TakesValuesOfAnyLength) {
    std::string value;
    for (int length = 0; length < 100; ++length, value += static_cast<char>('a' + length % 26))
        EXPECT_EQ(URLTemplate("/%UXID%/").filled({{"%UXID%", value}}), "/" + value + "/");
}

TEST(URLTemplate, AValueIsNeverLookedAtAgain) {
    const URLTemplate url("/%UXID%/%SHOWID%");
    EXPECT_EQ(url.filled({{"%UXID%", "%SHOWID%"}, {"%SHOWID%", "%UXID%"}}), "/%SHOWID%/%UXID%");
    EXPECT_EQ(url.filled({{"%UXID%", "%UXID%%UXID%"}, {"%SHOWID%", "s"}}), "/%UXID%%UXID%/s");
}

TEST(URLTemplate, WhatAValueAndTheTextTogetherSpellIsNoPlaceholder) {
    const URLTemplate url("/%UXID%SHOWID%");
    EXPECT_EQ(url.filled({{"%UXID%", "%"}, {"%SHOWID%", "s"}}), "/%SHOWID%");
}

TEST(URLTemplate, SaysWhichPlaceholderIsUnfilled) {
    const URLTemplate url("/%UXID%/%SHOWID%");
    EXPECT_EQ(url.unfilled({}), "%UXID%");
    EXPECT_EQ(url.unfilled({{"%UXID%", "u"}}), "%SHOWID%");
    EXPECT_EQ(url.unfilled({{"UXID", "u"}, {"%SHOWID%", "s"}}), "%UXID%");
    EXPECT_EQ(url.unfilled({{"%UXID%", ""}, {"%SHOWID%", ""}}), std::nullopt);
    EXPECT_EQ(URLTemplate("/a%20b").unfilled({}), std::nullopt);
}

TEST(URLTemplate, ThePathIsWhatALogMayShow) {
    EXPECT_EQ(URLTemplate("https://h/v1/%UXID%/list?profile=%UXID%#top").path(), "/v1/%UXID%/list");
    EXPECT_EQ(URLTemplate("https://h:8443/a/b").path(), "/a/b");
    EXPECT_EQ(URLTemplate("https://h/a#b?c").path(), "/a");
    EXPECT_EQ(URLTemplate("https://h").path(), "/");
    EXPECT_EQ(URLTemplate("https://h?x=/secret").path(), "/");
    EXPECT_EQ(URLTemplate("https://h#/secret").path(), "/");
    EXPECT_EQ(URLTemplate("/a?to=https://other/secret").path(), "/a");
    EXPECT_EQ(URLTemplate().path(), "/");
}

TEST(URLTemplate, KnowsWhereItsPathBegins) {
    EXPECT_EQ(URLTemplate("https://h/a").pathBegin(), 9U);
    EXPECT_EQ(URLTemplate("https://h").pathBegin(), 9U);
    EXPECT_EQ(URLTemplate("https://h?a").pathBegin(), 9U);
    EXPECT_EQ(URLTemplate("/a").pathBegin(), 0U);
}

TEST(URLTemplate, CopiesAndMovesAreComplete) {
    URLTemplate first("/%UXID%");
    const URLTemplate copy = first;
    const URLTemplate moved = std::move(first);
    EXPECT_EQ(copy.filled({{"%UXID%", "u"}}), "/u");
    EXPECT_EQ(moved.filled({{"%UXID%", "u"}}), "/u");
    EXPECT_THAT(moved.placeholders(), ElementsAre("%UXID%"));
}

/// Random templates whose pieces are known, filled with values that try to be placeholders.
class URLTemplateProperty : public testing::Test {
  protected:
    // A slash after each piece, so that no two pieces make a placeholder together.
    static constexpr std::array<std::string_view, 9> literals{
        "a", "%20", "%2FUXID", "%", "%%", "%AB", "%AB%", "ABC%", "\xC3\xA4"};
    static constexpr std::array<std::string_view, 4> tokens{"%UXID%", "%SHOWID%", "%ABC%",
                                                            "%BRANDNAME%"};
    static constexpr std::array<std::string_view, 9> valuePieces{
        "%UXID%", "%SHOWID%", "%ABC", "UXID%", "%", "%%", "x", "?", "/"};

    std::size_t below(std::size_t bound) {
        return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random);
    }

    std::string randomValue() {
        std::string value;
        for (std::size_t count = below(5); count > 0; --count)
            value += valuePieces.at(below(valuePieces.size()));
        return value;
    }

    std::mt19937 random{20240229};  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same each time
};

TEST_F(URLTemplateProperty, FillingReplacesExactlyTheTemplatesOwnPlaceholders) {
    for (int round = 0; round < 2000; ++round) {
        TextMap values;
        for (const auto token : tokens)
            if (below(3) > 0) values.emplace(token, randomValue());

        std::string text;
        std::string expected;
        std::vector<std::string> expectedTokens;
        for (std::size_t count = below(8); count > 0; --count) {
            const bool isToken = below(2) == 0;
            const std::string piece(isToken ? tokens.at(below(tokens.size()))
                                            : literals.at(below(literals.size())));
            const auto value = values.find(piece);
            text += piece + "/";
            expected += (value == values.end() ? piece : value->second) + "/";
            if (isToken) expectedTokens.push_back(piece);
        }

        ASSERT_EQ(URLTemplate(text).filled(values), expected) << text;
        ASSERT_EQ(placeholders(text), expectedTokens) << text;
    }
}

TEST_F(URLTemplateProperty, FillingEachPlaceholderWithItselfChangesNothing) {
    constexpr std::string_view alphabet = "%ABCx/";
    for (int round = 0; round < 5000; ++round) {
        std::string text;
        for (std::size_t count = below(24); count > 0; --count)
            text += alphabet[below(alphabet.size())];
        const URLTemplate url(text);
        TextMap identity;
        for (const auto token : url.placeholders())
            identity.emplace(token, token);
        ASSERT_EQ(url.filled(identity), text);
        ASSERT_EQ(url.filled({}), text);
        ASSERT_EQ(url.unfilled(identity), std::nullopt);
    }
}

}  // namespace
