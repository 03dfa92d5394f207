#pragma once

#include <memory>
#include <string_view>
#include <zlib.h>

namespace HalvardSling::internal {

/// Decodes a gzip text (RFC 1952) piece by piece. Unlike libcurl's decoder it knows whether the
/// text has come to its end.
class GzipDecoder {
  public:
    /// @throws std::bad_alloc
    GzipDecoder();

    enum class State {
        within,  ///< more has to come
        ended,   ///< the text is whole
        broken   ///< it is no gzip text, or something follows its end
    };

    /// Decodes the next piece, which is not empty.
    /// @param take  called with each part that comes out, in order; false: no more is wanted
    /// @throws std::bad_alloc, and what `take` throws
    template <class Take>
    void decode(std::string_view piece, Take take) {
        setInput(piece);
        for (std::string_view part = next(); !part.empty(); part = next())
            if (!take(part)) return;
    }

    [[nodiscard]] State state() const noexcept { return state_; }

  private:
    struct StreamEnd {
        void operator()(z_stream* stream) const noexcept;
    };

    void setInput(std::string_view piece) noexcept;
    [[nodiscard]] std::string_view next();

    State state_ = State::within;
    std::unique_ptr<z_stream, StreamEnd> stream_;
    std::unique_ptr<char[]> part_;  // NOLINT(*-avoid-c-arrays): its content is nobody's at first
};

}  // namespace HalvardSling::internal
