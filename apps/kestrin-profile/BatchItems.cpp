#include "BatchItems.hpp"

#include <string_view>

#include <fmt/format.h>

#include <internal/ASCII.hpp>

#include "ExitCode.hpp"
#include "Files.hpp"
#include "Text.hpp"

namespace KestrinProfileCLI {

namespace {

constexpr const char* readableFile =
    "name a readable file with --from FILE, or - for standard input";

void addLines(std::vector<BatchItem>& items, std::string_view text, const std::string& file) {
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    if (text.starts_with(byteOrderMark)) text.remove_prefix(byteOrderMark.size());
    const std::string name = file == "-" ? "standard input" : file;
    for (std::size_t line = 1; !text.empty(); ++line) {
        const std::size_t end = text.find('\n');
        const std::string_view item = KestrinInternal::trimmed(text.substr(0, end), " \t\r");
        if (!item.empty() && !item.starts_with('#'))
            items.push_back({std::string(item), fmt::format("{}:{}", name, line)});
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
}

}  // namespace

std::string textOf(const BatchItem& item, const Failure& failure) {
    constexpr std::size_t mostColumns = 80;
    return fmt::format("{}{}'{}': {}", item.location, item.location.empty() ? "" : ": ",
                       shortened(printable(item.text), mostColumns), failure.message);
}

Failure about(const BatchItem& item, Failure failure) {
    failure.message = textOf(item, failure);
    return failure;
}

HalvardSling::JSONDictionary documentOf(const BatchItem& item, const Failure& failure) {
    HalvardSling::JSONDictionary result;
    result.setText("item", item.text);
    if (!item.location.empty()) result.setText("place", item.location);
    result.setText("message", failure.message);
    result.setInteger("exitCode", static_cast<int>(failure.code));
    return result;
}

void addBatchItems(CLI::App& command, BatchItemSource& source, const std::string& item,
                   const std::string& description) {
    command.add_option(item, source.arguments, description)->type_name("");
    command
        .add_option("--from", source.file,
                    "Read more of them from a file, one per line; - is standard input; empty "
                    "lines and lines that begin with # are skipped")
        ->type_name("FILE");
}

std::vector<BatchItem> readBatchItems(const BatchItemSource& source, Interruption& interruption) {
    std::vector<BatchItem> items;
    for (const auto& argument : source.arguments)
        items.push_back({argument, {}});
    if (!source.file.empty())
        addLines(items, contentOf(source.file, readableFile, interruption), source.file);
    if (items.empty())
        throw CommandError({ExitCode::usage, "no item is given",
                            "give at least one, or a file of them with --from FILE"});
    return items;
}

}  // namespace KestrinProfileCLI
