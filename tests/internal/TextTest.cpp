#include <optional>
#include <string>

#include <gtest/gtest.h>

#include <internal/Base64URL.hpp>
#include <internal/UTF8.hpp>

namespace {

using KestrinInternal::base64URLDecoded;
using KestrinInternal::base64URLEncoded;

TEST(Base64URLTest, KnowsThePublishedExamples) {
    EXPECT_EQ(base64URLEncoded(""), "");
    EXPECT_EQ(base64URLEncoded("f"), "Zg");
    EXPECT_EQ(base64URLEncoded("fo"), "Zm8");
    EXPECT_EQ(base64URLEncoded("foobar"), "Zm9vYmFy");
    EXPECT_EQ(base64URLEncoded("\xFB\xFF"), "-_8");
    EXPECT_EQ(base64URLDecoded("-_8"), "\xFB\xFF");
    EXPECT_EQ(base64URLDecoded("Zm9vYmFy"), "foobar");
    EXPECT_EQ(base64URLDecoded("Zm9v="), std::nullopt);
    EXPECT_EQ(base64URLDecoded("Zm9vY"), std::nullopt);
}

TEST(UTF8Test, WhatIsAppendedIsRead) {
    for (char32_t each = 0; each <= 0x10FFFF; ++each) {
        if (each == 0xD800) each = 0xE000;
        std::string text;
        KestrinInternal::appendUTF8(text, each);
        const auto first = KestrinInternal::firstUTF8Character(text);
        ASSERT_EQ(first.value, each);
        ASSERT_EQ(first.bytes, text.size());
    }
}

TEST(UTF8Test, WhatIsNoCharacterIsNone) {
    for (const char* const text : {"\x80", "\xC1\x81", "\xC3", "\xC3(", "\xE0\x9F\xBF",
                                   "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80"}) {
        EXPECT_EQ(KestrinInternal::firstUTF8Character(text).value, std::nullopt) << text;
        EXPECT_FALSE(KestrinInternal::isUTF8(text)) << text;
    }
}

}  // namespace
