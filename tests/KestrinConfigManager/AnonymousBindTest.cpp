#include <chrono>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <gtest/gtest.h>

#include <KestrinConfigManager/AnonymousBind.hpp>

#include "Support.hpp"

namespace {

using HalvardSling::JSONDictionary;
using KestrinConfigManager::AnonymousBind;
using TestSupport::base64url;
using TestSupport::webToken;
using Clock = AnonymousBind::Clock;
using std::chrono::seconds;

JSONDictionary dictionary(std::string_view text) {
    return std::get<JSONDictionary>(JSONDictionary::parse(text));
}

constexpr std::int64_t expiry = 1'700'000'000;

Clock::time_point at(std::int64_t secondsSince1970) {
    return Clock::time_point(seconds(secondsSince1970));
}

AnonymousBind expiring(std::string_view exp) {
    return {"profile", webToken(std::string("{\"exp\":").append(exp).append("}"))};
}

/// A token of three parts.
std::string inToken(std::string_view payload) {
    return std::string("h.").append(payload).append(".s");
}

TEST(AnonymousBind, IsReadFromItsTwoTexts) {
    const auto bind = AnonymousBind::fromJSON(dictionary(R"({"profileId":"p","token":"t","x":1})"));
    ASSERT_TRUE(bind.has_value());
    EXPECT_EQ(*bind, AnonymousBind("p", "t"));
}

TEST(AnonymousBind, EmptyTextsAreTexts) {
    EXPECT_EQ(AnonymousBind::fromJSON(dictionary(R"({"profileId":"","token":""})")),
              AnonymousBind("", ""));
}

TEST(AnonymousBind, IsAbsentWhereATextIsMissingOrNoText) {
    for (const std::string_view text :
         {R"({})", R"({"profileId":"p"})", R"({"token":"t"})", R"({"profileId":1,"token":"t"})",
          R"({"profileId":"p","token":null})", R"({"profileId":"p","token":["t"]})",
          R"({"profileID":"p","token":"t"})"}) {
        EXPECT_EQ(AnonymousBind::fromJSON(dictionary(text)), std::nullopt) << text;
        EXPECT_EQ(AnonymousBind::fromEncoded(dictionary(text)), std::nullopt) << text;
    }
}

TEST(AnonymousBind, SurvivesItsArchive) {
    const AnonymousBind bind("pröfile \"1\"", "to\nken");
    EXPECT_EQ(AnonymousBind::fromEncoded(bind.encode()), bind);
    EXPECT_EQ(AnonymousBind("p", "t").encode().toJSON(), R"({"profileId":"p","token":"t"})");
}

TEST(AnonymousBind, IsNeverSentAsARecord) {
    EXPECT_FALSE(AnonymousBind("p", "t").serialized().has_value());
}

TEST(AnonymousBind, BothTextsDecideEquality) {
    EXPECT_NE(AnonymousBind("p", "t"), AnonymousBind("p", "u"));
    EXPECT_NE(AnonymousBind("p", "t"), AnonymousBind("q", "t"));
}

TEST(AnonymousBindValidity, NeedsBothTexts) {
    EXPECT_TRUE(AnonymousBind("p", "t").isValid());
    EXPECT_FALSE(AnonymousBind("", "t").isValid());
    EXPECT_FALSE(AnonymousBind("p", "").isValid());
    EXPECT_FALSE(AnonymousBind().isValid());
}

/// Texts with one byte of a kind at the beginning, within and at the end.
std::vector<std::string> textsWith(char byte) {
    return {std::string(1, byte) + "t", std::string("t") + byte + "t", std::string("t") + byte};
}

TEST(AnonymousBindValidity, OnlyTextsThatAHeaderCarriesUnchangedAreValid) {
    for (int value = 0; value < 256; ++value) {
        const char byte = static_cast<char>(value);
        const bool isBlank = byte == ' ' || byte == '\t';
        const bool isPrinted = value > 0x20 && value < 0x7F;
        const auto texts = textsWith(byte);
        for (const std::string& text : texts) {
            const bool isWithin = &text == &texts[1];
            const bool isFine = isPrinted || (isBlank && isWithin);
            EXPECT_EQ(AnonymousBind("p", text).isValid(), isFine) << "token with byte " << value;
            EXPECT_EQ(AnonymousBind(text, "t").isValid(), isFine) << "profile with byte " << value;
        }
    }
    EXPECT_FALSE(AnonymousBind("p", "t\r\nX-Evil: 1").isValid());
    EXPECT_FALSE(AnonymousBind("p", " ").isValid());
}

TEST(AnonymousBindValidity, ATextThatIsTooLongForAHeaderIsInvalid) {
    const std::string longest(AnonymousBind::longestText, 'x');
    EXPECT_TRUE(AnonymousBind("p", longest).isValid());
    EXPECT_FALSE(AnonymousBind("p", longest + 'x').isValid());
    EXPECT_TRUE(AnonymousBind(longest, "t").isValid());
    EXPECT_FALSE(AnonymousBind(longest + 'x', "t").isValid());
    EXPECT_FALSE(AnonymousBind("p", std::string(2'000'000, 'x')).isValid());
}

TEST(AnonymousBindValidity, TheTextThatCannotBeSentIsNamed) {
    EXPECT_EQ(AnonymousBind("p", "t").unsendableText(), nullptr);
    EXPECT_EQ(AnonymousBind("", "").unsendableText(), nullptr);
    EXPECT_STREQ(AnonymousBind("p", "t\n").unsendableText(), "token");
    EXPECT_STREQ(AnonymousBind("p\n", "t").unsendableText(), "profileId");
}

TEST(AnonymousBindValidity, ATokenIsValidBeforeItsExpiry) {
    EXPECT_TRUE(expiring(std::to_string(expiry)).isValid(at(expiry - 1)));
    EXPECT_TRUE(expiring(std::to_string(expiry)).isValid(at(0)));
}

TEST(AnonymousBindValidity, ATokenIsStillValidWithinTheLeeway) {
    const auto bind = expiring(std::to_string(expiry));
    EXPECT_TRUE(bind.isValid(at(expiry)));
    EXPECT_TRUE(bind.isValid(at(expiry + 299)));
    EXPECT_TRUE(bind.isValid(at(expiry + 300)));
}

TEST(AnonymousBindValidity, ATokenIsInvalidAfterTheLeeway) {
    const auto bind = expiring(std::to_string(expiry));
    EXPECT_FALSE(bind.isValid(at(expiry + 300) + std::chrono::microseconds(1)));
    EXPECT_FALSE(bind.isValid(at(expiry + 301)));
}

TEST(AnonymousBindValidity, JudgesByTheClockUnlessToldOtherwise) {
    const auto now = std::chrono::duration_cast<seconds>(Clock::now().time_since_epoch()).count();
    EXPECT_TRUE(expiring(std::to_string(now + 3600)).isValid());
    EXPECT_FALSE(expiring(std::to_string(now - 3600)).isValid());
}

TEST(AnonymousBindValidity, AnyExpiryAndAnyTimeCanBeCompared) {
    const auto latest = std::to_string(std::numeric_limits<std::int64_t>::max());
    const auto earliest = std::to_string(std::numeric_limits<std::int64_t>::min());
    for (const auto now : {Clock::time_point::min(), at(0), Clock::time_point::max()}) {
        EXPECT_TRUE(expiring(latest).isValid(now));
        EXPECT_FALSE(expiring(earliest).isValid(now));
    }
    EXPECT_FALSE(expiring("0").isValid(Clock::time_point::max()));
    EXPECT_TRUE(expiring("0").isValid(Clock::time_point::min()));
}

TEST(AnonymousBindValidity, EndsWithTheLeewayAfterTheExpiry) {
    using std::chrono::sys_seconds;
    EXPECT_EQ(expiring(std::to_string(expiry)).validUntil(), sys_seconds(seconds(expiry + 300)));
    EXPECT_EQ(AnonymousBind("p", "t").validUntil(), std::nullopt);
    constexpr auto latest = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(expiring(std::to_string(latest)).validUntil(), sys_seconds(seconds(latest)));
}

TEST(AnonymousBindValidity, WhatIsNoWholeNumberIsNoExpiry) {
    for (const std::string_view exp :
         {"1.5", "1e3", "9223372036854775808", "\"1\"", "null", "true", "[1]", "{\"exp\":1}"})
        EXPECT_TRUE(expiring(exp).isValid(at(expiry))) << exp;
    EXPECT_FALSE(expiring("1").isValid(at(expiry)));
}

TEST(AnonymousBindValidity, ATokenOfAnotherFormHasNoExpiry) {
    const std::string expired = base64url(R"({"exp":1})");
    ASSERT_FALSE(AnonymousBind("p", inToken(expired)).isValid(at(expiry)));
    for (const std::string& token :
         {std::string("opaque"), expired, std::string("h.").append(expired),
          inToken(expired) + ".t", std::string(".."), inToken(expired + '='),
          inToken(expired + '!'), std::string("h..").append(expired), inToken(expired + 'A'),
          inToken(base64url("[1]")), inToken(base64url(R"({"exp":1)")),
          inToken(base64url(R"({"nbf":1})")), inToken("A")})
        EXPECT_TRUE(AnonymousBind("p", token).isValid(at(expiry))) << token;
}

TEST(AnonymousBindValidity, EmptyHeaderOrSignatureStillMakeThreeParts) {
    EXPECT_FALSE(AnonymousBind("p", '.' + base64url(R"({"exp":1})") + '.').isValid(at(expiry)));
}

TEST(AnonymousBindValidity, BitsThatNoByteHoldsMakeTheTokenAnotherForm) {
    // "{"exp":1}" and a blank: its last group has four bits to spare.
    std::string payload = base64url(R"({"exp":1} )");
    ASSERT_FALSE(AnonymousBind("p", inToken(payload)).isValid(at(expiry)));
    payload.back() = static_cast<char>(payload.back() + 1);
    EXPECT_TRUE(AnonymousBind("p", inToken(payload)).isValid(at(expiry)));
}

TEST(AnonymousBindValidity, EveryLengthAndEveryByteOfAPayloadIsDecoded) {
    for (int length = 0; length < 70; ++length) {
        std::string padding;
        for (int i = 0; i < length; ++i)
            padding += static_cast<char>(' ' + (i * 7) % 95);
        std::erase_if(padding, [](char c) { return c == '"' || c == '\\'; });
        const std::string claims = R"({"x":"ÿþ)" + padding + R"(","exp":1})";
        EXPECT_FALSE(AnonymousBind("p", webToken(claims)).isValid(at(expiry))) << claims;
    }
}

}  // namespace
