#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <gmock/gmock.h>

#include <HalvardSling/http/internal/Redirect.hpp>

#include "Transfers.hpp"

using namespace HalvardSling;
using namespace TestSupport;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::Pair;

namespace {

TransportRequest secretRequest(std::string method = "GET") {
    TransportRequest request;
    request.method = std::move(method);
    request.url = "https://a.example/one/two?q";
    request.headers = {{"Authorization", "secret"},
                       {"pxro-profile-id", "secret"},
                       {"X-Other", "x"},
                       {"accept", "a"},
                       {"Accept-Language", "l"},
                       {"Content-Type", "c"},
                       {"User-Agent", "u"}};
    request.policy.maxRedirects = 3;
    return request;
}

std::variant<TransportRequest, SlingError> redirected(const TransportRequest& request, int status,
                                                      std::string_view location) {
    auto next = internal::redirected(checked(request), status, location);
    if (auto* const error = std::get_if<SlingError>(&next)) return std::move(*error);
    return *std::get<CheckedRequest>(next);
}

/// Where a redirect leads, or "refused".
std::string target(std::string_view location, const TransportRequest& request = secretRequest()) {
    const auto next = redirected(request, 302, location);
    const auto* const found = std::get_if<TransportRequest>(&next);
    if (found != nullptr) return found->url;
    EXPECT_EQ(std::get<SlingError>(next).kind(), SlingErrorKind::redirect);
    EXPECT_THAT(std::get<SlingError>(next).what(), Not(HasSubstr("one/two")));
    return "refused";
}

TEST(Redirect, ResolvesItsLocation) {
    EXPECT_EQ(target("/x"), "https://a.example/x");
    EXPECT_EQ(target("x?y"), "https://a.example/one/x?y");
    EXPECT_EQ(target("../x"), "https://a.example/x");
    EXPECT_EQ(target("?y"), "https://a.example/one/two?y");
    EXPECT_EQ(target("//b.example/x"), "https://b.example/x");
    EXPECT_EQ(target("https://b.example:444/x"), "https://b.example:444/x");
    EXPECT_EQ(target("/\xC3\xA4"), "https://a.example/%C3%A4");
    EXPECT_EQ(target("/x y"), "https://a.example/x%20y");
}

TEST(Redirect, ReferencesAreResolvedAsInTheExamplesOfRFC3986) {
    // Section 5.4, with its base.
    for (const auto& [reference, meaning] : std::vector<std::pair<const char*, const char*>>{
             {"g:h", "g:h"},
             {"g", "http://a/b/c/g"},
             {"./g", "http://a/b/c/g"},
             {"g/", "http://a/b/c/g/"},
             {"/g", "http://a/g"},
             {"//g", "http://g"},
             {"?y", "http://a/b/c/d;p?y"},
             {"g?y", "http://a/b/c/g?y"},
             {"#s", "http://a/b/c/d;p?q#s"},
             {"g#s", "http://a/b/c/g#s"},
             {"g?y#s", "http://a/b/c/g?y#s"},
             {";x", "http://a/b/c/;x"},
             {"g;x", "http://a/b/c/g;x"},
             {"g;x?y#s", "http://a/b/c/g;x?y#s"},
             {"", "http://a/b/c/d;p?q"},
             {".", "http://a/b/c/"},
             {"./", "http://a/b/c/"},
             {"..", "http://a/b/"},
             {"../", "http://a/b/"},
             {"../g", "http://a/b/g"},
             {"../..", "http://a/"},
             {"../../", "http://a/"},
             {"../../g", "http://a/g"},
             {"../../../g", "http://a/g"},
             {"../../../../g", "http://a/g"},
             {"/./g", "http://a/g"},
             {"/../g", "http://a/g"},
             {"g.", "http://a/b/c/g."},
             {".g", "http://a/b/c/.g"},
             {"g..", "http://a/b/c/g.."},
             {"..g", "http://a/b/c/..g"},
             {"./../g", "http://a/b/g"},
             {"./g/.", "http://a/b/c/g/"},
             {"g/./h", "http://a/b/c/g/h"},
             {"g/../h", "http://a/b/c/h"},
             {"g;x=1/./y", "http://a/b/c/g;x=1/y"},
             {"g;x=1/../y", "http://a/b/c/y"},
             {"g?y/./x", "http://a/b/c/g?y/./x"},
             {"g?y/../x", "http://a/b/c/g?y/../x"},
             {"g#s/./x", "http://a/b/c/g#s/./x"},
             {"g#s/../x", "http://a/b/c/g#s/../x"},
             {"http:g", "http:g"},
         })
        EXPECT_EQ(internal::resolvedReference("http://a/b/c/d;p?q", reference), meaning)
            << reference;
    EXPECT_EQ(internal::resolvedReference("http://a", "g"), "http://a/g");
    EXPECT_EQ(internal::resolvedReference("http://a?q", "?y"), "http://a?y");
    EXPECT_EQ(internal::resolvedReference("http://a/b//c", "../d"), "http://a/b/d");
}

TEST(Redirect, RefusesWhatMayNotBeSent) {
    for (const std::string_view location :
         {"http://a.example/", "ftp://a.example/", "file:///etc/passwd", "https://user@a.example/",
          "/%2e%2e/x", "/a/%252e%252e/x", "javascript:alert(1)", "https://", "/a\x01",
          "https://a.example:99999/"})
        EXPECT_EQ(target(location), "refused") << location;
}

TEST(Redirect, CleartextStaysWhereItIs) {
    auto request = secretRequest();
    request.policy.allowsCleartext = true;
    EXPECT_EQ(target("http://a.example/", request), "refused");
    request.url = "http://a.example/";
    EXPECT_EQ(target("http://a.example/x", request), "http://a.example/x");
    EXPECT_EQ(target("https://a.example/x", request), "https://a.example/x");
}

TEST(Redirect, LeadsToNoCleartextHostThatIsNotAllowed) {
    auto request = secretRequest();
    request.url = "http://a.example/";
    request.policy.allowsCleartext = true;
    EXPECT_EQ(target("http://b.example/x", request), "http://b.example/x");
    request.policy.cleartextHosts =
        std::make_shared<const CleartextHosts>(CleartextHosts{.names = {"a.example", "c.example"}});
    for (const char* const elsewhere :
         {"http://b.example/x", "//b.example/x", "http://sub.a.example/x", "http://127.0.0.1/x",
          "http://localhost/x", "http://[::1]/x", "HTTP://B.example:80/x"})
        EXPECT_EQ(target(elsewhere, request), "refused") << elsewhere;
    for (const char* const known : {"http://c.example/x", "http://a.example:81/x"})
        EXPECT_EQ(target(known, request), known);
    EXPECT_EQ(target("https://b.example/x", request), "https://b.example/x");
    request.policy.cleartextHosts = std::make_shared<const CleartextHosts>(
        CleartextHosts{.names = {"a.example"}, .loopback = true});
    EXPECT_EQ(target("http://127.0.0.1/x", request), "http://127.0.0.1/x");
}

TEST(Redirect, OneMoreThanAllowedIsRefused) {
    auto request = secretRequest();
    request.policy.maxRedirects = 0;
    EXPECT_EQ(target("/x", request), "refused");
    request.policy.maxRedirects = 1;
    const auto next = redirected(request, 302, "/x");
    EXPECT_EQ(std::get<TransportRequest>(next).policy.maxRedirects, 0);
}

TEST(Redirect, TheMethodFollowsTheStatus) {
    const auto methodAfter = [](int status, std::string method) {
        auto request = secretRequest(std::move(method));
        request.body = bodyOf("body");
        const auto next = std::get<TransportRequest>(redirected(request, status, "/x"));
        EXPECT_EQ(next.method == request.method, next.body != nullptr);
        EXPECT_EQ(next.body != nullptr, next.headers.value("Content-Type").has_value());
        return next.method;
    };
    for (const int status : {301, 302}) {
        EXPECT_EQ(methodAfter(status, "POST"), "GET");
        EXPECT_EQ(methodAfter(status, "PUT"), "PUT");
        EXPECT_EQ(methodAfter(status, "HEAD"), "HEAD");
    }
    EXPECT_EQ(methodAfter(303, "POST"), "GET");
    EXPECT_EQ(methodAfter(303, "DELETE"), "GET");
    EXPECT_EQ(methodAfter(303, "HEAD"), "HEAD");
    for (const int status : {307, 308}) {
        EXPECT_EQ(methodAfter(status, "POST"), "POST");
        EXPECT_EQ(methodAfter(status, "DELETE"), "DELETE");
    }
}

TEST(Redirect, OnlySomeStatusesLeadElsewhere) {
    for (int status = 100; status < 600; ++status) {
        const bool leads =
            status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
        EXPECT_EQ(internal::isRedirect(status), leads) << status;
    }
}

TEST(Redirect, TheSameOriginGetsEveryHeader) {
    const auto next =
        std::get<TransportRequest>(redirected(secretRequest(), 302, "https://A.example:443/x"));
    EXPECT_EQ(next.headers.size(), secretRequest().headers.size());
}

TEST(Redirect, AnotherOriginGetsNoSecret) {
    for (const std::string_view location :
         {"https://b.example/x", "https://a.example:444/x", "//sub.a.example/x"}) {
        const auto next = std::get<TransportRequest>(redirected(secretRequest(), 302, location));
        EXPECT_THAT(std::vector(next.headers.begin(), next.headers.end()),
                    ElementsAre(Pair("accept", "a"), Pair("Accept-Language", "l"),
                                Pair("Content-Type", "c"), Pair("User-Agent", "u")));
    }
}

TEST(Redirect, AnotherOriginGetsNoChangeAndNoBody) {
    for (const char* const method : {"POST", "PUT", "DELETE", "PATCH"})
        for (const int status : {307, 308})
            EXPECT_TRUE(std::holds_alternative<SlingError>(
                redirected(secretRequest(method), status, "https://b.example/")))
                << method;
    for (const char* const method : {"GET", "HEAD"}) {
        auto request = secretRequest(method);
        request.body = bodyOf("secret");
        const auto next =
            std::get<TransportRequest>(redirected(request, 307, "https://b.example/"));
        EXPECT_EQ(next.method, method);
        EXPECT_EQ(next.body, nullptr);
    }
}

}  // namespace
