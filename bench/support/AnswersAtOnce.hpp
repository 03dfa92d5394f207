#pragma once

#include <utility>

#include <HalvardSling/http/Response.hpp>
#include <HalvardSling/transport/Transport.hpp>

#include "support/Reply.hpp"

namespace Bench {

/// A transport that answers every request with the same reply before `send` returns.
class AnswersAtOnce final : public HalvardSling::Transport {
  public:
    explicit AnswersAtOnce(HalvardSling::Response reply) : reply_(std::move(reply)) {}

    HalvardSling::TransferID send(HalvardSling::CheckedRequest /*request*/,
                                  HalvardSling::TransportCompletion completion) override {
        completion(reply_);
        return ++last_;
    }
    void cancel(HalvardSling::TransferID /*transfer*/) noexcept override {}

  private:
    HalvardSling::Response reply_;
    HalvardSling::TransferID last_ = 0;
};

}  // namespace Bench
