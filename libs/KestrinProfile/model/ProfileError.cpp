#include <array>
#include <cstddef>

#include <KestrinProfile/model/ProfileError.hpp>

namespace KestrinProfile {

// Out of line: it keeps the class's type information in this library alone, so that a handler in
// another shared library recognises the type also with libc++ and hidden visibility.
ProfileError::~ProfileError() = default;

std::string_view ProfileError::domain() noexcept {
    return "KestrinProfile.ProfileError";
}

const char* ProfileError::what() const noexcept {
    static constexpr std::array<const char*, caseCount> texts{
        "parameterOperationMismatch: the request's parameters name no operation",
        "anonymousBindUninitialized: there is no anonymous bind",
        "profileIDValdationFailure: a bind was requested without a profile identifier",
        "userInvalidForOperation: the user has no profile identifier; use one that came as a reply",
        "parentInvalidForOperation: the parent profile can be neither edited nor deleted",
        "anonymousBindSerializationError: the service's reply holds no valid anonymous bind",
        "userProfileSerializationError: the service's reply is no list",
        "userSerializationError: the service's reply is no profile or no list of profiles",
    };
    return texts.at(static_cast<std::size_t>(value_));
}

void raise(ProfileError error) {
    throw error;
}

}  // namespace KestrinProfile
