#pragma once

#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

#include <HalvardSling/rx/Observable.hpp>

#include "ExitCode.hpp"
#include "Interruption.hpp"

namespace KestrinProfileCLI {

/// Subscribes, and waits for the one value.
/// @return the value
/// @throws the sequence's error; `CommandError::interrupted` if a signal came first, after
///         unsubscribing; `std::logic_error` on a transport's thread
template <class T>
T waitFor(Interruption& interruption, const HalvardSling::Observable<T>& source) {
    struct Arrival {
        std::optional<T> value;
        std::exception_ptr error;
        bool ended = false;
    };
    // Shared: after an interruption an event may still be on its way when this function has left.
    const auto arrival = std::make_shared<Arrival>();
    const rxcpp::composite_subscription subscription;
    source.subscribe(
        subscription,
        [&interruption, arrival](T value) {
            interruption.notify([&] { arrival->value = std::move(value); });
        },
        [&interruption, arrival](const std::exception_ptr& error) {
            interruption.notify([&] {
                arrival->error = error;
                arrival->ended = true;
            });
        },
        [&interruption, arrival] { interruption.notify([&] { arrival->ended = true; }); });

    if (!interruption.wait([&] { return arrival->ended; })) {
        subscription.unsubscribe();
        throw CommandError::interrupted();
    }
    if (arrival->error) std::rethrow_exception(arrival->error);
    std::optional<T>& value = arrival->value;
    if (!value) throw std::logic_error("the request ended without a value");
    return *std::move(value);
}

}  // namespace KestrinProfileCLI
