#include <HalvardSling/transport/internal/TransferQueue.hpp>

namespace HalvardSling::internal {

void TransferQueue::add(TransferID id, Transfer transfer) {
    const auto deadline = deadlines_.emplace(transfer.deadline, id).first;
    try {
        transfers_.emplace(id, std::move(transfer));
    } catch (...) {
        deadlines_.erase(deadline);
        throw;
    }
}

void TransferQueue::merge(TransferQueue&& other) noexcept {
    transfers_.merge(std::move(other.transfers_));
    deadlines_.merge(std::move(other.deadlines_));
}

TransferNode TransferQueue::takeExpired(Clock::time_point now) noexcept {
    if (deadlines_.empty() || deadlines_.begin()->first > now) return {};
    return take(deadlines_.begin()->second);
}

std::optional<Clock::time_point> TransferQueue::nextDeadline() const {
    if (deadlines_.empty()) return std::nullopt;
    return deadlines_.begin()->first;
}

TransferNode TransferQueue::take(TransferMap::iterator at) noexcept {
    if (at == transfers_.end()) return {};
    deadlines_.erase({at->second.deadline, at->first});
    return transfers_.extract(at);
}

}  // namespace HalvardSling::internal
