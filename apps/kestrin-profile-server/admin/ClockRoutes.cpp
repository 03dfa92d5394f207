#include <array>
#include <cmath>

#include <boost/json.hpp>

#include <kestrin-profile-server/admin/RouteTables.hpp>
#include <kestrin-profile-server/domain/Members.hpp>

namespace KestrinProfileServer {
namespace {

constexpr double millisecondsPerSecond = 1000;
/// A thousand years.
constexpr double farthest = 1000.0 * 365 * 24 * 3600;

Reply clockReply(const DevelopmentClock& clock) {
    return jsonReply(
        200, {{"now", timestampText(clock.now())},
              {"frozen", clock.isFrozen()},
              {"offsetSeconds", static_cast<double>(clock.offset()) / millisecondsPerSecond}});
}

Reply getClock(const AdminContext& context) {
    return clockReply(context.space.clock());
}

/// The reply to a change of the clock, which listeners are told, too.
Reply changedClock(const AdminContext& context) {
    Reply reply = clockReply(context.space.clock());
    context.space.observation().events().publish("clock", reply.body);
    return reply;
}

Reply putClock(const AdminContext& context) {
    Members members(context.call.requiredBody(), "the body");
    const auto now = members.time("now");
    const auto frozen = members.boolean("frozen");
    members.finish();
    if (frozen) context.space.clock().freeze(*frozen);
    if (now) context.space.clock().set(*now);
    return changedClock(context);
}

Reply advanceClock(const AdminContext& context) {
    Members members(context.call.requiredBody(), "the body");
    const auto seconds = members.number("seconds");
    if (!seconds || !(std::abs(*seconds) <= farthest))
        members.refuse("seconds", "a number of seconds, of a thousand years at most");
    members.finish();
    context.space.clock().advance(std::llround(*seconds * millisecondsPerSecond));
    return changedClock(context);
}

constexpr std::array clockTable{
    AdminRoute{"GET", "/admin/v1/clock", "The clock that tokens and time stamps follow",
               AdminEffect::none, getClock},
    AdminRoute{"PUT", "/admin/v1/clock", "Set the clock, freeze it, or let it go on",
               AdminEffect::none, putClock},
    AdminRoute{"POST", "/admin/v1/clock/advance", "Move the clock, backwards too",
               AdminEffect::none, advanceClock},
};

}  // namespace

std::span<const AdminRoute> clockRoutes() {
    return clockTable;
}

}  // namespace KestrinProfileServer
