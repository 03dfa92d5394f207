#include <array>

#include <boost/json.hpp>

#include <kestrin-profile-server/admin/RouteTables.hpp>

namespace KestrinProfileServer {
namespace {

std::int64_t countOf(Connection& connection, std::string_view sql) {
    Query query(connection, sql);
    query.next();
    return query.integer(0);
}

Reply getStatus(const AdminContext& context) {
    return jsonReply(
        200, {{"version", context.facts.version},
              {"namespace", context.space.name()},
              {"baseUrl", context.baseURL()},
              {"startedAt", timestampText(context.facts.startedAt)},
              {"now", timestampText(context.space.clock().now())},
              {"households", countOf(context.connection(), "SELECT count(*) FROM households")},
              {"profiles", countOf(context.connection(), "SELECT count(*) FROM profiles")}});
}

constexpr std::array table{
    AdminRoute{"GET", "/admin/v1/status", "What the service is, and how much it has",
               AdminEffect::read, getStatus},
};

}  // namespace

std::span<const AdminRoute> statusRoutes() {
    return table;
}

}  // namespace KestrinProfileServer
