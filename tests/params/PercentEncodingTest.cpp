#include <string>
#include <string_view>

#include <gmock/gmock.h>

#include <KestrinProfile/params/PercentEncoding.hpp>

namespace KestrinProfile {
namespace {

/// What a byte becomes, where it does not stay as it is; by a table of its own.
std::string_view encodedForm(char c) {
    switch (c) {
        case ' ': return "%20";
        case '!': return "%21";
        case '#': return "%23";
        case '$': return "%24";
        case '%': return "%25";
        case '&': return "%26";
        case '\'': return "%27";
        case '(': return "%28";
        case ')': return "%29";
        case '*': return "%2A";
        case '+': return "%2B";
        case ',': return "%2C";
        case '/': return "%2F";
        case ':': return "%3A";
        case ';': return "%3B";
        case '=': return "%3D";
        case '?': return "%3F";
        case '@': return "%40";
        case '[': return "%5B";
        case '\\': return "%5C";
        case ']': return "%5D";
        case '^': return "%5E";
        default: return {};
    }
}

TEST(PercentEncodingTest, EncodesExactlyTheReservedBytes) {
    int encoded = 0;
    for (int byte = 0; byte < 256; ++byte) {
        const std::string text(1, static_cast<char>(byte));
        const auto form = encodedForm(text[0]);
        EXPECT_EQ(percentEncoded(text), form.empty() ? text : form) << byte;
        encoded += form.empty() ? 0 : 1;
    }
    EXPECT_EQ(encoded, 22);
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

}  // namespace
}  // namespace KestrinProfile
