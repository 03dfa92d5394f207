#pragma once

#include <cstddef>
#include <exception>
#include <functional>
#include <string_view>

#include <KestrinProfile/Export.hpp>

namespace KestrinProfile {

/// The library's error. It arrives as an observable's error and is never thrown to the caller of an
/// operation.
///
///     throw ProfileError::userSerializationError;
///     if (error == ProfileError::userSerializationError) …
///     switch (error.value()) { case ProfileError::Case::userSerializationError: …
class KESTRIN_PROFILE_EXCEPTION ProfileError final : public std::exception {
  public:
    /// The cases; the position is the error's code.
    enum class Case {
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

    /// The error of a case.
    explicit ProfileError(Case value) noexcept : value_(value) {}
    ProfileError(const ProfileError&) = default;
    ProfileError(ProfileError&&) = default;
    ProfileError& operator=(const ProfileError&) = default;
    ProfileError& operator=(ProfileError&&) = default;
    ~ProfileError() override;

    /// The errors by name, to throw and to compare with.
    /// @{
    static const ProfileError parameterOperationMismatch;
    static const ProfileError anonymousBindUninitialized;
    static const ProfileError profileIDValdationFailure;
    static const ProfileError userInvalidForOperation;
    static const ProfileError parentInvalidForOperation;
    static const ProfileError anonymousBindSerializationError;
    static const ProfileError userProfileSerializationError;
    static const ProfileError userSerializationError;
    /// @}

    /// The case, for a `switch`.
    [[nodiscard]] Case value() const noexcept { return value_; }

    /// The position of the case, 0 to 7. 0 is an error like the others.
    [[nodiscard]] int code() const noexcept { return static_cast<int>(value_); }

    /// "KestrinProfile.ProfileError", the same for all cases.
    [[nodiscard]] static std::string_view domain() noexcept;

    /// What the caller should do about it, one sentence for people; it lives as long as the
    /// process.
    [[nodiscard]] std::string_view advice() const noexcept;

    /// The name of the case and what it means, for people.
    [[nodiscard]] const char* what() const noexcept override;

    /// Whether both have the same case.
    friend bool operator==(const ProfileError& left, const ProfileError& right) noexcept {
        return left.value_ == right.value_;
    }

  private:
    Case value_;
};

// Here, so that they are there before whatever is initialised with them.
inline const ProfileError ProfileError::parameterOperationMismatch(
    Case::parameterOperationMismatch);
inline const ProfileError ProfileError::anonymousBindUninitialized(
    Case::anonymousBindUninitialized);
inline const ProfileError ProfileError::profileIDValdationFailure(Case::profileIDValdationFailure);
inline const ProfileError ProfileError::userInvalidForOperation(Case::userInvalidForOperation);
inline const ProfileError ProfileError::parentInvalidForOperation(Case::parentInvalidForOperation);
inline const ProfileError ProfileError::anonymousBindSerializationError(
    Case::anonymousBindSerializationError);
inline const ProfileError ProfileError::userProfileSerializationError(
    Case::userProfileSerializationError);
inline const ProfileError ProfileError::userSerializationError(Case::userSerializationError);

}  // namespace KestrinProfile

/// Errors as keys: equal ones have one hash.
template <>
struct std::hash<KestrinProfile::ProfileError> {
    /// The error's code.
    [[nodiscard]] std::size_t operator()(const KestrinProfile::ProfileError& error) const noexcept {
        return static_cast<std::size_t>(error.code());
    }
};
