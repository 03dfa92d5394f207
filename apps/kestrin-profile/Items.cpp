#include "Items.hpp"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

#include <fmt/format.h>

#include "ExitCode.hpp"
#include "Readable.hpp"
#include "Text.hpp"

namespace KestrinProfileCLI {

namespace {

/// A file that is open for reading, until its end.
class Input {
  public:
    explicit Input(const std::string& file)
        : name_(file),
          descriptor_(file == "-" ? STDIN_FILENO : open(file.c_str(), O_RDONLY | O_CLOEXEC)) {
        if (descriptor_ < 0) fail();
    }
    Input(const Input&) = delete;
    Input(Input&&) = delete;
    Input& operator=(const Input&) = delete;
    Input& operator=(Input&&) = delete;
    ~Input() {
        if (descriptor_ != STDIN_FILENO) close(descriptor_);
    }

    /// Everything up to the end. A signal ends the wait for a person who types.
    std::string content(Interruption& interruption) const {
        std::string all;
        std::array<char, 65536> piece{};
        for (;;) {
            awaitReadable(interruption, descriptor_);
            const ssize_t count = read(descriptor_, piece.data(), piece.size());
            if (count < 0) fail();
            if (count == 0) return all;
            all.append(piece.data(), static_cast<std::size_t>(count));
        }
    }

  private:
    [[noreturn]] void fail() const {
        throw CommandError({ExitCode::usage,
                            fmt::format("cannot read {}: {}", name_, std::strerror(errno)),
                            "name a readable file with --from FILE, or - for standard input"});
    }

    std::string name_;
    int descriptor_;
};

void addLines(std::vector<Item>& items, std::string_view text, const std::string& file) {
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    if (text.starts_with(byteOrderMark)) text.remove_prefix(byteOrderMark.size());
    const std::string name = file == "-" ? "standard input" : file;
    for (std::size_t line = 1; !text.empty(); ++line) {
        const std::size_t end = text.find('\n');
        const std::string_view item = trimmed(text.substr(0, end));
        if (!item.empty() && !item.starts_with('#'))
            items.push_back({std::string(item), fmt::format("{}:{}", name, line)});
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
}

}  // namespace

void addItems(CLI::App& command, ItemSource& source, const std::string& item,
              const std::string& description) {
    command.add_option(item, source.arguments, description)->type_name("");
    command
        .add_option("--from", source.file,
                    "Read more of them from a file, one a line; - is standard input; empty lines "
                    "and lines that begin with # are skipped")
        ->type_name("FILE");
}

std::vector<Item> itemsOf(const ItemSource& source, Interruption& interruption) {
    std::vector<Item> items;
    for (const auto& argument : source.arguments)
        items.push_back({argument, {}});
    if (!source.file.empty())
        addLines(items, Input(source.file).content(interruption), source.file);
    if (items.empty())
        throw CommandError({ExitCode::usage, "nothing is named",
                            "name at least one, or a file that does with --from FILE"});
    return items;
}

}  // namespace KestrinProfileCLI
