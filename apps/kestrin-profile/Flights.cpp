#include "Flights.hpp"

#include <map>
#include <memory>
#include <vector>

namespace KestrinProfileCLI {

using HalvardSling::Response;

namespace {

/// One run through the requests.
class Sending {
  public:
    Sending(Interruption& interruption, const Flights& flights)
        : interruption_(interruption), flights_(flights) {}

    bool play() {
        while (begin(), !open_.empty()) {
            if (!interruption_.wait([this] { return !arrivals_->empty(); })) {
                abort();
                return false;
            }
            for (const auto& [index, error] : takeArrivals())
                end(index, error);
        }
        return true;
    }

  private:
    struct Arrival {
        std::size_t index;
        std::exception_ptr error;  ///< null: answered
    };
    using Arrivals = std::vector<Arrival>;

    /// Begins as many as may be in flight.
    void begin() {
        while (mayBegin_ && next_ < flights_.count && open_.size() < flights_.atOnce)
            start(next_++);
    }

    void start(std::size_t index) {
        const auto arrive = [arrivals = arrivals_, index,
                             &interruption = interruption_](const std::exception_ptr& error) {
            interruption.notify([&] { arrivals->push_back({index, error}); });
        };
        const rxcpp::composite_subscription subscription;
        open_.emplace(index, subscription);
        try {
            flights_.request(index).subscribe(
                subscription, [](const Response&) {},
                [arrive](const std::exception_ptr& error) { arrive(error); },
                [arrive] { arrive(nullptr); });
        } catch (...) {
            arrive(std::current_exception());
        }
    }

    void end(std::size_t index, const std::exception_ptr& error) {
        open_.erase(index);
        const Next next = flights_.ended(index, error);
        if (next == Next::again) start(index);
        if (next == Next::stop) mayBegin_ = false;
    }

    Arrivals takeArrivals() {
        Arrivals taken;
        interruption_.notify([&] { taken.swap(*arrivals_); });
        return taken;
    }

    void abort() const {
        for (const auto& [index, subscription] : open_)
            subscription.unsubscribe();
    }

    Interruption& interruption_;
    const Flights& flights_;
    std::size_t next_ = 0;
    bool mayBegin_ = true;
    std::map<std::size_t, rxcpp::composite_subscription> open_;
    // Shared: after an interruption an event may still be on its way.
    std::shared_ptr<Arrivals> arrivals_ = std::make_shared<Arrivals>();
};

}  // namespace

bool sendAll(Interruption& interruption, const Flights& flights) {
    return Sending(interruption, flights).play();
}

}  // namespace KestrinProfileCLI
