#pragma once

#include <array>
#include <string_view>

#include <HalvardSling/Export.hpp>

namespace HalvardSling {

/// Names one sending of a request: 128 random bits as 32 hexadecimal digits.
class HALVARD_SLING_EXPORT RequestID {
  public:
    /// Nothing but zeros: the name of a request that is not on its way yet.
    RequestID() noexcept { digits_.fill('0'); }

    /// Asks the system for random bits.
    [[nodiscard]] static RequestID random() noexcept;

    /// The digits, in lower case.
    [[nodiscard]] std::string_view text() const noexcept {
        return {digits_.data(), digits_.size()};
    }

  private:
    std::array<char, 32> digits_;  // NOLINT: filled by the constructor
};

}  // namespace HalvardSling
