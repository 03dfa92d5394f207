#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include <HalvardSling/transport/Transport.hpp>

namespace HalvardSling {

/// A transport for tests: it sends nothing, records every request and answers from a script.
///
/// Each `send` takes the next scripted answer and delivers it at once, on the calling thread,
/// before `send` returns. Where the script is used up the transfer waits until `answer` is called.
/// All members may be called from any thread. Its end ends the waiting transfers with `cancelled`.
class FakeTransport final : public Transport {
  public:
    /// A transport with an empty script.
    FakeTransport() = default;
    /// Ends the waiting transfers with `cancelled`.
    ~FakeTransport() override;

    /// Makes an answer out of a request.
    using Reply = std::function<TransportResult(const TransportRequest&)>;

    /// Appends an answer to the script.
    void willAnswer(TransportResult result);

    /// Appends a reply with this status and body to the script.
    void willAnswer(int status, std::string body = {}, Headers headers = {});

    /// From now on every request without a scripted answer is answered by this function; empty
    /// takes it back.
    void alwaysAnswer(Reply reply);

    /// The requests so far, in order, cancelled ones included.
    [[nodiscard]] std::vector<TransportRequest> requests() const;

    /// The transfers that wait for an answer, in order.
    [[nodiscard]] std::vector<TransferID> waiting() const;

    /// How many transfers were cancelled before their answer.
    [[nodiscard]] std::size_t cancelled() const;

    /// Delivers an answer to a waiting transfer, on the calling thread.
    /// @return false where no such transfer waits (it was answered or cancelled)
    bool answer(TransferID transfer, TransportResult result);

    TransferID send(CheckedRequest request, TransportCompletion completion) override;
    void cancel(TransferID transfer) noexcept override;

  private:
    mutable std::mutex mutex_;
    TransferID last_ = 0;
    std::size_t cancelled_ = 0;
    bool ending_ = false;
    std::deque<TransportResult> script_;
    Reply reply_;
    std::vector<CheckedRequest> requests_;
    std::map<TransferID, TransportCompletion> waiting_;
};

}  // namespace HalvardSling
