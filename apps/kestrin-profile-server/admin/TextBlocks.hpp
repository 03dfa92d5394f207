#pragma once

#include <cstddef>
#include <memory>
#include <string_view>
#include <utility>

namespace KestrinProfileServer {

/// A text that shares a block of memory with its neighbours. Copies share it, too; any thread.
class KeptText {
  public:
    /// Nothing is kept.
    KeptText() = default;
    /// @param block  holds the text
    KeptText(std::shared_ptr<const char[]> block, std::string_view text)
        : block_(std::move(block)), text_(text) {}

    [[nodiscard]] bool isKept() const { return block_ != nullptr; }
    /// What is kept; empty if nothing is.
    [[nodiscard]] std::string_view text() const { return text_; }

  private:
    std::shared_ptr<const char[]> block_;
    std::string_view text_;
};

/// Keeps texts that go in about the order in which they came, one behind the other. Each in memory
/// of its own, thousands of all sizes would come and go, and the C library would search for a place
/// longer than a request takes. A block goes with the last of its texts. Used by one thread at a
/// time.
class TextBlocks {
  public:
    /// Copies a text. Of an empty one nothing is kept.
    [[nodiscard]] KeptText keep(std::string_view text);

  private:
    std::shared_ptr<char[]> block_;
    std::size_t used_ = 0;
    std::size_t size_ = 0;
};

}  // namespace KestrinProfileServer
