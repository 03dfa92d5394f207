#pragma once

#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <utility>
#include <variant>

#include <gmock/gmock.h>

#include <HalvardSling/transport/Transport.hpp>

namespace TestSupport {

/// A transport and what it talks to.
class Subject {
  public:
    explicit Subject(std::shared_ptr<HalvardSling::Transport> transport)
        : transport_(std::move(transport)) {}
    Subject(const Subject&) = delete;
    Subject(Subject&&) = delete;
    Subject& operator=(const Subject&) = delete;
    Subject& operator=(Subject&&) = delete;
    virtual ~Subject() = default;

    /// Sends a request that is answered with 200.
    virtual HalvardSling::TransferID sendAnswered(HalvardSling::TransportCompletion completion) = 0;
    /// Sends a request that fails.
    virtual HalvardSling::TransferID sendFailing(HalvardSling::TransportCompletion completion) = 0;
    /// Sends a request that stays open.
    virtual HalvardSling::TransferID sendOpen(HalvardSling::TransportCompletion completion) = 0;

    void cancel(HalvardSling::TransferID transfer) { transport_->cancel(transfer); }

    /// Destroys the transport.
    void destroy() {
        // The transport stays reachable for completions that run meanwhile.
        HalvardSling::Transport* const last = transport_.get();
        EXPECT_EQ(transport_.use_count(), 1) << last;
        owner_ = std::move(transport_);
        transport_ = std::shared_ptr<HalvardSling::Transport>(
            std::shared_ptr<HalvardSling::Transport>(), last);
        owner_.reset();
    }

  protected:
    [[nodiscard]] HalvardSling::Transport& transport() const { return *transport_; }

  private:
    std::shared_ptr<HalvardSling::Transport> transport_;
    std::shared_ptr<HalvardSling::Transport> owner_;
};

struct Kind {
    std::string name;
    std::function<std::unique_ptr<Subject>()> make;
};

class TransportContract : public testing::TestWithParam<Kind> {
  protected:
    // Destroyed last, for the completions write to it.
    std::atomic<int> replies{0};
    std::atomic<int> cancellations{0};
    std::atomic<int> others{0};

    /// Counts an outcome.
    HalvardSling::TransportCompletion counting() {
        return [this](const HalvardSling::TransportResult& result) {
            const auto* const error = std::get_if<HalvardSling::SlingError>(&result);
            if (error == nullptr)
                ++replies;
            else if (error->kind() == HalvardSling::SlingErrorKind::cancelled)
                ++cancellations;
            else
                ++others;
        };
    }

    /// Sends by `send` and waits for the outcome.
    HalvardSling::TransportResult outcomeOf(
        HalvardSling::TransferID (Subject::*send)(HalvardSling::TransportCompletion)) {
        const auto outcome = std::make_shared<std::promise<HalvardSling::TransportResult>>();
        (*subject.*send)(
            [=](HalvardSling::TransportResult result) { outcome->set_value(std::move(result)); });
        return outcome->get_future().get();
    }

    std::unique_ptr<Subject> subject = GetParam().make();
};

}  // namespace TestSupport
