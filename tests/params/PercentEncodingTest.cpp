#include <map>
#include <string>
#include <string_view>

#include <gmock/gmock.h>

#include <KestrinProfile/params/internal/PercentEncoding.hpp>

namespace KestrinProfile {
namespace {

using internal::percentEncoded;

/// What the bytes become that do not stay as they are.
const std::map<char, std::string> encodedForms{
    {' ', "%20"},  {'!', "%21"},  {'#', "%23"}, {'$', "%24"}, {'%', "%25"}, {'&', "%26"},
    {'\'', "%27"}, {'(', "%28"},  {')', "%29"}, {'*', "%2A"}, {'+', "%2B"}, {',', "%2C"},
    {'/', "%2F"},  {':', "%3A"},  {';', "%3B"}, {'=', "%3D"}, {'?', "%3F"}, {'@', "%40"},
    {'[', "%5B"},  {'\\', "%5C"}, {']', "%5D"}, {'^', "%5E"},
};

TEST(PercentEncodingTest, EncodesExactlyTheReservedBytes) {
    EXPECT_EQ(encodedForms.size(), 22U);
    for (int byte = 0; byte < 256; ++byte) {
        const std::string text(1, static_cast<char>(byte));
        const auto form = encodedForms.find(text[0]);
        EXPECT_EQ(percentEncoded(text), form == encodedForms.end() ? text : form->second) << byte;
    }
}

TEST(PercentEncodingTest, KeepsTheOrder) {
    EXPECT_EQ(percentEncoded(""), "");
    EXPECT_EQ(percentEncoded("x y/z"), "x%20y%2Fz");
    EXPECT_EQ(percentEncoded("100%"), "100%25");
    EXPECT_EQ(percentEncoded("%2F"), "%252F") << "what is encoded is encoded once more";
    EXPECT_EQ(percentEncoded("%UXID%"), "%25UXID%25");
}

TEST(PercentEncodingTest, LeavesOtherCharactersAlone) {
    for (const std::string_view text :
         {"\xC3\xA9", "\xC3\xA9<\xE2\x82\xAC>", "\xF0\x9F\x8E\xAC", "\"<>{}|`~-._", "\n\t\x7F"})
        EXPECT_EQ(percentEncoded(text), text);
    EXPECT_EQ(percentEncoded("\xC3\xA9 \xC3\xA9"), "\xC3\xA9%20\xC3\xA9");
}

TEST(PercentEncodingTest, EncodesATextOfReservedCharactersAlone) {
    const std::string_view reserved = R"(!*'();:@&=+$,/?%#[]^\ )";
    EXPECT_EQ(percentEncoded(reserved),
              "%21%2A%27%28%29%3B%3A%40%26%3D%2B%24%2C%2F%3F%25%23%5B%5D%5E%5C%20");
}

TEST(PercentEncodingTest, EncodesTextsOfAnyLength) {
    std::string text;
    std::string expected;
    for (int i = 0; i < 1000; ++i) {
        const char c = "a/b c"[i % 5];
        text += c;
        expected += percentEncoded(std::string(1, c));
        ASSERT_EQ(percentEncoded(text), expected) << text.size() << " bytes";
    }
}

}  // namespace
}  // namespace KestrinProfile
