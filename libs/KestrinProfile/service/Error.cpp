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

}  // namespace

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
