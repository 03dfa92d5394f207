// Which texts are JSON dictionaries: each case with its verdict and why (RFC 8259, and what it
// leaves to us).

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <gmock/gmock.h>

#include <HalvardSling/json/JSONDictionary.hpp>

namespace {

using HalvardSling::JSONDictionary;
using HalvardSling::JSONFailure;

enum class Verdict { taken, notJSON, tooDeep, noDictionary };

struct Case {
    std::string text;
    Verdict verdict;
    std::string_view why;
    std::string_view written = {};  ///< what is written of it; empty: the text
};

Verdict verdictOn(const std::string& text) {
    const auto parsed = JSONDictionary::parse(std::string_view(text));
    const auto* const failure = std::get_if<JSONFailure>(&parsed);
    if (failure == nullptr) return Verdict::taken;
    if (failure->reason.find("expected a dictionary") != std::string::npos)
        return Verdict::noDictionary;
    return failure->reason.find("deep") != std::string::npos ? Verdict::tooDeep : Verdict::notJSON;
}

void check(const std::vector<Case>& cases) {
    for (const auto& [text, verdict, why, written] : cases) {
        EXPECT_EQ(verdictOn(text), verdict) << text << ": " << why;
        if (verdict != Verdict::taken) continue;
        const auto dictionary =
            std::get<JSONDictionary>(JSONDictionary::parse(std::string_view(text)));
        EXPECT_EQ(dictionary.toJSON(), written.empty() ? std::string_view(text) : written) << why;
        EXPECT_EQ(
            std::get<JSONDictionary>(JSONDictionary::parse(std::string_view(dictionary.toJSON()))),
            dictionary)
            << why;
    }
}

using enum Verdict;

TEST(JSONConformance, Structure) {
    check({
        {"{}", taken, "the least dictionary"},
        {R"({"":0})", taken, "a key may be empty"},
        {R"({"a":{},"b":[],"c":[[],{}]})", taken, "containers may be empty"},
        {R"({"a":[null,true,false,0,"",{},[]]})", taken, "every kind of value"},
        {"", notJSON, "there is no value"},
        {" \t\n\r", notJSON, "there is no value"},
        {"{", notJSON, "it does not end"},
        {"}", notJSON, "it does not begin"},
        {R"({"a")", notJSON, "it ends behind a key"},
        {R"({"a":)", notJSON, "it ends in front of a value"},
        {R"({"a":})", notJSON, "a key has no value"},
        {R"({"a"})", notJSON, "a key has no value"},
        {R"({:1})", notJSON, "a value has no key"},
        {R"({"a" 1})", notJSON, "there is no colon"},
        {R"({"a"::1})", notJSON, "there are two colons"},
        {R"({"a":1 "b":2})", notJSON, "there is no comma"},
        {R"({"a":1,,"b":2})", notJSON, "there are two commas"},
        {R"({"a":1,})", notJSON, "a comma ends it"},
        {R"({,"a":1})", notJSON, "a comma begins it"},
        {R"({"a":[1,]})", notJSON, "a comma ends an array"},
        {R"({"a":[,1]})", notJSON, "a comma begins an array"},
        {R"({"a":[1 2]})", notJSON, "there is no comma in an array"},
        {R"({"a":[1})", notJSON, "an array does not end"},
        {R"({"a":[1}])", notJSON, "the brackets are crossed"},
        {R"({"a":1]})", notJSON, "a bracket has no partner"},
        {R"({a:1})", notJSON, "a key has no quotes"},
        {R"({'a':1})", notJSON, "the quotes are single"},
        {R"({1:1})", notJSON, "a key is a number"},
        {R"({null:1})", notJSON, "a key is a literal"},
    });
}

TEST(JSONConformance, Top) {
    for (const std::string_view text :
         {"[]", "[{}]", "1", "-1.5e3", R"("")", R"("{}")", "true", "false", "null"})
        EXPECT_EQ(verdictOn(std::string(text)), noDictionary) << text << ": JSON, but of no keys";
}

TEST(JSONConformance, BlanksAndWhatStandsAround) {
    check({
        {" \t\r\n{ \t\r\n\"a\" \t\r\n: \t\r\n1 \t\r\n, \"b\":[ 1 , 2 ] } \t\r\n", taken,
         "the four blanks may stand between all tokens", R"({"a":1,"b":[1,2]})"},
        {"{}{}", notJSON, "a second value follows"},
        {"{} x", notJSON, "something follows"},
        {"{},", notJSON, "a comma follows"},
        {std::string("{}\0", 3), notJSON, "NUL follows, which is no blank"},
        {"\xEF\xBB\xBF{}", notJSON, "a byte-order mark begins it (section 8.1)"},
        {"\f{}", notJSON, "a form feed is no blank"},
        {"\v{}", notJSON, "a vertical tab is no blank"},
        {"\xC2\xA0{}", notJSON, "a no-break space is no blank"},
        {"{}\xE2\x80\xA8", notJSON, "a line separator is no blank"},
        {"{/**/}", notJSON, "there are no comments"},
        {"{}//", notJSON, "there are no comments"},
        {"#\n{}", notJSON, "there are no comments"},
        {std::string("{\0\"\0a\0\"\0:\0001\0}\0", 14), notJSON, "it is UTF-16"},
    });
}

TEST(JSONConformance, Literals) {
    check({
        {R"({"a":null,"b":true,"c":false})", taken, "the three literals"},
        {R"({"a":True})", notJSON, "literals are in lower case"},
        {R"({"a":NULL})", notJSON, "literals are in lower case"},
        {R"({"a":tru})", notJSON, "a literal is cut off"},
        {R"({"a":nul)", notJSON, "a literal is cut off"},
        {R"({"a":truee})", notJSON, "a literal goes on"},
        {R"({"a":undefined})", notJSON, "there is no such literal"},
        {R"({"a":NaN})", notJSON, "NaN is no number"},
        {R"({"a":Infinity})", notJSON, "infinity is no number"},
        {R"({"a":-Infinity})", notJSON, "infinity is no number"},
    });
}

TEST(JSONConformance, Numbers) {
    const std::string long401(401, '9');
    std::vector<Case> cases{
        {R"({"a":-0})", taken, "zero may have a sign; an integer has none", R"({"a":0})"},
        {R"({"a":9223372036854775807})", taken, "the largest integer"},
        {R"({"a":-9223372036854775808})", taken, "the least integer"},
    };
    for (const std::string& number : {std::string("0"),
                                      std::string("-1"),
                                      std::string("10"),
                                      std::string("1.0"),
                                      std::string("-0.0"),
                                      std::string("0.10"),
                                      std::string("1e3"),
                                      std::string("1E+03"),
                                      std::string("1e-3"),
                                      std::string("0e0"),
                                      std::string("1.5e400"),
                                      std::string("1e-400"),
                                      std::string("0e39223372036854775808"),
                                      std::string("1E-39223372036854775808"),
                                      std::string("9223372036854775808"),
                                      std::string("18446744073709551616"),
                                      long401,
                                      "-" + long401,
                                      "0." + long401,
                                      long401 + "." + long401 + "e" + long401})
        cases.push_back({R"({"a":)" + number + "}", taken, "a number of any size and precision"});
    for (const std::string_view number :
         {"01",    "-01",  "00",    "-",    "+1",    "--1", "1.",          ".5",
          "-.5",   "1.e3", "1e",    "1e+",  "1e-",   "e3",  "1e3.5",       "1e3e3",
          "1.2.3", "0x10", "1_000", "1,5.", "1 000", "1f",  "\xEF\xBC\x91"})
        cases.push_back(
            {R"({"a":)" + std::string(number) + "}", notJSON, "not the number grammar"});
    check(cases);
}

TEST(JSONConformance, Texts) {
    check({
        {R"({"a":"\"\\\/\b\f\n\r\t"})", taken, "the short escapes", R"({"a":"\"\\/\b\f\n\r\t"})"},
        {R"({"a":"\u0041\u00e9\u00E9\u20ac"})", taken, "escapes in hexadecimal",
         "{\"a\":\"A\u00e9\u00e9\u20ac\"}"},
        {R"({"\u0061":1})", taken, "an escape in a key", R"({"a":1})"},
        {R"({"a":"\u0000"})", taken, "NUL, escaped"},
        {"{\"a\":\"\x7F\"}", taken, "DEL needs no escape"},
        {R"({"a":"/"})", taken, "a slash needs no escape"},
        {"{\"a\":\"\n\"}", notJSON, "a control character without an escape"},
        {"{\"a\":\"\t\"}", notJSON, "a control character without an escape"},
        {"{\"a\":\"\x1F\"}", notJSON, "a control character without an escape"},
        {std::string("{\"a\":\"\0\"}", 9), notJSON, "a control character without an escape"},
        {R"({"a":"\a"})", notJSON, "there is no such escape"},
        {R"({"a":"\x41"})", notJSON, "there is no such escape"},
        {R"({"a":"\'"})", notJSON, "there is no such escape"},
        {R"({"a":"\U0041"})", notJSON, "there is no such escape"},
        {R"({"a":"\u041"})", notJSON, "an escape of three digits"},
        {R"({"a":"\u00g1"})", notJSON, "an escape of another letter"},
        {R"({"a":"\u-041"})", notJSON, "an escape with a sign"},
        {R"({"a":"\)", notJSON, "it ends in an escape"},
        {R"({"a":"\"})", notJSON, "the quote is escaped"},
        {R"({"a":"\u00)", notJSON, "it ends in an escape"},
        {R"({"a":"b)", notJSON, "a text does not end"},
    });
}

TEST(JSONConformance, Surrogates) {
    check({
        {R"({"a":"\ud83d\ude00"})", taken, "a pair", "{\"a\":\"\U0001F600\"}"},
        {R"({"a":"\uD800\uDC00\uDBFF\uDFFF"})", taken, "the first pair and the last",
         "{\"a\":\"\U00010000\U0010FFFF\"}"},
        {R"({"a":"\ud83d"})", notJSON, "a high one alone"},
        {R"({"a":"\ude00"})", notJSON, "a low one alone"},
        {R"({"a":"\ude00\ud83d"})", notJSON, "a pair the wrong way round"},
        {R"({"a":"\ud83d\ud83d"})", notJSON, "two high ones"},
        {R"({"a":"\ud83dx"})", notJSON, "a high one and a letter"},
        {R"({"a":"\ud83d\n"})", notJSON, "a high one and another escape"},
        {R"({"a":"\ud83d\u0041"})", notJSON, "a high one and another character"},
        {R"({"\ud83d":1})", notJSON, "a high one alone in a key"},
    });
}

TEST(JSONConformance, UTF8) {
    const auto of = [](std::string_view bytes) { return "{\"a\":\"" + std::string(bytes) + "\"}"; };
    check({
        {of("\xC2\x80\xDF\xBF"), taken, "two bytes, the first and the last"},
        {of("\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF"), taken, "three bytes"},
        {of("\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"), taken, "four bytes, the first and the last"},
        {of("\xEF\xBB\xBF"), taken, "a byte-order mark inside a text is a character"},
        {"{\"\xC3\xA9\":1}", taken, "in a key"},
        {of("\x80"), notJSON, "a continuation alone"},
        {of("\xBF"), notJSON, "a continuation alone"},
        {of("\xC3"), notJSON, "cut off"},
        {of("\xE2\x82"), notJSON, "cut off"},
        {of("\xF0\x9F\x98"), notJSON, "cut off"},
        {of("\xC3\xA9\xA9"), notJSON, "a continuation too many"},
        {of("\xC0\x80"), notJSON, "NUL in two bytes"},
        {of("\xC1\xBF"), notJSON, "a character of one byte in two"},
        {of("\xE0\x9F\xBF"), notJSON, "a character of two bytes in three"},
        {of("\xF0\x8F\xBF\xBF"), notJSON, "a character of three bytes in four"},
        {of("\xED\xA0\x80"), notJSON, "a surrogate"},
        {of("\xED\xBF\xBF"), notJSON, "a surrogate"},
        {of("\xF4\x90\x80\x80"), notJSON, "beyond the last character"},
        {of("\xF5\x80\x80\x80"), notJSON, "beyond the last character"},
        {of("\xF8\x88\x80\x80\x80"), notJSON, "five bytes"},
        {of("\xFE"), notJSON, "no byte of UTF-8"},
        {of("\xFF"), notJSON, "no byte of UTF-8"},
        {"{\"\xFF\":1}", notJSON, "in a key"},
    });
}

TEST(JSONConformance, RepeatedKeys) {
    check({
        {R"({"a":1,"a":2})", taken, "the first counts", R"({"a":1})"},
        {R"({"a":1,"b":2,"\u0061":3,"b":[4]})", taken, "an escape makes no other key",
         R"({"a":1,"b":2})"},
        {R"({"a":{"b":1,"b":2},"a":{"c":3}})", taken, "at every depth", R"({"a":{"b":1}})"},
        {R"({"a":1,"A":2,"a ":3})", taken, "these keys differ"},
        {"{\"\u00e9\":1,\"e\u0301\":2}", taken, "characters are not normalised"},
    });
}

TEST(JSONConformance, Depth) {
    const auto deep = [](std::size_t depth, char open, std::string_view inner, char close) {
        std::string text = R"({"a":)";
        for (std::size_t i = 1; i < depth; ++i)
            (text += open) += open == '{' ? R"("a":)" : "";
        text += inner;
        return text + std::string(depth - 1, close) + '}';
    };
    check({
        {deep(64, '[', "", ']'), taken, "64 in each other, arrays"},
        {deep(64, '{', "1", '}'), taken, "64 in each other, dictionaries"},
        {deep(65, '[', "", ']'), tooDeep, "65"},
        {deep(65, '{', "1", '}'), tooDeep, "65"},
        {deep(100'000, '[', "", ']'), tooDeep, "100,000"},
        {R"({"a":)" + std::string(100'000, '['), tooDeep, "100,000 that do not end"},
    });
}

}  // namespace
