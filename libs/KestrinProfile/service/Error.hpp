#pragma once

#include <exception>
#include <string>
#include <string_view>
#include <utility>

#include <HalvardSling/http/SlingError.hpp>
#include <KestrinConfigManager/ConfigurationManagerError.hpp>
#include <KestrinProfile/Export.hpp>
#include <KestrinProfile/model/ProfileError.hpp>

namespace KestrinProfile {

/// What an error says, whatever its type.
struct ErrorDescription {
    /// Who says it, e.g. "KestrinProfile.ProfileError"; "std.bad_alloc", "std.exception" or
    /// "unknown" if it is no error of the libraries. Lives as long as the process.
    std::string_view domain;
    int code = 0;         ///< the error's number in its domain
    std::string message;  ///< what went wrong, for people; no secrets
    std::string advice;   ///< what the caller should do, for people; may be empty

    friend bool operator==(const ErrorDescription&, const ErrorDescription&) = default;
};

/// What an observable failed with, as a value: what a handler of errors shows, logs or hands on to
/// another language. Any exception will do, also an absent one and one that is no `std::exception`.
/// Never fails: without memory for the texts the description says that there is none. Any thread.
///
/// `HalvardSling::SlingError` and `KestrinConfigManager::ConfigurationManagerError` have to be
/// exceptions, no more. An application's own that lack `domain()`, `code()` or `advice()` are
/// described by their type's name and their text.
[[nodiscard]] KESTRIN_PROFILE_EXPORT ErrorDescription
describe(const std::exception_ptr& error) noexcept;

/// What an application shows the viewer of an error. The texts are its own; `describe` is for logs
/// and for whoever investigates.
enum class ErrorNotice {
    nothing,      ///< it was cancelled: somebody wanted it so
    noNetwork,    ///< the device reaches nobody: look at its connection
    serviceDown,  ///< the service does not answer, or cannot now: try again later
    signInAgain,  ///< nobody is signed in any more
    notAllowed,   ///< the acting profile may not do this
    mendInput,    ///< something that was entered or chosen is not taken: correct it
    notSecure,    ///< nobody vouches for the service: do not go on over this connection
    /// The application, its configuration or the service is at fault: update or report it.
    broken,
    unknown,  ///< an error that is not of these libraries
    noSpace,  ///< the device keeps nothing any more: free space on it
};

/// The name of a notice, e.g. "noNetwork".
[[nodiscard]] KESTRIN_PROFILE_EXPORT std::string_view name(ErrorNotice notice) noexcept;

/// What to show of what an observable failed with. Any exception will do, also an absent one. Never
/// fails. Any thread.
///
/// By status: 401 asks to sign in again; 402, 403 and 451 are not allowed; 407 and 511 come from
/// the network before the service; 405, 406, 415, 426, 431, 501 and 505 say that the application
/// and the service do not fit together; 408, 425, 429 and the other 5xx may pass; the other 4xx are
/// about the input. The state of a network can only be guessed at: a name that cannot be resolved,
/// a connection that cannot be made in time or breaks is taken for no network, a connection that is
/// refused and a reply that does not come in time for a service that is down.
///
/// A `HalvardSling::SlingError` of the application's own that has no `kind()` is judged by its
/// status, and a `ConfigurationManagerError` without `value()` is `broken`.
[[nodiscard]] KESTRIN_PROFILE_EXPORT ErrorNotice
whatToShow(const std::exception_ptr& error) noexcept;

/// An error that is no `std::exception`, or none at all.
class UnknownError final : public std::exception {
  public:
    /// "an unknown error".
    [[nodiscard]] const char* what() const noexcept override { return "an unknown error"; }
};

/// Calls that of the handlers which takes the error most exactly. They take a `ProfileError`, a
/// `ConfigurationManagerError`, a `SlingError` or, for all others, a `std::exception`, by constant
/// reference, and have one type of result:
///
///     const bool isForbidden = visitError(
///         error, [](const HalvardSling::SlingError& reply) { return reply.statusCode() == 403; },
///         [](const std::exception&) { return false; });
///
/// @param error     may be absent: a handler gets an `UnknownError`
/// @param handlers  one of them takes a `std::exception`
/// @return what the handler returns; what it throws, this throws
template <class... Handlers>
auto visitError(const std::exception_ptr& error, Handlers... handlers) {
    struct Overloads : Handlers... {
        using Handlers::operator()...;
    };
    const Overloads handle{std::move(handlers)...};
    if (!error) return handle(UnknownError());
    try {
        std::rethrow_exception(error);
    } catch (const ProfileError& known) {
        return handle(known);
    } catch (const KestrinConfigManager::ConfigurationManagerError& known) {
        return handle(known);
    } catch (const HalvardSling::SlingError& known) {
        return handle(known);
    } catch (const std::exception& other) {
        return handle(other);
    } catch (...) {
        return handle(UnknownError());
    }
}

}  // namespace KestrinProfile
