#include "CountingTransport.hpp"

#include <utility>

namespace KestrinProfileCLI {

namespace {

void raiseTo(std::atomic<std::size_t>& most, std::size_t count) {
    std::size_t known = most;
    while (known < count && !most.compare_exchange_weak(known, count)) {
    }
}

}  // namespace

HalvardSling::TransferID CountingTransport::send(HalvardSling::CheckedRequest request,
                                                 HalvardSling::TransportCompletion completion) {
    ++counts_->sent;
    raiseTo(counts_->mostOpen, ++counts_->open);
    return inner_->send(std::move(request), [counts = counts_, completion = std::move(completion)](
                                                HalvardSling::TransportResult result) {
        --counts->open;
        completion(std::move(result));
    });
}

}  // namespace KestrinProfileCLI
