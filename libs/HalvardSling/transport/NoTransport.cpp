#include <atomic>
#include <memory>

#include <HalvardSling/transport/internal/DefaultTransport.hpp>

namespace HalvardSling::internal {

namespace {

/// Stands in for the transport that an application did not set.
class NoTransport final : public Transport {
  public:
    TransferID send(CheckedRequest /*request*/, TransportCompletion completion) override {
        completion(SlingError(SlingErrorKind::cannotConnect,
                              "this build of HalvardSling has no transport of its own: call "
                              "HalvardSling::setDefaultTransport first"));
        return ++last_;
    }
    void cancel(TransferID /*transfer*/) noexcept override {}

  private:
    std::atomic<TransferID> last_ = 0;
};

}  // namespace

std::shared_ptr<Transport> makeDefaultTransport() {
    return std::make_shared<NoTransport>();
}

}  // namespace HalvardSling::internal
