#pragma once

#include <span>
#include <string>

#include <boost/json/object.hpp>

#include <kestrin-profile-server/admin/AdminRoutes.hpp>

namespace KestrinProfileServer {

/// What a description is about.
struct OpenAPISubject {
    std::string baseURL;                      ///< of the namespace
    std::string version;                      ///< of the service
    std::span<const AdminRoute> adminRoutes;  ///< empty: there is no admin interface
    bool isRoot = true;                       ///< whether the routes of the root are among them
};

/// The service described by OpenAPI 3.1 (https://spec.openapis.org/oas/v3.1.0), made from the
/// tables of routes by which it answers.
[[nodiscard]] boost::json::object openAPI(const OpenAPISubject& subject);

}  // namespace KestrinProfileServer
