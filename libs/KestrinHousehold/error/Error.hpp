#pragma once

#include <exception>
#include <utility>

#include <KestrinHousehold/Export.hpp>
#include <KestrinHousehold/outbox/OutboxError.hpp>
#include <KestrinProfile/service/Error.hpp>

namespace KestrinHousehold {

/// What an observable of this library failed with, as a value: `KestrinProfile::describe` for an
/// `OutboxError`, too. Any exception will do, also an absent one. Never fails. Any thread.
[[nodiscard]] KESTRIN_HOUSEHOLD_EXPORT KestrinProfile::ErrorDescription describe(
    const std::exception_ptr& error) noexcept;

/// What to show of what an observable of this library failed with: `KestrinProfile::whatToShow` for
/// an `OutboxError`, too. `invalidWrite` is about the input; a `full` outbox waits for the network;
/// `notStored` is for want of space; a `storeUnavailable` is broken; `closed` is nothing. Any
/// exception will do, also an absent one. Never fails. Any thread.
[[nodiscard]] KESTRIN_HOUSEHOLD_EXPORT KestrinProfile::ErrorNotice whatToShow(
    const std::exception_ptr& error) noexcept;

/// `KestrinProfile::visitError` with one handler more to choose: of an `OutboxError`.
/// @param error     may be absent: a handler gets a `KestrinProfile::UnknownError`
/// @param handlers  one of them takes a `std::exception`
/// @return what the handler returns; what it throws, this throws
template <class... Handlers>
auto visitError(const std::exception_ptr& error, Handlers... handlers) {
    struct Overloads : Handlers... {
        using Handlers::operator()...;
    };
    const Overloads handle{std::move(handlers)...};
    if (!error) return KestrinProfile::visitError(error, handle);
    try {
        std::rethrow_exception(error);
    } catch (const OutboxError& known) {
        return handle(known);
    } catch (...) {
        return KestrinProfile::visitError(error, handle);
    }
}

}  // namespace KestrinHousehold
