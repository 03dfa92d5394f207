#include <array>

#include <kestrin-profile-server/admin/RouteTables.hpp>

namespace KestrinProfileServer {
namespace {

Reply getEvents(const AdminContext& context) {
    return Reply{.status = 200,
                 .contentType = "text/event-stream",
                 .stream = context.space.observation().events().listen()};
}

constexpr std::array eventTable{
    AdminRoute{"GET", "/admin/v1/events", "What happens, as server-sent events", AdminEffect::none,
               getEvents},
};

}  // namespace

std::span<const AdminRoute> eventRoutes() {
    return eventTable;
}

}  // namespace KestrinProfileServer
