#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <boost/json/value.hpp>

#include <kestrin-profile-server/Namespaces.hpp>
#include <kestrin-profile-server/admin/ServiceFacts.hpp>
#include <kestrin-profile-server/http/Reply.hpp>
#include <kestrin-profile-server/http/Request.hpp>

namespace KestrinProfileServer {

struct AdminContext;

/// Where a route of the admin interface runs.
enum class AdminEffect {
    none,   ///< at once, without the database
    read,   ///< at once, with one state of the database
    write,  ///< in the queue of writes
    later,  ///< at once, but it answers when it likes
};

/// Who may call a route of the admin interface.
enum class AdminAccess {
    caller,  ///< who has the secret; without one, programs and pages of this computer
    anyone,  ///< everybody; for what tells nothing, like the inspector's page
};

/// One route of the admin interface. The tables of these are the only place that knows its paths
/// and methods.
struct AdminRoute {
    using Handler = Reply (*)(const AdminContext&);
    using LaterHandler = void (*)(const AdminContext&, std::function<void(Reply)>);

    std::string_view method;
    /// Segments like "{name}" stand for one segment each, percent-encoded, that is not empty.
    std::string_view path;
    /// What it does, in a few words without a full stop.
    std::string_view summary;
    AdminEffect effect = AdminEffect::none;
    /// Answers, or throws a Problem; null if the effect is `later`.
    Handler handler = nullptr;
    /// The names that its query may have, each once.
    std::span<const std::string_view> parameters{};
    AdminAccess access = AdminAccess::caller;
    /// Whether the root has it only.
    bool isOfRoot = false;
    LaterHandler laterHandler = nullptr;
};

/// What a request asks for. It owns everything, so that it can wait.
struct AdminCall {
    const AdminRoute* route = nullptr;
    /// What the segments in braces stand for, in their order.
    std::vector<std::string> segments;
    std::vector<std::pair<std::string, std::string>> query;
    /// Absent if there was none.
    std::optional<boost::json::value> body;
    /// The entity tag that the client has; empty if it has none.
    std::string ifNoneMatch;

    /// The value of a parameter of the query.
    [[nodiscard]] std::optional<std::string> parameter(std::string_view name) const;
    /// The body; throws the problem if there is none.
    [[nodiscard]] const boost::json::value& requiredBody() const;
};

/// What a handler works with.
struct AdminContext {
    const AdminCall& call;
    const ServiceFacts& facts;
    Namespaces& namespaces;
    Namespace& space;
    /// To read with, or to write with; null where the effect needs none.
    Connection* database = nullptr;
    /// `Request::afterwards`; null unless the effect is `later`.
    const decltype(Request::afterwards)* later = nullptr;
    /// Takes what `afterCommit` is given; null unless the effect is `write`.
    std::function<void()>* whenCommitted = nullptr;

    void afterwards(std::chrono::milliseconds time, std::function<void()> work) const {
        (*later)(time, std::move(work));
    }
    /// Has this done once what was written is committed, before the next write; never if that
    /// fails. For what changes beside the database.
    void afterCommit(std::function<void()> work) const { *whenCommitted = std::move(work); }
    [[nodiscard]] Connection& connection() const { return *database; }
    /// What stands before the path of the namespace's URLs, like http://127.0.0.1:8480/n/one.
    [[nodiscard]] std::string baseURL() const { return facts.publicURL + space.path(); }
};

/// All routes.
[[nodiscard]] std::span<const AdminRoute> adminRoutes();

/// Whether the target belongs to the admin interface, whichever namespace's.
[[nodiscard]] bool isAdminPath(std::string_view path);

/// The route of a path with its segments; throws the problem of an unknown path, or of a method
/// that it does not have.
[[nodiscard]] AdminCall adminCallOf(std::string_view method, std::string_view path, bool isRoot);

/// The methods of a path, "GET, HEAD, OPTIONS"; throws the problem of an unknown path.
[[nodiscard]] std::string allowedAdminMethods(std::string_view path, bool isRoot);

/// The parameters of a query, decoded as forms encode them; throws the problem of one that is not
/// among the known ones, comes twice, or is not UTF-8.
[[nodiscard]] std::vector<std::pair<std::string, std::string>> adminQuery(
    std::string_view query, std::span<const std::string_view> known);

}  // namespace KestrinProfileServer
