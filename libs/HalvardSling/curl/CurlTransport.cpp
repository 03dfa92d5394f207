#include <utility>

#include <HalvardSling/curl/CurlTransport.hpp>
#include <HalvardSling/curl/internal/CurlEngine.hpp>
#include <HalvardSling/transport/internal/DefaultTransport.hpp>
#include <HalvardSling/transport/internal/TransferLoop.hpp>

namespace HalvardSling {

using internal::TransferLoop;

CurlTransport::CurlTransport() : CurlTransport(Options{}) {}

CurlTransport::CurlTransport(Options options)
    : loop_(std::make_shared<TransferLoop>(std::make_unique<internal::CurlEngine>(options),
                                           options.maxInFlight, options.log)) {}

CurlTransport::~CurlTransport() {
    loop_->end(TransferLoop::Ending::cancelling);
}

TransferID CurlTransport::send(CheckedRequest request, TransportCompletion completion) {
    return loop_->send(std::move(request), std::move(completion));
}

void CurlTransport::cancel(TransferID transfer) noexcept {
    loop_->cancel(transfer);
}

void CurlTransport::abandon() noexcept {
    loop_->end(TransferLoop::Ending::silent);
}

std::string CurlTransport::defaultUserAgent() {
    return "KestrinProfile/" KESTRIN_VERSION;
}

std::shared_ptr<Transport> internal::makeDefaultTransport() {
    return std::make_shared<CurlTransport>();
}

}  // namespace HalvardSling
