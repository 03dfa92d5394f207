#include <string>
#include <string_view>
#include <variant>

#include <gmock/gmock.h>

#include <HalvardSling/http/URL.hpp>

using namespace HalvardSling;
using testing::HasSubstr;
using testing::Not;

namespace {

std::string originText(std::string_view url) {
    const auto origin = originOf(url);
    return origin ? origin->text() : "(none)";
}

TEST(URL, OriginIsSchemeHostAndPortInLowerCase) {
    EXPECT_EQ(originText("https://api.example.com"), "https://api.example.com:443");
    EXPECT_EQ(originText("HTTP://API.Example.COM/Path?q#f"), "http://api.example.com:80");
    EXPECT_EQ(originText("https://api.example.com:8443/x"), "https://api.example.com:8443");
    EXPECT_EQ(originText("http://[::1]:80/"), "http://[::1]:80");
    EXPECT_EQ(originText("https://a?@evil.example/"), "https://a:443");
    EXPECT_EQ(originText("https://a#@evil.example/"), "https://a:443");
}

TEST(URL, OriginHasOneFormHoweverTheAddressIsWritten) {
    for (const std::string_view url :
         {"http://127.0.0.1:80/", "http://127.0.0.1", "http://127.0.0.1:0080/", "http://127.1/",
          "http://0x7f.0.0.1/", "http://0177.0.0.1/", "http://2130706433/", "http://0x7f000001/"})
        EXPECT_EQ(originText(url), "http://127.0.0.1:80") << url;
    EXPECT_EQ(originText("http://10.0.0.255:65535/"), "http://10.0.0.255:65535");
    EXPECT_EQ(originText("http://a.example:65535/"), "http://a.example:65535");
    EXPECT_EQ(originText("http://a.example:65536/"), "(none)");
    EXPECT_EQ(originText("http://a-1.b2.Example/"), "http://a-1.b2.example:80");
    EXPECT_EQ(originText("http://a_b.example/"), "http://a_b.example:80");
}

TEST(URL, OriginIsAbsentWhereThereIsNone) {
    for (const std::string_view url :
         {"", "api.example.com", "/path", "ftp://a/", "file:///etc/passwd", "https:", "https:/a",
          "https:///a", "https://", "https://:443/", "https://a:port/", "https://a:99999/",
          "https://a b/", "https://[::1/", "javascript:alert(1)"})
        EXPECT_EQ(originText(url), "(none)") << url;
}

TEST(URL, TheMachineItselfIsLoopback) {
    for (const std::string_view host :
         {"localhost", "LocalHost", "127.0.0.1", "127.255.255.255", "[::1]"})
        EXPECT_TRUE(isLoopback(host)) << host;
    for (const std::string_view host :
         {"", "localhost.example.com", "127.0.0.1.example.com", "127.example.com", "128.0.0.1",
          "127.0.0", "127.0.0.256", "127.0.0.1.", "1127.0.0.1", "[::2]", "127.0.0.-1", "10.0.0.1"})
        EXPECT_FALSE(isLoopback(host)) << host;
}

TEST(URL, EscapesOnlyWhatARequestLineCannotCarry) {
    EXPECT_EQ(escapedForRequestLine("https://a/%41%zz?q=/?#&=+;:@!$'()*,[]~"),
              "https://a/%41%zz?q=/?#&=+;:@!$'()*,[]~");
    EXPECT_EQ(escapedForRequestLine("\"<>{}|\\^`\x80\xFF"), "%22%3C%3E%7B%7D%7C%5C%5E%60%80%FF");
    const std::string once = escapedForRequestLine("\xC3\xA4{");
    EXPECT_EQ(escapedForRequestLine(once), once);
}

TEST(URL, IsCutIntoTheOriginAsWrittenAndTheTarget) {
    struct Case {
        std::string url;
        std::string origin;
        std::string target;
    };
    for (const auto& [url, origin, target] : std::vector<Case>{
             {"https://api.example.com", "https://api.example.com", "/"},
             {"https://api.example.com/", "https://api.example.com", "/"},
             {"HTTPS://API.example:8443/v1/a%41//b?c=%2e&d#e", "HTTPS://API.example:8443",
              "/v1/a%41//b?c=%2e&d"},
             {"http://[::1]:80?a=/b", "http://[::1]:80", "/?a=/b"},
             {"http://a.example#b?c", "http://a.example", "/"},
             {"http://a.example/?", "http://a.example", "/?"},
             {"http://a.example/\xC3\xA4?{", "http://a.example", "/%C3%A4?%7B"},
         }) {
        EXPECT_EQ(writtenOriginOf(url), origin);
        EXPECT_EQ(requestTargetOf(url), target);
    }
    for (const std::string_view url :
         {"", "api.example.com/a", "ftp://a/", "https:/a", "https:///a"})
        EXPECT_EQ(writtenOriginOf(url), "") << url;
}

TEST(URL, MayBeSentWhenOrdinary) {
    for (const std::string_view url :
         {"https://api.example.com", "http://localhost:8080/", "https://a/v1/x.y/..z/...",
          "https://a/x?dots=/../.", "https://a/x#/../", "https://a/%41%2Fb", "https://a/;p=1",
          "https://a/\xC3\xA4", "https://a/{b}", "https://a/@b", "https://a/x%20y", "https://a//b",
          "https://a/100%", "https://a/%", "https://a/%2", "https://a/%252541", "https://a/.hidden",
          "https://a/b?url=https://user@c/"})
        EXPECT_EQ(problemOfURL(url), std::nullopt) << url;
}

TEST(URL, MayNotBeSentWithDotSegmentsHoweverEncoded) {
    for (const std::string_view path : {"/.",
                                        "/..",
                                        "/a/../b",
                                        "/a/./b",
                                        "/a/..",
                                        "/%2e",
                                        "/%2E%2e",
                                        "/.%2e/",
                                        "/%252e%252e/a",
                                        "/%25252e./a",
                                        "/a%2F..%2Fb",
                                        "/a%2f%2e%2e",
                                        "/a%252F..",
                                        "/a\\..\\b",
                                        "/a%5C..",
                                        "/a%5c.",
                                        "/..;x=1/a",
                                        "/a/..%3Bx",
                                        "/%2e%2e;/",
                                        "/..%00",
                                        "/a/..%2500b",
                                        "/..%3F",
                                        "/a/%2e%23",
                                        "/a/%%32%65%%32%65/",
                                        "/%25%32%65%25%32%65",
                                        "/a%25%35%43..",
                                        "/..?q",
                                        "/..#f"}) {
        const auto problem = problemOfURL("https://a" + std::string(path));
        ASSERT_TRUE(problem) << path;
        EXPECT_EQ(problem->kind(), SlingErrorKind::malformedURL);
        EXPECT_THAT(problem->what(), HasSubstr("path segment"));
    }
}

TEST(URL, MayNotBeSentWhenEncodedWithoutEnd) {
    std::string path = "/a";
    for (int i = 0; i < 100'000; ++i)
        path += "%25";
    for (int i = 0; i < 100; ++i)
        path.insert(path.size(), "25");
    EXPECT_TRUE(problemOfURL("https://a" + path + "2e"));
}

TEST(URL, MayNotBeSentWithBytesThatBreakARequest) {
    for (const char bad : {'\0', '\r', '\n', '\t', ' ', '\x1F', '\x7F'})
        for (const std::string_view at :
             {"https://a/x", "https://a/x?y", "https://a/x#y", "https://a"})
            EXPECT_TRUE(problemOfURL(std::string(at) + bad + "z"))
                << at << " and the byte " << static_cast<int>(bad);
}

TEST(URL, MayNotBeSentWithUserInformation) {
    for (const std::string_view url :
         {"https://user@a/", "https://user:password@a/", "https://@a/", "https://:@a/",
          "https://a\\@evil.example/", "https://a%40b@c/"})
        EXPECT_TRUE(problemOfURL(url)) << url;
}

TEST(URL, MayNotBeSentWithoutHTTPSchemeAndHost) {
    for (const std::string_view url :
         {"", "/x", "a/x", "ftp://a/", "file:///x", "https:/a", "https:///a", "https:a", "https://",
          "https://?x", "https://:1/", "https://a:b/", " https://a/"})
        EXPECT_TRUE(problemOfURL(url)) << url;
}

TEST(URL, ProblemsDoNotShowThePathOrTheQuery) {
    const auto problem = problemOfURL("https://a/secret/../x?token=secret");
    ASSERT_TRUE(problem);
    EXPECT_THAT(problem->what(), HasSubstr("https://a:443"));
    EXPECT_THAT(problem->what(), Not(HasSubstr("secret")));
}

TEST(URL, AFilledTemplateKeepsItsOrigin) {
    const auto problem = [](std::string_view templateURL, std::string_view url) {
        return problemOfOrigin(templateURL, url).has_value();
    };
    const std::string_view pattern = "https://a.example/v1/%ID%";
    EXPECT_FALSE(problem(pattern, "https://a.example/v1/b"));
    EXPECT_FALSE(problem(pattern, "https://A.example:443/v1/b?c#d"));
    EXPECT_FALSE(problem(pattern, "https://a.example/v1/@b.example"));
    EXPECT_TRUE(problem(pattern, "https://b.example/v1/b"));
    EXPECT_TRUE(problem(pattern, "https://a.example.evil.example/v1/b"));
    EXPECT_TRUE(problem(pattern, "https://a.example:8443/v1/b"));
    EXPECT_TRUE(problem(pattern, "https://a.example@evil.example/v1/b"));
    EXPECT_TRUE(problem(pattern, "http://a.example/v1/b"));
    EXPECT_TRUE(problem("https://%HOST%/x", "https://a.example/x"));
    EXPECT_TRUE(problem("%URL%", "https://a.example/x"));
}

TEST(Request, HeaderNamesAreTokensAndValuesAreVisible) {
    EXPECT_EQ(problemOfHeaders({{"X-A_b.1!#$%&'*+^`|~", "all \t~ visible"}, {"x", ""}}),
              std::nullopt);
    for (const std::string name : {"", "a b", "a:", "a\r\nb", "\xC3\xA4", "a;", "(a)", "a\x7F"})
        EXPECT_TRUE(problemOfHeaders({{name, "x"}})) << name;
    for (const char bad : {'\0', '\r', '\n', '\x01', '\x1F', '\x7F', '\x80', '\xFF'})
        EXPECT_TRUE(problemOfHeaders({{"x", std::string("a") + bad}})) << static_cast<int>(bad);
}

TEST(Request, AForbiddenHeaderIsReportedWithoutItsValue) {
    const auto problem = problemOfHeaders({{"Authorization", "secret\n"}});
    ASSERT_TRUE(problem);
    EXPECT_EQ(problem->kind(), SlingErrorKind::forbiddenHeader);
    EXPECT_THAT(problem->what(), HasSubstr("Authorization"));
    EXPECT_THAT(problem->what(), Not(HasSubstr("secret")));
}

TEST(Request, CleartextMustBeAllowed) {
    TransportRequest request;
    request.url = "HTTP://localhost/";
    ASSERT_TRUE(problemOfRequest(request));
    EXPECT_EQ(problemOfRequest(request)->kind(), SlingErrorKind::malformedURL);
    request.policy.allowsCleartext = true;
    EXPECT_EQ(problemOfRequest(request), std::nullopt);
    request.policy.allowsCleartext = false;
    request.url = "https://localhost/";
    EXPECT_EQ(problemOfRequest(request), std::nullopt);
}

TEST(Request, TheMethodIsAToken) {
    TransportRequest request;
    request.url = "https://a/";
    for (const std::string method : {"", "GET /", "GET\r\nX: y", "G T"}) {
        request.method = method;
        ASSERT_TRUE(problemOfRequest(request)) << method;
        EXPECT_EQ(problemOfRequest(request)->kind(), SlingErrorKind::forbiddenHeader);
    }
}

TEST(CheckedRequest, ThereIsNoneOfARequestThatMayNotBeSent) {
    TransportRequest request;
    request.url = "https://a/b";
    request.headers = {{"X", "a\r\nInjected: yes"}};
    const auto refused = CheckedRequest::of(request);
    ASSERT_TRUE(std::holds_alternative<SlingError>(refused));
    EXPECT_EQ(std::get<SlingError>(refused).kind(), SlingErrorKind::forbiddenHeader);
    request.headers = {{"X", "a"}};
    const auto made = CheckedRequest::of(request);
    ASSERT_TRUE(std::holds_alternative<CheckedRequest>(made));
    EXPECT_EQ(std::get<CheckedRequest>(made)->url, "https://a/b");
}

TEST(Request, OnlySomeMethodsMayBeRepeated) {
    TransportRequest request;
    for (const char* const method : {"GET", "HEAD", "PUT", "DELETE", "OPTIONS", "TRACE"}) {
        request.method = method;
        EXPECT_TRUE(request.isIdempotent()) << method;
    }
    for (const char* const method : {"POST", "PATCH", "get", "CONNECT", "", "ANYTHING"}) {
        request.method = method;
        EXPECT_FALSE(request.isIdempotent()) << method;
    }
}

}  // namespace
