#pragma once

#include <cstddef>
#include <filesystem>
#include <limits>

#include "support/CallJudge.hpp"

namespace TestSupport {

constexpr int allThatFollow = std::numeric_limits<int>::max();

/// Which calls fail, and how.
struct CallFault {
    SystemCall call;
    int error = 0;
    int first = 1;  ///< the first one of the calls that fails, from 1
    int last = allThatFollow;
};

/// As long as it lives, calls of a process that links kestrin_failing_calls fail; one such object
/// at a time. What makes them pauses while it begins and ends. Such a process never waits for a
/// disk: what it syncs counts as synced.
class FailingCalls {
  public:
    /// @param folder  only calls about files in it, or about itself; empty: all
    explicit FailingCalls(const CallFault& fault, const std::filesystem::path& folder = {});
    FailingCalls(const FailingCalls&) = delete;
    FailingCalls& operator=(const FailingCalls&) = delete;
    ~FailingCalls();

    /// From now on nothing fails.
    void end() noexcept;

    /// How many of the calls that could fail were made.
    [[nodiscard]] int count() const noexcept;

    /// Whether one has failed.
    [[nodiscard]] bool hasFailed() const noexcept { return count() >= first_; }

  private:
    int first_;
};

/// As long as it lives, a write takes no more than so many bytes; one such object at a time.
class ShortWrites {
  public:
    /// @param mostBytes  1 or more
    /// @param folder     as above
    explicit ShortWrites(std::size_t mostBytes, const std::filesystem::path& folder = {});
    ShortWrites(const ShortWrites&) = delete;
    ShortWrites& operator=(const ShortWrites&) = delete;
    ~ShortWrites();
};

}  // namespace TestSupport
