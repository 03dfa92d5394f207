#pragma once

#include <exception>
#include <future>
#include <memory>
#include <utility>

#include <HalvardSling/rx/Observable.hpp>
#include <HalvardSling/rx/SingleValue.hpp>

namespace HalvardSling {

/// Subscribes at once and gives the one value of an observable as a `std::future`.
///
/// The future's `get` throws the observable's error itself; `std::logic_error` where it completes
/// without a value, or emits a second one (the subscription ends then); and `std::future_error`
/// with `broken_promise` where it ends without an event. Dropping the future cancels nothing: who
/// wants to cancel subscribes, or awaits (`HalvardSling/rx/Coroutine.hpp`).
///
/// Wait on a thread that may block. On a transport's thread the wait never ends, since the reply
/// comes on that very thread; `isTransportThread()` tells (`HalvardSling/transport/Transport.hpp`).
/// The same holds for the thread of an executor that the events are delivered on.
template <class T, class Source>
[[nodiscard]] std::future<T> toFuture(const rxcpp::observable<T, Source>& source) {
    const auto promise = std::make_shared<std::promise<T>>();
    auto future = promise->get_future();
    internal::SingleValue<T>::of(source.as_dynamic(), rxcpp::composite_subscription(),
                                 [promise](internal::SingleValue<T> outcome) {
                                     if (const auto error = outcome.error())
                                         promise->set_exception(error);
                                     else
                                         promise->set_value(std::move(outcome).take());
                                 });
    return future;
}

}  // namespace HalvardSling
