#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <HalvardSling/http/Headers.hpp>
#include <HalvardSling/http/Response.hpp>
#include <HalvardSling/http/SlingError.hpp>

using namespace HalvardSling;
using testing::ElementsAre;
using testing::Pair;

namespace {

TEST(Headers, NamesAreFoundInAnyLetterCase) {
    const Headers headers{{"Content-Type", "a"}, {"X-Two", "1"}, {"x-two", "2"}};
    EXPECT_EQ(headers.value("content-TYPE"), "a");
    EXPECT_EQ(headers.value("X-TWO"), "1");
    EXPECT_EQ(headers.value("X-Tw"), std::nullopt);
    EXPECT_EQ(headers.value(""), std::nullopt);
}

TEST(Headers, AnEmptyValueIsPresent) {
    const Headers headers{{"Empty", ""}};
    EXPECT_EQ(headers.value("empty"), "");
}

TEST(Headers, SettingReplacesEveryOneAndAddingNone) {
    Headers headers{{"A", "1"}, {"B", "2"}, {"a", "3"}};
    headers.set("a", "4");
    EXPECT_THAT(std::vector(headers.begin(), headers.end()),
                ElementsAre(Pair("B", "2"), Pair("a", "4")));
    headers.add("B", "5");
    EXPECT_EQ(headers.size(), 3U);
    EXPECT_EQ(headers.value("b"), "2");
    headers.remove("B");
    EXPECT_EQ(headers.size(), 1U);
    EXPECT_FALSE(headers.empty());
}

TEST(Response, CopiesShareOneBody) {
    const Response first({.status = 200,
                          .headers = {},
                          .body = std::string(1000, 'x'),
                          .effectiveURL = {},
                          .timings = {}});
    const Response second = first;  // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_EQ(first.body().data(), second.body().data());
    EXPECT_EQ(first.sharedBody().get(), second.sharedBody().get());
    EXPECT_EQ(first.sharedBody()->data(), first.body().data());
}

TEST(SlingError, HasAKindAndAText) {
    const SlingError error(SlingErrorKind::tls, "what and where");
    EXPECT_EQ(error.kind(), SlingErrorKind::tls);
    EXPECT_STREQ(error.what(), "what and where");
    EXPECT_EQ(error.statusCode(), std::nullopt);
    EXPECT_EQ(error.reply(), nullptr);
    EXPECT_EQ(name(error.kind()), "tls");
    EXPECT_EQ(error.domain(), "HalvardSling.SlingError");
    EXPECT_EQ(error.code(), 3);
    EXPECT_EQ(error.advice(), advice(SlingErrorKind::tls));
    EXPECT_EQ(error.context(), nullptr);
    EXPECT_EQ(error.problem(), nullptr);
}

TEST(SlingError, CutsAnErrorsBody) {
    const auto error = SlingError::httpStatus(
        500, "https://a:443",
        {.headers = {}, .body = std::string(ErrorReply::maxBodyBytes + 1, 'x')});
    EXPECT_EQ(error.statusCode(), 500);
    EXPECT_EQ(error.reply()->body.size(), ErrorReply::maxBodyBytes);
    EXPECT_STREQ(error.what(), "the service at https://a:443 answered with status 500");
}

TEST(SlingError, EveryKindHasANameOfItsOwnAndAnAdvice) {
    std::set<std::string_view> names;
    for (int kind = 0; kind <= static_cast<int>(SlingErrorKind::malformedBody); ++kind) {
        EXPECT_TRUE(names.insert(name(static_cast<SlingErrorKind>(kind))).second) << kind;
        EXPECT_NE(advice(static_cast<SlingErrorKind>(kind)), "") << kind;
    }
}

}  // namespace
