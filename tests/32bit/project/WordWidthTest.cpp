// That the tests around this one are what they are for.

#include <cstdint>
#include <limits>

#include <gmock/gmock.h>

#include <KestrinProfile/params/ProfileParams.hpp>

namespace KestrinProfile {
namespace {

static_assert(sizeof(void*) == 4);
static_assert(sizeof(*ProfileParams::progress) == 4);
static_assert(sizeof(*UserProfileElement::progress) == 8);

TEST(WordWidthTest, TheProgressOfARequestIsAWordWide) {
    ProfileParams params;
    params.progress = std::numeric_limits<std::int32_t>::max();
    EXPECT_EQ(*params.progress, 2147483647);
}

}  // namespace
}  // namespace KestrinProfile
