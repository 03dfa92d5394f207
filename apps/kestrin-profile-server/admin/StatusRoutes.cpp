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

boost::json::object journalJSON(const Journal::Counts& counts) {
    return {{"entries", counts.entries},
            {"dropped", counts.dropped},
            {"bytes", counts.bytes},
            {"waiting", counts.waiting}};
}

Reply getStatus(const AdminContext& context) {
    return jsonReply(
        200, {{"version", context.facts.version},
              {"namespace", context.space.name()},
              {"baseUrl", context.baseURL()},
              {"startedAt", timestampText(context.facts.startedAt)},
              {"now", timestampText(context.space.clock().now())},
              {"strict", context.space.observation().isStrict()},
              {"households", countOf(context.connection(), "SELECT count(*) FROM households")},
              {"profiles", countOf(context.connection(), "SELECT count(*) FROM profiles")},
              {"journal", journalJSON(context.space.observation().journal().counts())},
              {"faults", context.space.observation().faults().count()}});
}

constexpr std::array statusTable{
    AdminRoute{"GET", "/admin/v1/status", "What the service is, and how much it has",
               AdminEffect::read, getStatus},
};

}  // namespace

std::span<const AdminRoute> statusRoutes() {
    return statusTable;
}

}  // namespace KestrinProfileServer
