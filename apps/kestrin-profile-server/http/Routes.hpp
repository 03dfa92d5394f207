#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <kestrin-profile-server/domain/Lists.hpp>
#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/http/Body.hpp>
#include <kestrin-profile-server/http/QueryString.hpp>

namespace KestrinProfileServer {

/// Who may call an operation.
enum class Access {
    household,     ///< whoever has the household's secret
    member,        ///< any profile of the household, whichever of its profiles is addressed
    selfOrParent,  ///< the addressed profile itself, or the household's parent
    parent,        ///< the household's parent only
};

/// Where an operation runs: on a connection for reading, or in the queue of writes.
enum class Effect { read, write };

/// What an operation does; several do the same, each to its own list.
enum class Action {
    bindAnonymously,
    validateName,
    createProfile,
    getProfiles,
    editProfile,
    deleteProfile,
    getList,
    getEntry,
    addEntry,
    addEntries,
    deleteEntry,
    clearList,
};

/// One operation of the protocol. The table of these is the only place that knows the paths, the
/// parameters, the bodies and the rights.
struct Route {
    std::string_view operation;
    std::string_view method;
    std::string_view path;
    std::span<const Parameter> parameters;
    BodyShape body;
    Access access;
    Effect effect;
    Action action;
    ListKind list{};
};

/// All operations.
[[nodiscard]] std::span<const Route> routes();

/// The route of a request; null for an unknown path or a method it does not have.
[[nodiscard]] const Route* findRoute(std::string_view method, std::string_view path) noexcept;

/// The route of a request; throws the problem for an unknown path or a method it does not have.
[[nodiscard]] const Route& routeOf(std::string_view method, std::string_view path);

/// The methods that a path has, "GET, HEAD, PUT, OPTIONS"; throws the problem of an unknown path.
[[nodiscard]] std::string allowedMethods(std::string_view path);

/// The methods of a path that has these routes: HEAD where there is GET, and OPTIONS.
/// @param methods  those of its routes
[[nodiscard]] std::string allowedMethods(const std::vector<std::string_view>& methods);

/// The problem of a path that does not have the method.
/// @param allowed  the methods that it has, e.g. "GET, HEAD, PUT, OPTIONS"
[[nodiscard]] Problem methodNotAllowed(std::string_view method, const std::string& allowed);

/// The route as a client's URL template, without scheme and host.
[[nodiscard]] std::string urlTemplate(const Route& route);

}  // namespace KestrinProfileServer
