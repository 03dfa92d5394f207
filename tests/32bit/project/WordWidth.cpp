// That the tests are what they are for: words are narrower than the numbers that the service sends.

#include <KestrinProfile/model/UserProfileElement.hpp>
#include <KestrinProfile/params/ProfileParams.hpp>

static_assert(sizeof(void*) == 4);
static_assert(sizeof(*KestrinProfile::ProfileParams::progress) == 4);
static_assert(sizeof(*KestrinProfile::UserProfileElement::progress) == 8);
