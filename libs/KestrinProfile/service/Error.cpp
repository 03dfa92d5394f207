#include <array>
#include <cstddef>
#include <new>

#include <KestrinProfile/service/Error.hpp>

namespace KestrinProfile {

namespace {

/// An error that says all there is to say.
template <class Error>
concept SaysAll = requires(const Error& error) {
    std::string_view(error.domain());
    static_cast<int>(error.code());
    std::string_view(error.advice());
};

template <class Error>
ErrorDescription described(const Error& error, std::string_view domain) {
    if constexpr (SaysAll<Error>)
        return {error.domain(), static_cast<int>(error.code()), error.what(),
                std::string(std::string_view(error.advice()))};
    else
        return {domain, 0, error.what(), {}};
}

std::string_view domainOf(const std::exception& error) noexcept {
    if (dynamic_cast<const std::bad_alloc*>(&error) != nullptr) return "std.bad_alloc";
    if (dynamic_cast<const UnknownError*>(&error) != nullptr) return "unknown";
    return "std.exception";
}

ErrorNotice noticeOf(int status) noexcept {
    using enum ErrorNotice;
    switch (status) {
        case 401:
            return signInAgain;
        case 402:
        case 403:
        case 451:
            return notAllowed;
        case 407:
        case 511:
            return noNetwork;
        case 408:
        case 425:
        case 429:
            return serviceDown;
        case 405:
        case 406:
        case 415:
        case 426:
        case 431:
        case 501:
        case 505:
            return broken;
        default:
            return status < 500 ? mendInput : serviceDown;
    }
}

/// @param Kind  that of the platform's error, which an application's own may lack
template <class Kind>
ErrorNotice noticeOfKind(Kind kind) noexcept {
    using enum ErrorNotice;
    switch (kind) {
        case Kind::nameNotResolved:
        case Kind::connectTimeout:
        case Kind::connectionLost:
            return noNetwork;
        case Kind::cannotConnect:
        case Kind::totalTimeout:
        case Kind::httpStatus:
            return serviceDown;
        case Kind::tls:
            return notSecure;
        case Kind::malformedURL:
        case Kind::malformedBody:
            return mendInput;
        case Kind::cancelled:
            return nothing;
        case Kind::tooLarge:
        case Kind::forbiddenHeader:
        case Kind::malformedReply:
        case Kind::redirect:
        case Kind::outOfMemory:
            return broken;
    }
    return unknown;
}

template <class Error>
ErrorNotice noticeOfSling(const Error& error) {
    if (const auto status = error.statusCode()) return noticeOf(*status);
    // The last of our kinds: another enumeration says nothing here.
    if constexpr (requires { decltype(error.kind())::malformedBody; })
        return noticeOfKind(error.kind());
    else
        return ErrorNotice::unknown;
}

template <class Error>
ErrorNotice noticeOfConfiguration(const Error& error) {
    if constexpr (requires {
                      error.value();
                      Error::Case::identifierRefused;
                  }) {
        using Case = Error::Case;
        const Case value = error.value();
        if (value == Case::invalidParameters || value == Case::identifierRefused)
            return ErrorNotice::mendInput;
        if (value == Case::serviceDisabled) return ErrorNotice::serviceDown;
    }
    return ErrorNotice::broken;
}

ErrorNotice noticeOfProfile(const ProfileError& error) noexcept {
    using Case = ProfileError::Case;
    const Case value = error.value();
    if (value == Case::userInvalidForOperation || value == Case::profileIDValdationFailure)
        return ErrorNotice::mendInput;
    if (value == Case::parentInvalidForOperation) return ErrorNotice::notAllowed;
    if (value == Case::anonymousBindUninitialized) return ErrorNotice::signInAgain;
    return ErrorNotice::broken;
}

/// In the order of the notices.
constexpr auto noticeNames = std::to_array<std::string_view>(
    {"nothing", "noNetwork", "serviceDown", "signInAgain", "notAllowed", "mendInput", "notSecure",
     "broken", "unknown", "noSpace"});

}  // namespace

std::string_view name(ErrorNotice notice) noexcept {
    const auto position = static_cast<std::size_t>(notice);
    return position < noticeNames.size() ? noticeNames[position] : "unknown";
}

ErrorNotice whatToShow(const std::exception_ptr& error) noexcept try {
    using HalvardSling::SlingError;
    using KestrinConfigManager::ConfigurationManagerError;
    return visitError(
        error, [](const ProfileError& known) { return noticeOfProfile(known); },
        [](const ConfigurationManagerError& known) { return noticeOfConfiguration(known); },
        [](const SlingError& known) { return noticeOfSling(known); },
        [](const std::exception& other) {
            return dynamic_cast<const std::bad_alloc*>(&other) != nullptr ? ErrorNotice::broken
                                                                          : ErrorNotice::unknown;
        });
} catch (...) {
    return ErrorNotice::unknown;
}

ErrorDescription describe(const std::exception_ptr& error) noexcept try {
    using HalvardSling::SlingError;
    using KestrinConfigManager::ConfigurationManagerError;
    return visitError(
        error, [](const ProfileError& known) { return described(known, ProfileError::domain()); },
        [](const ConfigurationManagerError& known) {
            return described(known, "KestrinConfigManager.ConfigurationManagerError");
        },
        [](const SlingError& known) { return described(known, "HalvardSling.SlingError"); },
        [](const std::exception& other) { return described(other, domainOf(other)); });
} catch (...) {
    // Short enough for a text that needs no memory of its own.
    return {"std.bad_alloc", 0, "out of memory", {}};
}

}  // namespace KestrinProfile
