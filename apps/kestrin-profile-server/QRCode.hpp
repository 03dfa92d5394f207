#pragma once

#include <string>

namespace KestrinProfileServer {

/// A text as a QR code (ISO/IEC 18004) in lines with their ends: two modules, one above the other,
/// are one character. It brings the colours of both kinds of modules, and the quiet zone, so a
/// terminal's own colours do not matter.
/// @param text  what is read from it, at most 2,953 bytes; else std::runtime_error is thrown
[[nodiscard]] std::string qrCode(const std::string& text);

}  // namespace KestrinProfileServer
