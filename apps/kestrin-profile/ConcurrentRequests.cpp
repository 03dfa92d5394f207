#include "ConcurrentRequests.hpp"

#include <map>
#include <memory>
#include <vector>

namespace KestrinProfileCLI {

using HalvardSling::Response;

namespace {

class Sender {
  public:
    Sender(Interruption& interruption, const ConcurrentRequests& requests)
        : interruption_(interruption), requests_(requests) {}

    bool run() {
        while (startNext(), !open_.empty()) {
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

    /// Starts as many as may be in flight.
    void startNext() {
        while (mayStart_ && next_ < requests_.count && open_.size() < requests_.maxConcurrent)
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
            requests_.request(index).subscribe(
                subscription, [](const Response&) {},
                [arrive](const std::exception_ptr& error) { arrive(error); },
                [arrive] { arrive(nullptr); });
        } catch (...) {
            arrive(std::current_exception());
        }
    }

    void end(std::size_t index, const std::exception_ptr& error) {
        open_.erase(index);
        const NextStep next = requests_.ended(index, error);
        if (next == NextStep::stop) mayStart_ = false;
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
    const ConcurrentRequests& requests_;
    std::size_t next_ = 0;
    bool mayStart_ = true;
    std::map<std::size_t, rxcpp::composite_subscription> open_;
    // Shared: after an interruption an event may still be on its way.
    std::shared_ptr<Arrivals> arrivals_ = std::make_shared<Arrivals>();
};

}  // namespace

bool sendAll(Interruption& interruption, const ConcurrentRequests& requests) {
    return Sender(interruption, requests).run();
}

}  // namespace KestrinProfileCLI
