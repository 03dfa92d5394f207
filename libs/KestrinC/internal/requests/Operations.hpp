#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include <KestrinC/internal/requests/Request.hpp>
#include <KestrinHousehold/outbox/LaterSession.hpp>
#include <KestrinHousehold/session/ProfileSession.hpp>

namespace KestrinC::internal {

/// What is to be done: `kestrin_call`.
struct Call {
    KestrinProfile::ProfileOperation operation{};
    std::optional<std::string> profileID;
    std::optional<std::string> brandID;
    std::optional<std::string> videoID;
    std::optional<std::string> showID;
    std::optional<std::string> userName;
    std::optional<std::string> search;
    std::optional<std::int64_t> progress;
    std::optional<bool> isComplete;
    std::optional<KestrinProfile::User> user;
    std::optional<std::vector<KestrinProfile::UserProfileElement>> shows;
};

template <>
struct Fields<kestrin_call, Call> {
    using C = kestrin_call;
    static constexpr auto row =
        std::tuple(Field{"operation", &C::operation, &Call::operation},
                   Field{"profile_id", &C::profile_id, &Call::profileID},
                   Field{"brand_id", &C::brand_id, &Call::brandID},
                   Field{"video_id", &C::video_id, &Call::videoID},
                   Field{"show_id", &C::show_id, &Call::showID},
                   Field{"user_name", &C::user_name, &Call::userName},
                   Field{"search", &C::search, &Call::search},
                   Field{"progress", &C::progress, &Call::progress},
                   Field{"is_complete", &C::is_complete, &Call::isComplete},
                   Field{"user", &C::user, &Call::user}, Field{"shows", &C::shows, &Call::shows});
};

/// The call of a session, which has a brand of its own.
/// @throws Refused
[[nodiscard]] inline Call readSessionCall(const kestrin_call* given) {
    auto call = readAs<Call>(given, "call");
    if (call.brandID)
        Path("call.brand_id").refuse("is there, but a session has a brand of its own");
    return call;
}

/// A plain operation's bind; absent: the one that is held.
using GivenBind = std::optional<KestrinConfigManager::AnonymousBind>;

// Each begins what the call names, as the source does it.
// @throws Refused

void start(const GivenBind& bind, const Call& call, Request& request);
void start(const KestrinHousehold::ProfileSession& session, const Call& call, Request& request);
void start(const KestrinHousehold::LaterSession& session, const Call& call, Request& request);

}  // namespace KestrinC::internal
