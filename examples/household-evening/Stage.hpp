#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include <HalvardSling/http/Response.hpp>
#include <HalvardSling/http/SlingError.hpp>
#include <HalvardSling/rx/Observable.hpp>
#include <HalvardSling/transport/Transport.hpp>

namespace HouseholdEvening {

using HalvardSling::Observable;
using HalvardSling::Response;

/// Hands every transfer on to another transport, and counts.
class CountingTransport final : public HalvardSling::Transport {
  public:
    explicit CountingTransport(std::shared_ptr<Transport> inner) : inner_(std::move(inner)) {}

    HalvardSling::TransferID send(HalvardSling::CheckedRequest request,
                                  HalvardSling::TransportCompletion completion) override;
    void cancel(HalvardSling::TransferID transfer) noexcept override { inner_->cancel(transfer); }

    [[nodiscard]] std::size_t sent() const noexcept { return counts_->sent; }
    /// How many transfers were open at the same time at most.
    [[nodiscard]] std::size_t mostOpen() const noexcept { return counts_->mostOpen; }

  private:
    struct Counts {
        std::atomic<std::size_t> sent = 0;
        std::atomic<std::size_t> open = 0;
        std::atomic<std::size_t> mostOpen = 0;
    };

    std::shared_ptr<Transport> inner_;
    // Shared: a completion may come when this is gone.
    std::shared_ptr<Counts> counts_ = std::make_shared<Counts>();
};

/// @throws std::runtime_error unless a claim holds
void require(bool holds, const std::string& claim);

/// Subscribes, and waits for the one value.
/// @throws the sequence's error; `std::logic_error` on a transport's thread, where the value could
///         never arrive
template <class T>
T await(const Observable<T>& source) {
    if (HalvardSling::isTransportThread())
        throw std::logic_error("a handler on the network thread must not wait for a request");
    // Shared: the other thread may still be inside when this function has returned.
    const auto arrival = std::make_shared<std::promise<T>>();
    source.subscribe([arrival](T value) { arrival->set_value(std::move(value)); },
                     [arrival](const std::exception_ptr& error) { arrival->set_exception(error); });
    return arrival->get_future().get();
}

/// Sends many requests, each when there is room for it, and waits until all have ended.
/// @throws the first error
void awaitAll(std::size_t count, std::size_t atOnce,
              const std::function<Observable<Response>(std::size_t index)>& request);

/// The error of a sequence that has to fail with this kind of error.
template <class Error, class T>
Error errorOf(const Observable<T>& source) {
    try {
        static_cast<void>(await(source));
    } catch (const Error& error) {
        return error;
    }
    throw std::runtime_error("expected: the operation fails");
}

/// Why the service answered with an error status, as it says in a problem document (RFC 9457);
/// empty if it does not say.
std::string reasonOf(const HalvardSling::SlingError& error);

/// A refusal by the service, and how often the reaction to forbidden replies was called meanwhile.
struct Refusal {
    HalvardSling::SlingError error;
    int reactions;
};

/// Plays the steps and prints them. From its making on, all requests are counted.
class Stage {
  public:
    Stage();

    static void scene(const std::string& title);

    /// Plays a step and prints what came of it.
    /// @throws std::runtime_error that names the step if it fails
    void step(const std::string& what, const std::function<std::string()>& play);

    /// Prints the last line.
    void close() const;

    [[nodiscard]] std::size_t sent() const noexcept { return transport_->sent(); }
    [[nodiscard]] std::size_t mostInFlight() const noexcept { return transport_->mostOpen(); }

    template <class T>
    [[nodiscard]] Refusal refusalOf(const Observable<T>& source) const {
        const int before = *reactions_;
        auto error = errorOf<HalvardSling::SlingError>(source);
        return {std::move(error), *reactions_ - before};
    }

  private:
    std::shared_ptr<CountingTransport> transport_;
    std::shared_ptr<std::atomic<int>> reactions_ = std::make_shared<std::atomic<int>>(0);
    std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
    int steps_ = 0;
};

}  // namespace HouseholdEvening
