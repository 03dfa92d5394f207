#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include <HalvardSling/http/TransportRequest.hpp>
#include <HalvardSling/transport/Transport.hpp>

namespace HalvardSling::internal {

using Clock = std::chrono::steady_clock;

/// An open transfer.
struct Transfer {
    CheckedRequest request;  ///< after a redirect, the one that follows it
    Clock::time_point accepted;
    Clock::time_point deadline;
    std::optional<Clock::time_point> started{};  ///< absent while it waits for its turn
    int redirects = 0;                           ///< how many were followed
};

/// Transfers by their names, which are in the order they came. An entry moves from one such map to
/// another without needing memory.
using TransferMap = std::map<TransferID, Transfer>;
using TransferNode = TransferMap::node_type;

/// Transfers that wait to be started, first come first served, and the next moment at which one
/// gives up. Only `add` needs memory.
class TransferQueue {
  public:
    /// @throws std::bad_alloc; then nothing was added
    void add(TransferID id, Transfer transfer);

    /// Takes over all transfers of another queue.
    void merge(TransferQueue&& other) noexcept;

    /// Takes one out; the node is empty if it does not wait.
    [[nodiscard]] TransferNode take(TransferID id) noexcept { return take(transfers_.find(id)); }
    [[nodiscard]] TransferNode takeFirst() noexcept { return take(transfers_.begin()); }
    /// One whose deadline has passed.
    [[nodiscard]] TransferNode takeExpired(Clock::time_point now) noexcept;

    [[nodiscard]] std::optional<Clock::time_point> nextDeadline() const;
    [[nodiscard]] bool empty() const noexcept { return transfers_.empty(); }

  private:
    [[nodiscard]] TransferNode take(TransferMap::iterator at) noexcept;

    TransferMap transfers_;
    std::set<std::pair<Clock::time_point, TransferID>> deadlines_;
};

}  // namespace HalvardSling::internal
