#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <gmock/gmock.h>

#include <HalvardSling/http/TransportRequest.hpp>
#include <HalvardSling/http/URL.hpp>

using namespace HalvardSling;
using namespace std::string_view_literals;
using testing::HasSubstr;
using testing::Not;

namespace {

std::string originText(std::string_view url) {
    const auto parsed = URL::parse(url);
    const auto* const found = std::get_if<URL>(&parsed);
    return found != nullptr ? found->origin().text() : "(none)";
}

/// Why no request may be sent to a URL; absent if one may.
std::optional<SlingError> refusalOf(std::string_view url) {
    const auto parsed = URL::parse(url);
    const auto* const error = std::get_if<SlingError>(&parsed);
    return error != nullptr ? std::optional(*error) : std::nullopt;
}

std::optional<SlingError> refusalOf(const TransportRequest& request) {
    const auto checked = CheckedRequest::of(request);
    const auto* const error = std::get_if<SlingError>(&checked);
    return error != nullptr ? std::optional(*error) : std::nullopt;
}

std::optional<SlingError> refusalOfHeaders(Headers headers) {
    TransportRequest request;
    request.url = "https://a/";
    request.headers = std::move(headers);
    return refusalOf(request);
}

TEST(URL, OriginIsSchemeHostAndPortInLowerCase) {
    EXPECT_EQ(originText("https://api.example.com"), "https://api.example.com:443");
    EXPECT_EQ(originText("HTTP://API.Example.COM/Path?q#f"), "http://api.example.com:80");
    EXPECT_EQ(originText("https://api.example.com:8443/x"), "https://api.example.com:8443");
    EXPECT_EQ(originText("http://[::1]:80/"), "http://[::1]:80");
    EXPECT_EQ(originText("https://a?@evil.example/"), "https://a:443");
    EXPECT_EQ(originText("https://a#@evil.example/"), "https://a:443");
}

TEST(URL, OriginsAreEqualIfAllTheirPartsAre) {
    const Origin origin{"https", "a", "443"};
    EXPECT_EQ(origin, (Origin{"https", "a", "443"}));
    EXPECT_NE(origin, (Origin{"http", "a", "443"}));
    EXPECT_NE(origin, (Origin{"https", "b", "443"}));
    EXPECT_NE(origin, (Origin{"https", "a", "444"}));
}

TEST(Request, PoliciesAreEqualIfAllTheirPartsAre) {
    const RequestPolicy policy;
    const auto expectOther = [&](auto change) {
        RequestPolicy other;
        change(other);
        EXPECT_NE(other, policy);
    };
    EXPECT_EQ(RequestPolicy(), policy);
    expectOther([](RequestPolicy& other) { ++other.connectTimeout; });
    expectOther([](RequestPolicy& other) { ++other.totalTimeout; });
    expectOther([](RequestPolicy& other) { other.maxRedirects = 1; });
    expectOther([](RequestPolicy& other) { other.allowsCleartext = true; });
    expectOther(
        [](RequestPolicy& other) { other.cleartextHosts = std::make_shared<CleartextHosts>(); });
    expectOther([](RequestPolicy& other) { --other.maxBodyBytes; });
    expectOther([](RequestPolicy& other) { --other.maxHeaderBytes; });
}

TEST(URL, OriginHasOneFormHoweverTheAddressIsWritten) {
    for (const std::string_view url : {"http://127.0.0.1:80/", "http://127.0.0.1",
                                       "http://127.0.0.1:0080/", "http://127.0.0.1:/"})
        EXPECT_EQ(originText(url), "http://127.0.0.1:80") << url;
    for (const std::string_view url : {"http://[2001:DB8::1]/", "http://[2001:db8:0:0:0:0:0:1]/"})
        EXPECT_EQ(originText(url), "http://[2001:db8::1]:80") << url;
    EXPECT_EQ(originText("http://10.0.0.255:65535/"), "http://10.0.0.255:65535");
    EXPECT_EQ(originText("http://a.example:65535/"), "http://a.example:65535");
    EXPECT_EQ(originText("http://a.example:65536/"), "(none)");
    EXPECT_EQ(originText("http://a-1.b2.Example/"), "http://a-1.b2.example:80");
    EXPECT_EQ(originText("http://a_b.example/"), "http://a_b.example:80");
    EXPECT_EQ(originText("http://1.2.3.4.a5/"), "http://1.2.3.4.a5:80");
}

TEST(URL, AHostThatParsersReadDifferentlyIsRefused) {
    for (const std::string_view host :
         {"127.1",       "0x7f.0.0.1", "0177.0.0.1",  "2130706433",   "0x7f000001",
          "127.0.0.1.",  "256.1.1.1",  "1.2.3",       "1.2.3.4.5",    "a.1",
          "a.0x1",       "127.0.0.01", "%61.example", "a%20b",        "a!b",
          "a,b",         "a=b",        "a'b",         "a(b)",         "\xC3\xA4.example",
          "[v1.a]",      "[::1",       "[::1]x",      "::1",          "[fe80::1%25eth0]",
          "[fe80::1%e]", "[]",         "[127.0.0.1]", "[::1.2.3.04]", ".",
          "..",          "a{b}",       "a\\b",        "[12345::1]",   "a[b]"})
        EXPECT_EQ(originText("https://" + std::string(host) + '/'), "(none)") << host;
}

TEST(URL, OriginIsAbsentWhereThereIsNone) {
    for (const std::string_view url :
         {"", "api.example.com", "/path", "ftp://a/", "file:///etc/passwd", "https:", "https:/a",
          "https:///a", "https://", "https://:443/", "https://a:port/", "https://a:99999/",
          "https://a b/", "https://[::1/", "javascript:alert(1)"})
        EXPECT_EQ(originText(url), "(none)") << url;
}

TEST(URL, TheMachineItselfIsLoopback) {
    const auto isLoopback = [](std::string_view host) {
        return Origin{"http", std::string(host), "80"}.isLoopback();
    };
    for (const std::string_view host :
         {"localhost", "LocalHost", "127.0.0.1", "127.255.255.255", "[::1]"})
        EXPECT_TRUE(isLoopback(host)) << host;
    for (const std::string_view host :
         {"", "localhost.example.com", "127.0.0.1.example.com", "127.example.com", "128.0.0.1",
          "127.0.0", "127.0.0.256", "127.0.0.1.", "1127.0.0.1", "[::2]", "127.0.0.-1", "10.0.0.1",
          "127.0.0.01"})
        EXPECT_FALSE(isLoopback(host)) << host;
    EXPECT_FALSE(isLoopback("127.0.0.1\0.example.com"sv));
}

TEST(URL, EscapesOnlyWhatARequestLineCannotCarry) {
    const auto escaped = [](std::string_view text) {
        return std::get<URL>(URL::parse("https://a/" + std::string(text))).text();
    };
    EXPECT_EQ(escaped("%41%zz?q=/?#&=+;:@!$'()*,[]~"), "https://a/%41%zz?q=/?#&=+;:@!$'()*,[]~");
    EXPECT_EQ(escaped("\"<>{}|\\^`\x80\xFF"), "https://a/%22%3C%3E%7B%7D%7C%5C%5E%60%80%FF");
    EXPECT_EQ(escaped("%C3%A4%7B"), "https://a/%C3%A4%7B");
}

TEST(URL, TheRequestTargetIsPathAndQuery) {
    struct Case {
        std::string url;
        std::string target;
    };
    for (const auto& [url, target] : std::vector<Case>{
             {"https://api.example.com", "/"},
             {"https://api.example.com/", "/"},
             {"HTTPS://API.example:8443/v1/a%41//b?c=%2e&d#e", "/v1/a%41//b?c=%2e&d"},
             {"http://[::1]:80?a=/b", "/?a=/b"},
             {"http://a.example#b?c", "/"},
             {"http://a.example/?", "/?"},
             {"http://a.example/\xC3\xA4?{", "/%C3%A4?%7B"},
         })
        EXPECT_EQ(std::get<URL>(URL::parse(url)).requestTarget(), target);
}

TEST(URL, MayBeSentWhenOrdinary) {
    for (const std::string_view url :
         {"https://api.example.com", "http://localhost:8080/", "https://a/v1/x.y/..z/...",
          "https://a/x?dots=/../.", "https://a/x#/../", "https://a/%41%2Fb", "https://a/;p=1",
          "https://a/\xC3\xA4", "https://a/{b}", "https://a/@b", "https://a/x%20y", "https://a//b",
          "https://a/100%", "https://a/%", "https://a/%2", "https://a/%252541", "https://a/.hidden",
          "https://a/b?url=https://user@c/"})
        EXPECT_EQ(refusalOf(url), std::nullopt) << url;
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
        const auto problem = refusalOf("https://a" + std::string(path));
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
    EXPECT_TRUE(refusalOf("https://a" + path + "2e"));
}

TEST(URL, MayNotBeSentWithBytesThatBreakARequest) {
    for (const char bad : {'\0', '\r', '\n', '\t', ' ', '\x1F', '\x7F'})
        for (const std::string_view at :
             {"https://a/x", "https://a/x?y", "https://a/x#y", "https://a"})
            EXPECT_TRUE(refusalOf(std::string(at) + bad + "z"))
                << at << " and the byte " << static_cast<int>(bad);
}

TEST(URL, MayNotBeSentWithUserInformation) {
    for (const std::string_view url :
         {"https://user@a/", "https://user:password@a/", "https://@a/", "https://:@a/",
          "https://a\\@evil.example/", "https://a%40b@c/"})
        EXPECT_TRUE(refusalOf(url)) << url;
}

TEST(URL, MayNotBeSentWithoutHTTPSchemeAndHost) {
    for (const std::string_view url :
         {"", "/x", "a/x", "ftp://a/", "file:///x", "https:/a", "https:///a", "https:a", "https://",
          "https://?x", "https://:1/", "https://a:b/", " https://a/"})
        EXPECT_TRUE(refusalOf(url)) << url;
}

TEST(URL, ProblemsDoNotShowThePathOrTheQuery) {
    const auto problem = refusalOf("https://a/secret/../x?token=secret");
    ASSERT_TRUE(problem);
    EXPECT_THAT(problem->what(), HasSubstr("https://a:443"));
    EXPECT_THAT(problem->what(), Not(HasSubstr("secret")));
}

TEST(URL, AFilledTemplateKeepsItsOrigin) {
    const auto isRefused = [](std::string_view pattern, std::string_view url) {
        const auto parsed = URL::parse(url);
        const auto* const found = std::get_if<URL>(&parsed);
        return found == nullptr || found->validateOrigin(pattern).has_value();
    };
    const std::string_view pattern = "https://a.example/v1/%ID%";
    EXPECT_FALSE(isRefused(pattern, "https://a.example/v1/b"));
    EXPECT_FALSE(isRefused(pattern, "https://A.example:443/v1/b?c#d"));
    EXPECT_FALSE(isRefused(pattern, "https://a.example/v1/@b.example"));
    EXPECT_TRUE(isRefused(pattern, "https://b.example/v1/b"));
    EXPECT_TRUE(isRefused(pattern, "https://a.example.evil.example/v1/b"));
    EXPECT_TRUE(isRefused(pattern, "https://a.example:8443/v1/b"));
    EXPECT_TRUE(isRefused(pattern, "https://a.example@evil.example/v1/b"));
    EXPECT_TRUE(isRefused(pattern, "http://a.example/v1/b"));
    EXPECT_TRUE(isRefused("https://%HOST%/x", "https://a.example/x"));
    EXPECT_TRUE(isRefused("%URL%", "https://a.example/x"));
}

TEST(Request, HeaderNamesAreTokensAndValuesAreVisible) {
    EXPECT_EQ(refusalOfHeaders({{"X-A_b.1!#$%&'*+^`|~", "all \t~ visible"}, {"x", ""}}),
              std::nullopt);
    for (const std::string name : {"", "a b", "a:", "a\r\nb", "\xC3\xA4", "a;", "(a)", "a\x7F"})
        EXPECT_TRUE(refusalOfHeaders({{name, "x"}})) << name;
    for (const char bad : {'\0', '\r', '\n', '\x01', '\x1F', '\x7F', '\x80', '\xFF'})
        EXPECT_TRUE(refusalOfHeaders({{"x", std::string("a") + bad}})) << static_cast<int>(bad);
}

TEST(Request, AForbiddenHeaderIsReportedWithoutItsValue) {
    const auto problem = refusalOfHeaders({{"Authorization", "secret\n"}});
    ASSERT_TRUE(problem);
    EXPECT_EQ(problem->kind(), SlingErrorKind::forbiddenHeader);
    EXPECT_THAT(problem->what(), HasSubstr("Authorization"));
    EXPECT_THAT(problem->what(), Not(HasSubstr("secret")));
}

TEST(Request, CleartextMustBeAllowed) {
    TransportRequest request;
    request.url = "HTTP://localhost/";
    ASSERT_TRUE(refusalOf(request));
    EXPECT_EQ(refusalOf(request)->kind(), SlingErrorKind::malformedURL);
    request.policy.allowsCleartext = true;
    EXPECT_EQ(refusalOf(request), std::nullopt);
    request.policy.allowsCleartext = false;
    request.url = "https://localhost/";
    EXPECT_EQ(refusalOf(request), std::nullopt);
}

TEST(Request, TheMethodIsAToken) {
    TransportRequest request;
    request.url = "https://a/";
    for (const std::string method : {"", "GET /", "GET\r\nX: y", "G T"}) {
        request.method = method;
        ASSERT_TRUE(refusalOf(request)) << method;
        EXPECT_EQ(refusalOf(request)->kind(), SlingErrorKind::forbiddenHeader);
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
    for (const char* const method : {"GET", "HEAD", "OPTIONS", "TRACE"}) {
        request.method = method;
        EXPECT_TRUE(request.isSafe()) << method;
    }
    for (const char* const method :
         {"POST", "PUT", "PATCH", "DELETE", "get", "CONNECT", "", "ANYTHING"}) {
        request.method = method;
        EXPECT_FALSE(request.isSafe()) << method;
    }
}

}  // namespace
