// Households, their sessions, and plain operations.

#include <chrono>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <utility>

#include <KestrinC/internal/HandleTypes.hpp>
#include <KestrinC/internal/hooks/HookScheduler.hpp>
#include <KestrinC/internal/records/Defaults.hpp>
#include <KestrinC/internal/records/Records.hpp>
#include <KestrinC/internal/requests/Operations.hpp>
#include <KestrinC/internal/requests/Request.hpp>

namespace KestrinC::internal {

struct SessionOptions {
    std::optional<std::string> profileID;
    std::optional<std::string> brandID;
    bool withoutRepeats = false;
    std::optional<std::chrono::nanoseconds> deadline;
};

template <>
struct Fields<kestrin_session_options, SessionOptions> {
    using C = kestrin_session_options;
    using Record = SessionOptions;
    static constexpr auto row =
        std::tuple(Field{"profile_id", &C::profile_id, &Record::profileID},
                   Field{"brand_id", &C::brand_id, &Record::brandID},
                   Field{"without_repeats", &C::without_repeats, &Record::withoutRepeats},
                   Field{"deadline_ms", &C::deadline_ms, &Record::deadline});
};

namespace {

using KestrinHousehold::HouseholdEvent;
using KestrinHousehold::HouseholdOptions;
using KestrinHousehold::ProfileSession;
using KestrinHousehold::RetryPolicy;

/// What a function throws, kept for later.
template <class Function>
std::exception_ptr problemOf(const Function& function) noexcept {
    try {
        function();
        return {};
    } catch (...) {
        return std::current_exception();
    }
}

void tell(const Hooks<kestrin_household_log>& log, const HouseholdEvent& event) noexcept {
    try {
        Arena arena;
        const std::string text = event.text();
        kestrin_household_event structure{};
        show(event, structure, arena);
        structure.text = shown(text);
        log.functions.event(log.context(), &structure);
    } catch (...) {  // There is no memory for it.
    }
}

const Defaults<kestrin_retry_policy>& defaultPolicy() {
    static const Defaults<kestrin_retry_policy> defaults{RetryPolicy()};
    return defaults;
}

HouseholdOptions optionsOf(const kestrin_household_options* options) {
    const Path path("options");
    const auto given = knownPart(options, path);
    std::optional<Hooks<kestrin_clock>> clock;
    std::optional<Hooks<kestrin_household_log>> log;
    // Both are taken over, whatever is wrong with one of them.
    const auto clockProblem = problemOf([&] {
        if (given.clock != nullptr)
            clock =
                Hooks<kestrin_clock>::taken(given.clock, "options.clock", &kestrin_clock::steady_ns,
                                            &kestrin_clock::wall_ms, &kestrin_clock::after);
    });
    const auto logProblem = problemOf([&] {
        if (given.log != nullptr)
            log = Hooks<kestrin_household_log>::taken(given.log, "options.log",
                                                      &kestrin_household_log::event);
    });
    if (clockProblem) std::rethrow_exception(clockProblem);
    if (logProblem) std::rethrow_exception(logProblem);
    requireAllKnown(options, path);

    HouseholdOptions taken;
    if (given.retry != nullptr) {
        const Path retry(path, "retry");
        readFields(sized(given.retry, retry, defaultPolicy().structure()), taken.retry, retry);
    }
    if (clock) taken.scheduler = std::make_shared<HookScheduler>(std::move(*clock));
    if (log)
        taken.log = [shared = std::make_shared<const Hooks<kestrin_household_log>>(
                         std::move(*log))](const HouseholdEvent& event) { tell(*shared, event); };
    return taken;
}

ProfileSession sessionOf(const KestrinHousehold::Household& household,
                         const SessionOptions& options) {
    return (options.profileID ? household.session(*options.profileID) : household.session())
        .with({!options.withoutRepeats, options.deadline, options.brandID});
}

}  // namespace

}  // namespace KestrinC::internal

using namespace KestrinC::internal;

kestrin_status kestrin_profile_start(const kestrin_bind* bind, const kestrin_call* call,
                                     const kestrin_completion* completion,
                                     kestrin_request** request) {
    return begin("kestrin_profile_start", completion, request, [&](Request& begun) {
        GivenBind given;
        read(bind, given, Path("bind"));
        start(given, readAs<Call>(call, "call"), begun);
    });
}

kestrin_status kestrin_retry_policy_init(kestrin_retry_policy* policy, size_t size) {
    return guarded("kestrin_retry_policy_init",
                   [&] { defaultPolicy().copyTo(policy, size, "policy"); });
}

kestrin_status kestrin_household_create(const kestrin_household_options* options,
                                        kestrin_household** household) {
    return guarded("kestrin_household_create", [&] {
        auto taken = options != nullptr ? optionsOf(options) : HouseholdOptions();
        requirePlace(household, "household");
        *household = made<kestrin_household>(
            kestrin_household{KestrinHousehold::Household(std::move(taken))});
    });
}

void kestrin_household_release(kestrin_household* household) {
    retired(household, "kestrin_household_release");
}

kestrin_status kestrin_household_warm_up(kestrin_household* household,
                                         const kestrin_completion* completion,
                                         kestrin_request** request) {
    const char* const function = "kestrin_household_warm_up";
    return begin(function, completion, request, [&](Request& begun) {
        begun.subscribeTo(inUse(household, function).household.warmUp());
    });
}

kestrin_status kestrin_household_session(kestrin_household* household,
                                         const kestrin_session_options* options,
                                         kestrin_session** session) {
    const char* const function = "kestrin_household_session";
    return guarded(function, [&] {
        const auto& acting = inUse(household, function).household;
        requirePlace(session, "session");
        const auto given =
            options != nullptr ? readAs<SessionOptions>(options, "options") : SessionOptions();
        *session = made<kestrin_session>(kestrin_session{sessionOf(acting, given)});
    });
}

void kestrin_session_release(kestrin_session* session) {
    retired(session, "kestrin_session_release");
}

kestrin_status kestrin_session_start(kestrin_session* session, const kestrin_call* call,
                                     const kestrin_completion* completion,
                                     kestrin_request** request) {
    const char* const function = "kestrin_session_start";
    return begin(function, completion, request, [&](Request& begun) {
        const auto& acting = inUse(session, function).session;
        start(acting, readSessionCall(call), begun);
    });
}
