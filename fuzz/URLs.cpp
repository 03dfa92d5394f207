// URLs, templates, and what filling one may do. An input is a template and values for its
// placeholders, one on a line.

#include <string>
#include <variant>
#include <vector>

#include <HalvardSling/http/URL.hpp>
#include <KestrinConfigManager/TextMap.hpp>
#include <KestrinConfigManager/URLTemplate.hpp>

#include "fuzz/Expect.hpp"

namespace {

using Fuzz::expect;
using HalvardSling::URL;
using KestrinConfigManager::TextMap;
using KestrinConfigManager::URLTemplate;

std::vector<std::string_view> linesOf(std::string_view text) {
    std::vector<std::string_view> lines;
    while (true) {
        const std::size_t end = text.find('\n');
        lines.push_back(text.substr(0, end));
        if (end == std::string_view::npos) return lines;
        text.remove_prefix(end + 1);
    }
}

bool isOfARequestLine(std::string_view text) {
    for (const char each : text)
        if (each <= ' ' || each > '~') return false;
    return true;
}

void parse(std::string_view text) {
    const auto parsed = URL::parse(text);
    const auto* const url = std::get_if<URL>(&parsed);
    if (url == nullptr) return;
    expect(isOfARequestLine(url->text()), "a URL has printable characters only");
    expect(url->requestTarget().starts_with('/'), "a request asks for a path");
    expect(url->requestTarget().find('#') == std::string::npos, "without the fragment");
    const auto& [scheme, host, port] = url->origin();
    expect(scheme == "http" || scheme == "https", "the scheme is HTTP's");
    expect(!host.empty() && !port.empty(), "there is a host and a port");
    expect(host.find_first_of("@/?#\\%") == std::string::npos, "a host is a name or an address");
    const auto again = URL::parse(url->text());
    const auto* const same = std::get_if<URL>(&again);
    expect(same != nullptr && same->text() == url->text() && same->origin() == url->origin(),
           "a URL's text is the same URL");
}

/// The template filled from left to right, placeholder by placeholder.
std::string filledPlainly(const URLTemplate& pattern, const TextMap& values) {
    std::string result;
    std::string_view rest = pattern.text();
    for (const auto token : pattern.placeholders()) {
        const std::size_t at = rest.find(token);
        result += rest.substr(0, at);
        const auto value = values.find(token);
        result += value == values.end() ? std::string(token) : value->second;
        rest.remove_prefix(at + token.size());
    }
    return result + std::string(rest);
}

TextMap valuesFor(const URLTemplate& pattern, const std::vector<std::string_view>& lines) {
    TextMap values;
    std::size_t line = 1;
    for (const auto token : pattern.placeholders())
        if (line < lines.size()) values.emplace(token, lines[line++]);
    return values;
}

/// A URL that was filled and is allowed has the origin of the template, whatever the values.
void guard(const URLTemplate& pattern, const std::string& filled) {
    const auto parsed = URL::parse(filled);
    const auto* const url = std::get_if<URL>(&parsed);
    if (url == nullptr || url->validateOrigin(pattern.text())) return;
    TextMap harmless;
    for (const auto token : pattern.placeholders())
        harmless.emplace(token, "x");
    const auto expected = URL::parse(pattern.filled(harmless));
    const auto* const origin = std::get_if<URL>(&expected);
    // What stands in the template may be refused unless a value makes a fragment of it.
    expect(origin == nullptr || url->origin() == origin->origin(), "no value changes the origin");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto lines = linesOf(Fuzz::textOf(data, size));
    const URLTemplate pattern{std::string(lines.front())};
    parse(lines.front());
    const TextMap values = valuesFor(pattern, lines);
    const std::string filled = pattern.filled(values);
    expect(filled == filledPlainly(pattern, values), "a template is filled from left to right");
    expect(pattern.pathBegin() <= pattern.text().size(), "a path begins in the text");
    expect(pattern.path().find_first_of("?#") == std::string::npos, "a path is no query");
    for (const auto token : pattern.placeholders())
        expect(token.size() >= 5 && token.front() == '%' && token.back() == '%',
               "a placeholder stands between per cent signs");
    parse(filled);
    guard(pattern, filled);
    return 0;
}
