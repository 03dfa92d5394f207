// The QR codes that the program draws, read by a reader of others.
#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>
#include <zbar.h>

#include <gtest/gtest.h>

#include <kestrin-profile-server/QRCode.hpp>

#include "Support.hpp"

namespace KestrinProfileServer::Testing {
namespace {

constexpr std::string_view dark = "38;5;16";
constexpr std::string_view light = "48;5;231";

/// A picture with a byte for each point, 0 black, as a terminal would show it.
struct Picture {
    std::size_t width = 0;
    std::vector<std::string> rows;

    /// Each module as a square of points.
    std::string magnified(std::size_t factor) const {
        std::string points;
        for (const std::string& row : rows) {
            std::string line;
            for (const char point : row)
                line.append(factor, point);
            for (std::size_t time = 0; time < factor; ++time)
                points += line;
        }
        return points;
    }
};

constexpr char black = '\0';
constexpr char white = '\xff';

/// The two modules of the character that a text begins with, which is taken away.
std::pair<char, char> takeBlock(std::string_view& text) {
    struct Block {
        std::string_view character;
        char upper;
        char lower;
    };
    for (const Block& each : {Block{" ", white, white}, Block{"▀", black, white},
                              Block{"▄", white, black}, Block{"█", black, black}}) {
        if (!text.starts_with(each.character)) continue;
        text.remove_prefix(each.character.size());
        return {each.upper, each.lower};
    }
    throw std::runtime_error("no block: " + std::string(text.substr(0, 8)));
}

/// What a terminal makes of it; each line sets its colours and ends them.
Picture shown(std::string_view drawn) {
    const std::string begin = "\x1b[" + std::string(dark) + ";" + std::string(light) + "m";
    constexpr std::string_view end = "\x1b[0m";
    Picture picture;
    while (!drawn.empty()) {
        std::string_view line = drawn.substr(0, drawn.find('\n'));
        drawn.remove_prefix(line.size() + 1);
        if (!line.starts_with(begin) || !line.ends_with(end))
            throw std::runtime_error("a line without its colours: " + std::string(line));
        line = line.substr(begin.size(), line.size() - begin.size() - end.size());
        std::string upper;
        std::string lower;
        while (!line.empty()) {
            const auto modules = takeBlock(line);
            upper += modules.first;
            lower += modules.second;
        }
        picture.width = upper.size();
        picture.rows.insert(picture.rows.end(), {upper, lower});
    }
    return picture;
}

/// The texts of all codes in a picture.
std::vector<std::string> readFrom(const Picture& picture) {
    constexpr std::size_t factor = 4;
    const std::string points = picture.magnified(factor);
    const std::unique_ptr<zbar::zbar_image_scanner_t, void (*)(zbar::zbar_image_scanner_t*)>
        scanner(zbar::zbar_image_scanner_create(), zbar::zbar_image_scanner_destroy);
    const std::unique_ptr<zbar::zbar_image_t, void (*)(zbar::zbar_image_t*)> image(
        zbar::zbar_image_create(), zbar::zbar_image_destroy);
    constexpr unsigned long greyLevels = 0x30303859;  // "Y800"
    zbar::zbar_image_set_format(image.get(), greyLevels);
    zbar::zbar_image_set_size(image.get(), static_cast<unsigned>(picture.width * factor),
                              static_cast<unsigned>(picture.rows.size() * factor));
    zbar::zbar_image_set_data(image.get(), points.data(), points.size(), nullptr);
    zbar::zbar_scan_image(scanner.get(), image.get());
    std::vector<std::string> texts;
    for (const auto* symbol = zbar::zbar_image_first_symbol(image.get()); symbol != nullptr;
         symbol = zbar::zbar_symbol_next(symbol)) {
        texts.emplace_back(zbar::zbar_symbol_get_data(symbol),
                           zbar::zbar_symbol_get_data_length(symbol));
    }
    return texts;
}

TEST(QRCodeTest, isReadBack) {
    for (const std::string& text :
         {std::string("a"), std::string("http://192.168.1.20:8480/admin/v1/invitation?key=0f1e"),
          "https://phone.example/" + std::string(300, 'x')}) {
        EXPECT_EQ(readFrom(shown(qrCode(text))), std::vector{text});
    }
}

TEST(QRCodeTest, hasAQuietZoneAndFitsAUsualTerminal) {
    const Picture picture = shown(
        qrCode("https://192.168.100.200:8480/admin/v1/invitation?key=" + std::string(32, 'f')));
    EXPECT_LE(picture.width, 80U);
    EXPECT_LE(picture.rows.size() / 2, 24U);
    for (std::size_t row = 0; row < picture.rows.size(); ++row) {
        const bool isQuiet = row < 4 || row + 4 >= picture.rows.size();
        const std::string& points = picture.rows[row];
        if (isQuiet) {
            EXPECT_EQ(points, std::string(picture.width, white)) << row;
        }
        EXPECT_EQ(points.substr(0, 4), std::string(4, white)) << row;
        EXPECT_EQ(points.substr(points.size() - 4), std::string(4, white)) << row;
    }
}

TEST(QRCodeTest, ofWhatIsTooLongThereIsNone) {
    EXPECT_THROW(static_cast<void>(qrCode(std::string(2954, 'x'))), std::runtime_error);
    EXPECT_NO_THROW(static_cast<void>(qrCode(std::string(2953, 'x'))));
}

TEST(QRCodeTest, theOneOfTheProgramLeadsToTheConfiguration) {
    TestSupport::TemporaryDirectory folder;
    const auto file = folder / "config.json";
    const auto program = startServer({"--database", (folder / "db").string(), "--port", "0", "--qr",
                                      "--admin", "--write-config", file.string()});
    const std::string url = waitUntilReady(program);
    const std::string said = program.errors();
    const std::size_t drawing = said.find("\x1b[");
    ASSERT_NE(drawing, std::string::npos) << said;
    const auto texts = readFrom(shown(std::string_view(said).substr(
        drawing, said.rfind("\x1b[0m\n") + std::string_view("\x1b[0m\n").size() - drawing)));
    ASSERT_EQ(texts.size(), 1U) << said;
    EXPECT_NE(said.find("\n" + texts.front() + "\n"), std::string::npos) << said;
    ASSERT_TRUE(texts.front().starts_with(url + "/admin/v1/invitation?key=")) << texts.front();
    const auto reply = HttpClient(url).send("GET", texts.front().substr(url.size()));
    EXPECT_EQ(outcomeOf(reply), "200");
    EXPECT_EQ(reply.body, TestSupport::contentOf(file));
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
