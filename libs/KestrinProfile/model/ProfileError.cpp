#include <array>
#include <cstddef>

#include <KestrinProfile/model/ProfileError.hpp>

namespace KestrinProfile {

namespace {

struct Text {
    const char* what;
    const char* advice;
};

constexpr std::array<Text, ProfileError::caseCount> texts{{
    {"parameterOperationMismatch: the request's parameters name no operation",
     "call an operation of Profile, which names it"},
    {"anonymousBindUninitialized: there is no anonymous bind", "request an anonymous bind"},
    {"profileIDValdationFailure: a bind was requested without a profile identifier",
     "name the profile"},
    {"userInvalidForOperation: the user has no profile identifier",
     "use a user that came as a reply"},
    {"parentInvalidForOperation: the parent profile can be neither edited nor deleted",
     "choose another profile"},
    {"anonymousBindSerializationError: the service's reply holds no valid anonymous bind",
     "check the device's clock, the URL of the service, and that a header can carry what it sends"},
    {"userProfileSerializationError: the service's reply is no list",
     "check the URL of the service"},
    {"userSerializationError: the service's reply is no profile or no list of profiles",
     "check the URL of the service"},
}};

const Text& textOf(ProfileError::Case value) noexcept {
    return texts.at(static_cast<std::size_t>(value));
}

}  // namespace

// Out of line: it keeps the class's type information in this library alone, so that a handler in
// another shared library recognises the type also with libc++ and hidden visibility.
ProfileError::~ProfileError() = default;

std::string_view ProfileError::domain() noexcept {
    return "KestrinProfile.ProfileError";
}

std::string_view ProfileError::advice() const noexcept {
    return textOf(value_).advice;
}

const char* ProfileError::what() const noexcept {
    return textOf(value_).what;
}

}  // namespace KestrinProfile
