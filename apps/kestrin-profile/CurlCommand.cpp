#include "CurlCommand.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <chrono>
#include <vector>

#include <fmt/format.h>

#include <HalvardSling/curl/CurlTransport.hpp>
#include <HalvardSling/http/Headers.hpp>
#include <KestrinProfile/params/ProfileUtils.hpp>

#include "Text.hpp"

namespace KestrinProfileCLI {

using HalvardSling::TransportRequest;

namespace {

/// The words of a command line.
using Words = std::vector<std::string>;

bool isPlain(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 ||
           std::string_view("-_./:,@%+").find(c) != std::string_view::npos;
}

/// The name of the variable for a header's value.
std::string variableFor(std::string_view header) {
    std::string name = "KESTRIN_";
    for (const char c : header) {
        const auto byte = static_cast<unsigned char>(c);
        name += std::isalnum(byte) != 0 ? static_cast<char>(std::toupper(byte)) : '_';
    }
    return name;
}

/// A header as a word; its value, or what of it is secret, as a variable.
std::string headerWord(std::string_view name, std::string_view value) {
    if (isPublicHeader(name))
        return shellQuoted(value.empty() ? fmt::format("{};", name)
                                         : fmt::format("{}: {}", name, value));
    const bool hasToken = value.ends_with(unknownToken);
    const auto known = hasToken ? value.substr(0, value.size() - unknownToken.size()) : "";
    const std::string variable = hasToken ? std::string(unknownToken) : variableFor(name);
    return fmt::format("{}\"${}\"", shellQuoted(fmt::format("{}: {}", name, known)), variable);
}

std::string seconds(std::chrono::milliseconds time) {
    return fmt::format("{}", std::chrono::duration<double>(time).count());
}

void addBody(Words& words, const TransportRequest& request) {
    if (!request.body && request.method != "POST") return;
    words.insert(words.end(),
                 {"--data-raw", shellQuoted(request.body ? *request.body : std::string())});
    if (!request.headers.value("Content-Type"))
        words.insert(words.end(), {"--header", "Content-Type:"});
}

void addHeaders(Words& words, const TransportRequest& request) {
    for (const auto& [name, value] : request.headers)
        words.insert(words.end(), {"--header", headerWord(name, value)});
    if (request.headers.value("User-Agent")) return;
    const bool has = request.sendsUserAgent;
    words.insert(words.end(),
                 {"--user-agent", shellQuoted(has ? HalvardSling::CurlTransport::defaultUserAgent()
                                                  : std::string())});
}

void addRules(Words& words, const TransportRequest& request) {
    words.insert(words.end(), {"--globoff", "--path-as-is", "--compressed", "--noproxy", "'*'",
                               "--connect-timeout", seconds(request.policy.connectTimeout),
                               "--max-time", seconds(request.policy.totalTimeout)});
    if (request.policy.maxRedirects > 0)
        words.insert(words.end(),
                     {"--location", "--max-redirs", std::to_string(request.policy.maxRedirects)});
}

}  // namespace

std::string shellQuoted(std::string_view text) {
    if (!text.empty() && std::ranges::all_of(text, &isPlain)) return std::string(text);
    return "'" + replaced(std::string(text), "'", R"('\'')") + "'";
}

bool isPublicHeader(std::string_view name) {
    static constexpr std::array<std::string_view, 4> names{
        "Accept", "Content-Type", "User-Agent", KestrinProfile::ProfileHeaders::profileID};
    return std::ranges::any_of(
        names, [name](auto each) { return HalvardSling::Headers::sameName(each, name); });
}

std::string curlCommand(const TransportRequest& request) {
    Words words{"curl"};
    addRules(words, request);
    if (request.method != "GET")
        words.insert(words.end(), {"--request", shellQuoted(request.method)});
    addHeaders(words, request);
    addBody(words, request);
    words.insert(words.end(), {"--url", shellQuoted(request.url)});
    return joined(words, " ");
}

}  // namespace KestrinProfileCLI
