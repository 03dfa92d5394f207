#pragma once

#include <atomic>
#include <cstddef>
#include <utility>

namespace KestrinProfileServer {

/// What all connections together may hold in bodies and replies. Used by all threads at once.
class MemoryBudget {
  public:
    explicit MemoryBudget(std::size_t bytes) : limit_(bytes) {}

    /// What one connection holds of it; given back at the end.
    class Share {
      public:
        explicit Share(MemoryBudget& budget) : budget_(budget) {}
        ~Share() { release(); }
        Share(const Share&) = delete;
        Share& operator=(const Share&) = delete;

        /// Takes so many bytes more; false if there are not enough.
        [[nodiscard]] bool take(std::size_t bytes) {
            if (budget_.used_.fetch_add(bytes) + bytes > budget_.limit_) {
                budget_.used_.fetch_sub(bytes);
                return false;
            }
            held_ += bytes;
            return true;
        }

        void release() { budget_.used_.fetch_sub(std::exchange(held_, 0)); }

      private:
        MemoryBudget& budget_;
        std::size_t held_ = 0;
    };

  private:
    const std::size_t limit_;
    std::atomic<std::size_t> used_ = 0;
};

}  // namespace KestrinProfileServer
