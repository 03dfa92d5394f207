#pragma once

#include "support/Waiting.hpp"

namespace TestSupport {

/// While one lives, looking up the name in its URL does not end; then the name does not exist. One
/// at a time.
class SlowNameLookup {
  public:
    static constexpr const char* url = "http://slow.test/";

    SlowNameLookup();
    SlowNameLookup(const SlowNameLookup&) = delete;
    SlowNameLookup(SlowNameLookup&&) = delete;
    SlowNameLookup& operator=(const SlowNameLookup&) = delete;
    SlowNameLookup& operator=(SlowNameLookup&&) = delete;
    ~SlowNameLookup();

    /// Waits until somebody looks it up; false if nobody does.
    [[nodiscard]] bool hasBegun() const { return begun_.reaches(1); }

  private:
    Tally begun_;
};

}  // namespace TestSupport
