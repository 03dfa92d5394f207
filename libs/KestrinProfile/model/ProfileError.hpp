#pragma once

#include <exception>
#include <functional>
#include <string_view>

namespace KestrinProfile {

/// The library's error. In use it is an enumeration (`error ==
/// ProfileError::userSerializationError`, `switch (error.value())`), in flight an exception: it
/// arrives as an observable's error and is never thrown to the caller of an operation.
class [[gnu::visibility("default")]] ProfileError final : public std::exception {
  public:
    /// The cases; the position is the error's code.
    enum Case {
        /// A request was made of a record without an operation. A mistake in the library's use.
        parameterOperationMismatch,
        /// Reserved: no operation raises it.
        anonymousBindUninitialized,
        /// A bind was requested without a profile identifier. Name the profile. (The name is
        /// spelt so in every client of the service.)
        profileIDValdationFailure,
        /// A profile was to be edited or deleted without saying which: the user is absent, or its
        /// identifier is absent or empty. Use a user that the service has returned.
        userInvalidForOperation,
        /// The household's parent profile was to be edited or deleted; it can be neither.
        parentInvalidForOperation,
        /// The service's reply holds no valid anonymous bind. A fault of the service, or the
        /// device's clock is far ahead.
        anonymousBindSerializationError,
        /// The service's reply is no list.
        userProfileSerializationError,
        /// The service's reply is no profile, or no list of profiles.
        userSerializationError,
    };

    /// How many cases there are.
    static constexpr int caseCount = 8;

    // NOLINTNEXTLINE(google-explicit-constructor): an enumerator in use is the error in flight.
    ProfileError(Case value) noexcept : value_(value) {}
    ProfileError(const ProfileError&) = default;
    ProfileError(ProfileError&&) = default;
    ProfileError& operator=(const ProfileError&) = default;
    ProfileError& operator=(ProfileError&&) = default;
    ~ProfileError() override;

    /// The case, for a `switch`.
    [[nodiscard]] Case value() const noexcept { return value_; }

    /// The position of the case, 0 to 7. 0 is an error like the others.
    [[nodiscard]] int code() const noexcept { return static_cast<int>(value_); }

    /// "KestrinProfile.ProfileError", the same for all cases.
    [[nodiscard]] static std::string_view domain() noexcept;

    /// The name of the case and what it means, for people.
    [[nodiscard]] const char* what() const noexcept override;

    friend bool operator==(const ProfileError& left, const ProfileError& right) noexcept {
        return left.value_ == right.value_;
    }

  private:
    Case value_;
};

/// Throws the error. A plain `throw ProfileError::userSerializationError` would throw the bare
/// enumerator, which no handler of errors recognises; use this.
[[noreturn]] void raise(ProfileError error);

}  // namespace KestrinProfile

template <>
struct std::hash<KestrinProfile::ProfileError> {
    [[nodiscard]] std::size_t operator()(const KestrinProfile::ProfileError& error) const noexcept {
        return static_cast<std::size_t>(error.code());
    }
};
