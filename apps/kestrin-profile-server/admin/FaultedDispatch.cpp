#include <array>
#include <chrono>
#include <ctime>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>

#include <kestrin-profile-server/admin/FaultedDispatch.hpp>
#include <kestrin-profile-server/domain/Text.hpp>
#include <kestrin-profile-server/http/GuardedReply.hpp>
#include <kestrin-profile-server/http/RequestFacts.hpp>
#include <kestrin-profile-server/http/Routes.hpp>

namespace KestrinProfileServer {
namespace {

constexpr std::string_view protocolPath = "/v1/";

/// Whose request it is, by its credentials; absent if they are not good.
std::optional<std::string> householdOf(const Request& request, const Route& route, Namespace& space,
                                       std::size_t thread) {
    try {
        const Identity identity = identityOf(request, route, space.tokens());
        if (const auto* const claims = std::get_if<TokenClaims>(&identity))
            return claims->household;
        const auto household =
            householdBySecret(space.reader(thread), std::get<std::string>(identity));
        return household ? std::optional(household->name) : std::nullopt;
    } catch (const std::exception&) {
        // Not good, or the database cannot be read, which the request itself will tell.
        return std::nullopt;
    }
}

FaultVerdict verdictOn(const Request& request, Namespace& space, std::size_t thread) {
    const RequestFacts facts = requestFacts(request.method, request.target);
    const Route* const route = facts.route;
    return space.observation().faults().verdictOn(
        {.operation = facts.operation(),
         .method = request.method,
         .profile = facts.profile,
         .hasToken = route != nullptr && route->access != Access::household,
         .household = [&]() -> std::optional<std::string> {
             return route == nullptr ? std::nullopt : householdOf(request, *route, space, thread);
         }},
        space.clock().now());
}

Delivery::End endOf(const FaultAction& action) {
    switch (action.kind) {
        case FaultKind::refuse:
        case FaultKind::resetBefore:
        case FaultKind::resetAfter:
            return Delivery::End::reset;
        case FaultKind::resetMiddle:
            return Delivery::End::resetMiddle;
        case FaultKind::truncate:
            return Delivery::End::cut;
        default:
            return Delivery::End::whole;
    }
}

/// What happens to the reply on its way; null: nothing.
std::shared_ptr<const Delivery> deliveryOf(const FaultVerdict& verdict) {
    Delivery delivery{.delay = verdict.delay, .bytesPerSecond = verdict.bytesPerSecond};
    if (verdict.outcome) {
        delivery.end = endOf(*verdict.outcome);
        delivery.bodyBytes = verdict.outcome->bytes;
    }
    const bool isUsual = delivery.delay.count() == 0 && !delivery.bytesPerSecond &&
                         delivery.end == Delivery::End::whole;
    return isUsual ? nullptr : std::make_shared<const Delivery>(delivery);
}

/// A time as HTTP writes it (RFC 9110, 5.6.7).
std::string dateText(Milliseconds time) {
    const std::time_t seconds = static_cast<std::time_t>(time / 1000);
    std::tm parts{};
    static_cast<void>(gmtime_r(&seconds, &parts));
    std::array<char, 64> text{};
    // The names are those of the C locale, which nobody here changes.
    const std::size_t size =
        std::strftime(text.data(), text.size(), "%a, %d %b %Y %H:%M:%S GMT", &parts);
    return {text.data(), size};
}

void apply(Reply& reply, const FaultVerdict& verdict, Milliseconds now) {
    reply.fault = verdict.fault;
    reply.delivery = deliveryOf(verdict);
    if (verdict.skew.count() != 0)
        reply.headers.emplace_back("Date",
                                   dateText(now + std::chrono::milliseconds(verdict.skew).count()));
}

}  // namespace

void dispatchWithFaults(Request request, Namespace& space, std::size_t thread,
                        Responder::Done done) {
    const std::string_view path = pathOf(request.target);
    if (!path.starts_with(protocolPath))
        return space.dispatcher().dispatch(request, space.reader(thread), std::move(done));
    const auto verdict = std::make_shared<const FaultVerdict>(verdictOn(request, space, thread));
    const Milliseconds now = space.clock().now();
    const std::optional<FaultAction>& outcome = verdict->outcome;
    if (outcome && replacesHandling(*outcome)) {
        Reply reply = replyOf(*outcome, excerptOf(path));
        apply(reply, *verdict, now);
        return done(std::move(reply));
    }
    request.clockSkew = verdict->skew;
    space.dispatcher().dispatch(request, space.reader(thread),
                                [verdict, now, done = std::move(done)](Reply reply) {
                                    if (verdict->outcome) spoil(reply, *verdict->outcome);
                                    apply(reply, *verdict, now);
                                    done(std::move(reply));
                                });
}

}  // namespace KestrinProfileServer
