#pragma once

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <HalvardSling/http/Response.hpp>
#include <KestrinC/internal/border/Handles.hpp>
#include <KestrinC/internal/records/Records.hpp>
#include <KestrinConfigManager/BindStore.hpp>

namespace KestrinC::internal {

/// A result that the application sees, and what it points to.
struct Result : kestrin_result {
    explicit Result(kestrin_outcome aOutcome) noexcept : kestrin_result{} {
        size = sizeof(kestrin_result);
        outcome = aOutcome;
    }
    Arena arena;
};

template <>
inline constexpr const char* handleName<Result> = "the result";

// A result has the value where its type says.

inline void setValue(Result& result, const KestrinConfigManager::AnonymousBind& value) {
    show(value, result.bind, result.arena);
}
inline void setValue(Result& result, const KestrinProfile::UserProfile& value) {
    show(value, result.list, result.arena);
}
inline void setValue(Result& result, const std::vector<KestrinProfile::User>& value) {
    show(value, result.users, result.arena);
}
inline void setValue(Result& result, const std::vector<KestrinHousehold::OutboxEntry>& value) {
    show(value, result.kept, result.arena);
}
inline void setValue(Result& result, const KestrinHousehold::OutboxState& value) {
    show(value, result.outbox_state, result.arena);
}
inline void setValue(Result& result, const KestrinHousehold::OutboxOpening& value) {
    show(value, result.outbox_state, result.arena);
}
inline void setValue(Result& result, const std::size_t& value) {
    result.number = value;
}
inline void setValue(Result& result, const bool& value) {
    result.number = value ? 1 : 0;
}
void setValue(Result& result, const HalvardSling::Response& value);
void setValue(Result& result, const KestrinConfigManager::HeldBinds& value);

/// One record is an array of one.
inline std::vector<KestrinProfile::User> storedAs(KestrinProfile::User&& value) {
    return {std::move(value)};
}
inline std::vector<KestrinHousehold::OutboxEntry> storedAs(KestrinHousehold::OutboxEntry&& value) {
    return {std::move(value)};
}
template <class T>
T&& storedAs(T&& value) {
    return std::forward<T>(value);
}

/// What the application gets of a value.
/// @throws std::bad_alloc
template <class T>
[[nodiscard]] kestrin_result* valueResult(T&& value) {
    Result* const result = made<Result>(KESTRIN_VALUE);
    try {
        setValue(*result, *result->arena.keep(storedAs(std::forward<T>(value))));
    } catch (...) {
        retired(result, "a result");
        throw;
    }
    return result;
}

/// What the application gets of an error; without memory, of the lack of memory.
[[nodiscard]] kestrin_result* errorResult(const std::exception_ptr& error) noexcept;

/// What the application gets of a request that it has cancelled.
[[nodiscard]] kestrin_result* cancelledResult() noexcept;

/// What the application gets if there is no memory for anything else.
[[nodiscard]] kestrin_result* outOfMemoryResult() noexcept;

/// Lays an error out.
/// @throws std::bad_alloc
void show(const std::exception_ptr& error, kestrin_error& structure, Arena& arena);

void release(kestrin_result* result, const char* function) noexcept;

}  // namespace KestrinC::internal
