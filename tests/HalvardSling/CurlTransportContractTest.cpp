#include <memory>
#include <utility>

#include "CurlTransfers.hpp"
#include "TransportContract.hpp"

using namespace HalvardSling;
using namespace TestSupport;

namespace {

class CurlSubject final : public Subject {
  public:
    CurlSubject() : Subject(curlTransport({.maxInFlight = 4})) {}

    TransferID sendAnswered(TransportCompletion completion) override {
        return transport().send(checked(requestTo(server_.url())), std::move(completion));
    }
    TransferID sendFailing(TransportCompletion completion) override {
        return transport().send(checked(requestTo(broken_.url())), std::move(completion));
    }
    TransferID sendOpen(TransportCompletion completion) override {
        return transport().send(checked(requestTo(silent_.url())), std::move(completion));
    }

  private:
    const RawServer server_{RawServer::answering(httpReply(200, "x"))};
    const RawServer broken_{[](RawConnection& connection) { connection.readRequest(); }};
    const RawServer silent_{[](RawConnection& connection) {
        while (connection.readRequest()) {
        }
    }};
};

INSTANTIATE_TEST_SUITE_P(Curl, TransportContract,
                         testing::Values(Kind{"libcurl",
                                              [] { return std::make_unique<CurlSubject>(); }}),
                         [](const auto& each) { return each.param.name; });

}  // namespace
