#pragma once

#include <array>
#include <string_view>

#include <HalvardSling/Export.hpp>

namespace HalvardSling {

/// Names one sending of a request: 128 random bits as 32 hexadecimal digits.
class HALVARD_SLING_EXPORT RequestID {
  public:
    [[nodiscard]] static RequestID random() noexcept;

    /// The digits, in lower case.
    [[nodiscard]] std::string_view text() const noexcept {
        return {digits_.data(), digits_.size()};
    }

  private:
    std::array<char, 32> digits_{};
};

}  // namespace HalvardSling
