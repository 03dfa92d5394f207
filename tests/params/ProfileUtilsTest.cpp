#include <gmock/gmock.h>

#include <KestrinProfile/params/ProfileUtils.hpp>

namespace KestrinProfile {
namespace {

using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::TextMap;

TEST(ProfileUtilsTest, NamesTheHeaders) {
    EXPECT_STREQ(ProfileHeaders::jwt, "Authorization");
    EXPECT_STREQ(ProfileHeaders::profileID, "PXRO-PROFILE-ID");
}

TEST(ProfileUtilsTest, NamesThePlaceholders) {
    EXPECT_STREQ(ProfileMapping::uxid, "%UXID%");
    EXPECT_STREQ(ProfileMapping::brand, "%BRANDNAME%");
    EXPECT_STREQ(ProfileMapping::show, "%SHOWID%");
    EXPECT_STREQ(ProfileMapping::video, "%VIDEO%");
    EXPECT_STREQ(ProfileMapping::userName, "%USERNAME%");
    EXPECT_STREQ(ProfileMapping::search, "%SEARCH%");
}

TEST(ProfileUtilsTest, NoBindGivesNoHeaders) {
    EXPECT_EQ(ProfileUtils::header(std::nullopt), TextMap());
}

TEST(ProfileUtilsTest, ABindGivesItsTwoHeaders) {
    EXPECT_EQ(ProfileUtils::header(AnonymousBind("p1", "a.b.c")),
              (TextMap{{"Authorization", "JWT a.b.c"}, {"PXRO-PROFILE-ID", "p1"}}));
    EXPECT_EQ(ProfileUtils::header(AnonymousBind("", "")),
              (TextMap{{"Authorization", "JWT "}, {"PXRO-PROFILE-ID", ""}}));
}

}  // namespace
}  // namespace KestrinProfile
