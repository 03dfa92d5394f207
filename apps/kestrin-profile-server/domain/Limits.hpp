#pragma once

#include <atomic>
#include <cstddef>

namespace KestrinProfileServer {

/// How much a household may store.
struct Limits {
    std::size_t maxProfiles = 5;
    std::size_t maxListSize = 500;
};

/// The limits, whose list size may change while the service runs. Used by all threads at once.
class LiveLimits {
  public:
    explicit LiveLimits(const Limits& limits)
        : configured_(limits), maxListSize_(limits.maxListSize) {}

    /// As they are now.
    [[nodiscard]] Limits now() const { return {configured_.maxProfiles, maxListSize_.load()}; }
    /// As they were at the start.
    [[nodiscard]] const Limits& configured() const { return configured_; }

    void setMaxListSize(std::size_t size) { maxListSize_ = size; }

  private:
    const Limits configured_;
    std::atomic<std::size_t> maxListSize_;
};

}  // namespace KestrinProfileServer
