#pragma once

#include <tuple>

#include <HalvardSling/http/SlingError.hpp>
#include <KestrinC/internal/records/Fields.hpp>
#include <KestrinConfigManager/AnonymousBind.hpp>
#include <KestrinHousehold/outbox/Outbox.hpp>
#include <KestrinHousehold/outbox/OutboxEntry.hpp>
#include <KestrinHousehold/outbox/OutboxEvent.hpp>
#include <KestrinHousehold/outbox/OutboxOptions.hpp>
#include <KestrinHousehold/outbox/OutboxWrite.hpp>
#include <KestrinHousehold/retry/RetryPolicy.hpp>
#include <KestrinHousehold/session/HouseholdLog.hpp>
#include <KestrinProfile/model/ProfileOperation.hpp>
#include <KestrinProfile/model/User.hpp>
#include <KestrinProfile/model/UserProfile.hpp>
#include <KestrinProfile/model/UserProfileElement.hpp>

// Each structure of the interface that stands for a record of the libraries, field by field.

namespace KestrinC::internal {

template <>
inline constexpr int caseCount<KestrinProfile::ProfileOperation> =
    static_cast<int>(KestrinProfile::profileOperationCount);
template <>
inline constexpr int caseCount<HalvardSling::SlingErrorKind> =
    static_cast<int>(HalvardSling::SlingErrorKind::malformedBody) + 1;

template <>
[[nodiscard]] inline KestrinProfile::User blank<KestrinProfile::User>() {
    return KestrinProfile::User(std::string());
}

template <>
struct Fields<kestrin_bind, KestrinConfigManager::AnonymousBind> {
    using C = kestrin_bind;
    using Record = KestrinConfigManager::AnonymousBind;
    static constexpr auto row = std::tuple(Field{"profile_id", &C::profile_id, &Record::profileID},
                                           Field{"token", &C::token, &Record::token});
};

template <>
struct Fields<kestrin_user, KestrinProfile::User> {
    using C = kestrin_user;
    using Record = KestrinProfile::User;
    static constexpr auto row = std::tuple(
        Field{"profile_id", &C::profile_id, &Record::profileID},
        Field{"username", &C::username, &Record::username},
        Field{"avatar", &C::avatar, &Record::avatar}, Field{"group", &C::group, &Record::group},
        Field{"default_user", &C::default_user, &Record::defaultUser});
};

template <>
struct Fields<kestrin_entry, KestrinProfile::UserProfileElement> {
    using C = kestrin_entry;
    using Record = KestrinProfile::UserProfileElement;
    static constexpr auto row =
        std::tuple(Field{"id", &C::id, &Record::id}, Field{"type", &C::type, &Record::type},
                   Field{"progress", &C::progress, &Record::progress},
                   Field{"is_completed", &C::is_completed, &Record::isCompleted},
                   Field{"auto_add_timestamp", &C::auto_add_timestamp, &Record::autoAddTimestamp});
};

inline void show(const std::optional<std::vector<KestrinProfile::UserProfileElement>>& value,
                 kestrin_entries& entries, Arena& arena) {
    entries = {};
    if (value) show(*value, entries, arena);
}

template <>
struct Fields<kestrin_list, KestrinProfile::UserProfile> {
    using C = kestrin_list;
    using Record = KestrinProfile::UserProfile;
    static constexpr auto row = std::tuple(
        Field{"id", &C::id, &Record::id}, Field{"max_size", &C::max_size, &Record::maxSize},
        Field{"has_entries", &C::has_entries,
              [](const Record& list) { return list.elements.has_value(); }},
        Field{"entries", &C::entries, &Record::elements});
};

/// A text that is empty where C has an absent one.
template <class Text>
struct TextOrNone {
    Text& text;
};
template <class Text>
TextOrNone(Text& text) -> TextOrNone<Text>;  // as with Field
inline void read(kestrin_text text, TextOrNone<std::string> value, const Path& path) {
    std::optional<std::string> present;
    read(text, present, path);
    value.text = std::move(present).value_or(std::string());
}
inline void show(TextOrNone<const std::string> value, kestrin_text& text,
                 Arena& /*arena*/) noexcept {
    text = value.text.empty() ? kestrin_text{} : shown(value.text);
}

template <>
struct Fields<kestrin_write, KestrinHousehold::OutboxWrite> {
    using C = kestrin_write;
    using Record = KestrinHousehold::OutboxWrite;
    static constexpr auto row = std::tuple(
        Field{"profile_id", &C::profile_id, &Record::profileID},
        Field{"brand_id", &C::brand_id, [](auto& write) { return TextOrNone{write.brandID}; }},
        Field{"operation", &C::operation, &Record::operation},
        Field{"item_id", &C::item_id, [](auto& write) { return TextOrNone{write.itemID}; }},
        Field{"shows", &C::shows, &Record::shows},
        Field{"progress", &C::progress, &Record::progress},
        Field{"is_complete", &C::is_complete, &Record::isComplete});
};

template <>
struct Fields<kestrin_refusal, KestrinHousehold::OutboxRefusal> {
    using C = kestrin_refusal;
    using Record = KestrinHousehold::OutboxRefusal;
    static constexpr auto row = std::tuple(
        Field{"at_ms", &C::at_ms, &Record::at}, Field{"status", &C::status, &Record::status},
        Field{"title", &C::title, &Record::title}, Field{"detail", &C::detail, &Record::detail});
};

template <>
struct Fields<kestrin_kept, KestrinHousehold::OutboxEntry> {
    using C = kestrin_kept;
    using Record = KestrinHousehold::OutboxEntry;
    static constexpr auto row = std::tuple(
        Field{"number", &C::number, &Record::number}, Field{"write", &C::write, &Record::write},
        Field{"accepted_at_ms", &C::accepted_at_ms, &Record::acceptedAt},
        Field{"refusal", &C::refusal, &Record::refusal});
};

template <>
struct Fields<kestrin_outbox_state, KestrinHousehold::OutboxState> {
    using C = kestrin_outbox_state;
    using Record = KestrinHousehold::OutboxState;
    static constexpr auto row = std::tuple(Field{"waiting", &C::waiting, &Record::waiting},
                                           Field{"refused", &C::refused, &Record::refused});
};

template <>
struct Fields<kestrin_outbox_state, KestrinHousehold::OutboxOpening> {
    using C = kestrin_outbox_state;
    using Record = KestrinHousehold::OutboxOpening;
    static constexpr auto row = std::tuple(Field{"waiting", &C::waiting, &Record::waiting},
                                           Field{"refused", &C::refused, &Record::refused},
                                           Field{"warnings", &C::warnings, &Record::warnings});
};

template <>
struct Fields<kestrin_outbox_event, KestrinHousehold::OutboxEvent> {
    using C = kestrin_outbox_event;
    using Record = KestrinHousehold::OutboxEvent;
    static constexpr auto row = std::tuple(
        Field{"kind", &C::kind, &Record::kind}, Field{"entry", &C::entry, &Record::entry},
        Field{"text", &C::text, &Record::text}, Field{"by", &C::by, &Record::by},
        Field{"delay_ms", &C::delay_ms, &Record::delay});
};

template <>
struct Fields<kestrin_outbox_options, KestrinHousehold::OutboxOptions> {
    using C = kestrin_outbox_options;
    using Record = KestrinHousehold::OutboxOptions;
    static constexpr auto row =
        std::tuple(Field{"max_entries", &C::max_entries, &Record::maxEntries},
                   Field{"max_age_ms", &C::max_age_ms, &Record::maxAge},
                   Field{"max_refused", &C::max_refused, &Record::maxRefused},
                   Field{"compare_after_ms", &C::compare_after_ms, &Record::compareAfter},
                   Field{"first_delay_ms", &C::first_delay_ms, &Record::firstDelay},
                   Field{"longest_delay_ms", &C::longest_delay_ms, &Record::longestDelay},
                   Field{"removal_delay_ms", &C::removal_delay_ms, &Record::removalDelay},
                   Field{"longest_request_ms", &C::longest_request_ms, &Record::longestRequest});
};

template <>
struct Fields<kestrin_retry_policy, KestrinHousehold::RetryPolicy> {
    using C = kestrin_retry_policy;
    using Record = KestrinHousehold::RetryPolicy;
    static constexpr auto row =
        std::tuple(Field{"max_attempts", &C::max_attempts, &Record::maxAttempts},
                   Field{"first_delay_ms", &C::first_delay_ms, &Record::firstDelay},
                   Field{"longest_delay_ms", &C::longest_delay_ms, &Record::longestDelay},
                   Field{"deadline_ms", &C::deadline_ms, &Record::deadline},
                   Field{"unsent_errors", &C::unsent_errors, &Record::unsentErrors},
                   Field{"idempotent_methods", &C::idempotent_methods, &Record::idempotentMethods},
                   Field{"errors", &C::errors, &Record::errors},
                   Field{"statuses", &C::statuses, &Record::statuses},
                   Field{"refusals", &C::refusals, &Record::refusals},
                   Field{"budget_share", &C::budget_share,
                         [](auto& policy) -> auto& { return policy.budget.share; }},
                   Field{"budget_at_start", &C::budget_at_start,
                         [](auto& policy) -> auto& { return policy.budget.atStart; }},
                   Field{"budget_at_most", &C::budget_at_most,
                         [](auto& policy) -> auto& { return policy.budget.atMost; }});
};

template <>
struct Fields<kestrin_household_event, KestrinHousehold::HouseholdEvent> {
    using C = kestrin_household_event;
    using Record = KestrinHousehold::HouseholdEvent;
    static constexpr auto row =
        std::tuple(Field{"kind", &C::kind, &Record::kind},
                   Field{"operation", &C::operation, &Record::operation},
                   Field{"attempt", &C::attempt, &Record::attempt},
                   Field{"max_attempts", &C::max_attempts, &Record::maxAttempts},
                   Field{"delay_ms", &C::delay_ms, &Record::delay},
                   Field{"reason", &C::reason, &Record::reason});
};

}  // namespace KestrinC::internal
