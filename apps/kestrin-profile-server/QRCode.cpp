#include <array>
#include <memory>
#include <qrencode.h>
#include <stdexcept>
#include <string_view>

#include <kestrin-profile-server/QRCode.hpp>

namespace KestrinProfileServer {
namespace {

/// How many light modules the standard wants around a code.
constexpr int quietZone = 4;

/// Black on white, from the colours that no theme changes (ECMA-48, 8.3.117, with the 256 colours
/// of xterm), and back.
constexpr std::string_view blackOnWhite = "\x1b[38;5;16;48;5;231m";
constexpr std::string_view usualColours = "\x1b[0m";

/// By whether the upper module is dark, and the lower one.
constexpr std::array<std::array<std::string_view, 2>, 2> blocks{{{" ", "▄"}, {"▀", "█"}}};

struct FreeCode {
    void operator()(QRcode* code) const { QRcode_free(code); }
};
using Code = std::unique_ptr<QRcode, FreeCode>;

/// Whether a module is dark; beyond the code all are light.
bool isDark(const QRcode& code, int row, int column) {
    if (row < 0 || column < 0 || row >= code.width || column >= code.width) return false;
    const auto place = static_cast<std::size_t>(row) * static_cast<std::size_t>(code.width) +
                       static_cast<std::size_t>(column);
    return (code.data[place] & 1U) != 0;
}

}  // namespace

std::string qrCode(const std::string& text) {
    // The smallest one, so that it fits a terminal; a screen is a clean surface.
    const Code code(QRcode_encodeData(static_cast<int>(text.size()),
                                      reinterpret_cast<const unsigned char*>(text.data()), 0,
                                      QR_ECLEVEL_L));
    if (!code) throw std::runtime_error("the text is too long for a QR code");
    std::string drawn;
    const int end = code->width + quietZone;
    for (int row = -quietZone; row < end; row += 2) {
        drawn += blackOnWhite;
        for (int column = -quietZone; column < end; ++column) {
            drawn += blocks.at(isDark(*code, row, column) ? 1 : 0)
                         .at(isDark(*code, row + 1, column) ? 1 : 0);
        }
        drawn.append(usualColours).append("\n");
    }
    return drawn;
}

}  // namespace KestrinProfileServer
