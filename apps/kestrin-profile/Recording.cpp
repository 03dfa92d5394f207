#include "Recording.hpp"

namespace KestrinProfileCLI {

using HalvardSling::CheckedRequest;
using HalvardSling::TransportResult;

std::size_t Recording::begin(CheckedRequest request) {
    const auto exchanges = exchanges_.lock();
    exchanges->push_back({std::move(request)});
    return exchanges->size() - 1;
}

void Recording::end(std::size_t number, const TransportResult& result) {
    const auto exchanges = exchanges_.lock();
    Exchange& exchange = exchanges->at(number);
    exchange.result = result;
    exchange.ended = std::chrono::system_clock::now();
}

std::vector<Exchange> Recording::exchanges() const {
    return *exchanges_.lock();
}

HalvardSling::TransferID RecordingTransport::send(CheckedRequest request,
                                                  HalvardSling::TransportCompletion completion) {
    const std::size_t number = recording_->begin(request);
    return sending_->send(std::move(request),
                          [recording = recording_, number,
                           completion = std::move(completion)](TransportResult result) {
                              recording->end(number, result);
                              completion(std::move(result));
                          });
}

}  // namespace KestrinProfileCLI
