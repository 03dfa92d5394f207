#include "AdminInterface.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <exception>
#include <memory>
#include <set>
#include <utility>
#include <variant>
#include <vector>

#include <fmt/format.h>

#include <HalvardSling/http/TransportRequest.hpp>
#include <HalvardSling/rx/Sling.hpp>
#include <KestrinConfigManager/Configuration.hpp>
#include <KestrinConfigManager/WebService.hpp>
#include <KestrinHousehold/error/Error.hpp>
#include <internal/ASCII.hpp>
#include <internal/Hex.hpp>
#include <internal/Quoting.hpp>

#include "../Files.hpp"

namespace KestrinProfileCLI {

using HalvardSling::SlingError;
using HalvardSling::TransportRequest;

namespace {

constexpr std::string_view protocolPath = "/v1/";
constexpr std::string_view namespacePath = "/n/";
constexpr const char* addressVariable = "KESTRIN_PROFILE_SERVICE_URL";
constexpr const char* secretVariable = "KESTRIN_PROFILE_SERVICE_SECRET";
constexpr const char* nameTheService =
    "name the service with --url, e.g. --url http://127.0.0.1:8480";

/// The address of the service whose operation has this URL; empty: it is none of a service's.
std::string addressIn(std::string_view url) {
    const std::size_t path = url.find(protocolPath, url.find("://") + 3);
    return path == std::string_view::npos ? std::string() : std::string(url.substr(0, path));
}

/// The address of the service that the configuration leads to.
std::string configuredAddress(const Session& session) {
    const auto file = session.configurationFile();
    const auto result = KestrinConfigManager::loadConfiguration(file);
    const auto* const configuration = std::get_if<KestrinConfigManager::Configuration>(&result);
    if (configuration == nullptr) {
        using Problems = std::vector<KestrinConfigManager::ConfigurationProblem>;
        throw CommandError({ExitCode::usage,
                            fmt::format("no configuration names the service; {}: {}", file.string(),
                                        std::get<Problems>(result).front().message),
                            nameTheService});
    }
    std::set<std::string> addresses;
    if (configuration->services)
        for (const auto& [operation, service] : *configuration->services)
            addresses.insert(addressIn(service.url.text()));
    addresses.erase("");
    if (addresses.size() == 1) return *addresses.begin();
    throw CommandError(
        {ExitCode::usage,
         addresses.empty()
             ? fmt::format("the configuration {} names no development service", file.string())
             : fmt::format("the configuration {} names several services: {}", file.string(),
                           KestrinInternal::listInQuotes(addresses)),
         nameTheService});
}

/// An address as it may be typed or copied, without the path of the inspector.
std::string typedAddress(std::string_view url) {
    for (const std::string_view end : {"/", "/admin", "/"})
        if (url.ends_with(end)) url.remove_suffix(end.size());
    return std::string(url);
}

std::string variable(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}

std::string addressFor(const Session& session, const AdminOptions& options) {
    const std::string url = options.url.empty() ? variable(addressVariable) : options.url;
    std::string address = url.empty() ? configuredAddress(session) : typedAddress(url);
    if (options.isRootWanted || !options.nameOfSpace.empty())
        address = address.substr(0, address.find(namespacePath, address.find("://") + 3));
    if (!options.isRootWanted && !options.nameOfSpace.empty())
        address.append(namespacePath).append(percentEncoded(options.nameOfSpace));
    return address;
}

std::string secretFor(const Session& session, const AdminOptions& options) {
    if (options.secretFile.empty()) return variable(secretVariable);
    const std::string content = contentOf(
        options.secretFile, "name a readable file with --secret-file", session.interruption());
    const std::string_view line = std::string_view(content).substr(0, content.find('\n'));
    std::string secret(KestrinInternal::trimmed(line, " \t\r"));
    if (secret.empty())
        throw CommandError({ExitCode::usage,
                            options.secretFile + " has no secret in its first line",
                            "write the service's secret there"});
    return secret;
}

std::optional<HalvardSling::Origin> originOf(const std::string& url) {
    const auto parsed = HalvardSling::URL::parse(url);
    const auto* const found = std::get_if<HalvardSling::URL>(&parsed);
    return found == nullptr ? std::nullopt : std::optional(found->origin());
}

/// Whether the configuration has an operation there; one in cleartext only if its `cleartextHosts`
/// allows that.
bool isConfigured(const Session& session, const HalvardSling::Origin& origin) {
    const auto result = KestrinConfigManager::loadConfiguration(session.configurationFile());
    const auto* const configuration = std::get_if<KestrinConfigManager::Configuration>(&result);
    return configuration != nullptr && configuration->services &&
           std::ranges::any_of(*configuration->services, [&](const auto& each) {
               return originOf(addressIn(each.second.url.text())) == origin;
           });
}

/// Keeps the secret of the environment, which goes with every command, from a host for which it may
/// not be: a configuration comes from others, and an address is soon mistyped.
void checkRecipient(const HalvardSling::Origin& origin) {
    const std::string meant = variable(addressVariable);
    if (meant.empty() ? origin.isLoopback() : originOf(typedAddress(meant)) == origin) return;
    throw CommandError(
        {ExitCode::usage,
         fmt::format("the secret in ${} is {}, and would go to {}", secretVariable,
                     meant.empty() ? "for this computer, as no address is beside it"
                                   : fmt::format("for the service in ${}", addressVariable),
                     origin.text()),
         fmt::format("name that service in ${}, or give its secret with --secret-file",
                     addressVariable)});
}

/// Keeps a secret from being read on the way, unless the configuration allows cleartext to there.
void checkWay(const Session& session, const HalvardSling::Origin& origin) {
    if (origin.scheme != "http" || origin.isLoopback()) return;
    if (!isConfigured(session, origin)) {
        throw CommandError(
            {ExitCode::usage, fmt::format("the secret would go to {} in cleartext", origin.text()),
             "start the service with --tls, or name a configuration with --config that leads there"
             " and has the host in its cleartextHosts"});
    }
    session.terminal.note("warning: the secret goes to " + origin.text() + " in cleartext");
}

struct AdminAdvice {
    int status;
    std::string_view problem;  ///< the end of its type; empty: any
    const char* text;
};

/// The first row that fits counts.
constexpr std::array adminAdvices{
    AdminAdvice{
        401, "",
        "give the service's secret: --secret-file FILE, or $KESTRIN_PROFILE_SERVICE_SECRET"},
    AdminAdvice{403, "",
                "ask from the service's own computer, by a loopback address: "
                "--url http://127.0.0.1:8480"},
    AdminAdvice{404, "unknown-path",
                "start the service with its admin interface: kestrin-profile-server --admin"},
    AdminAdvice{404, "unknown-namespace", "see them: kestrin-profile service namespaces list"},
    AdminAdvice{404, "", "check the name or the number"},
    AdminAdvice{405, "", "check --url: something else than a development service may be there"},
};

/// The failure, with what to do in the words of this command.
Failure adminFailure(const SlingError& error) {
    Failure failure = describe(std::make_exception_ptr(error));
    const auto* const problem = error.problem();
    const std::string_view type = problem == nullptr ? std::string_view() : problem->type;
    const auto* const found = std::ranges::find_if(adminAdvices, [&](const AdminAdvice& each) {
        return failure.status == each.status && type.ends_with(each.problem);
    });
    if (found != adminAdvices.end()) failure.advice = found->text;
    return failure;
}

}  // namespace

std::string percentEncoded(std::string_view text) {
    std::string result;
    for (const char c : text) {
        const bool isPlain = KestrinInternal::isLetter(c) || KestrinInternal::isDigit(c) ||
                             std::string_view("-._~").find(c) != std::string_view::npos;
        if (isPlain) {
            result += c;
        } else {
            result += '%';
            KestrinInternal::appendHex(result, c, KestrinInternal::upperHexDigits);
        }
    }
    return result;
}

AdminInterface::AdminInterface(Session& session, const AdminOptions& options)
    : session_(session),
      baseURL_(addressFor(session, options)),
      secret_(secretFor(session, options)) {
    if (!secret_.empty()) session.terminal.hide(secret_);
    const auto url = HalvardSling::URL::parse(baseURL_);
    if (const auto* const wrong = std::get_if<SlingError>(&url))
        throw CommandError({ExitCode::usage, wrong->what(), nameTheService});
    const auto& origin = std::get<HalvardSling::URL>(url).origin();
    if (!secret_.empty()) {
        if (options.secretFile.empty()) checkRecipient(origin);
        checkWay(session, origin);
    }
    session.connect();
}

HalvardSling::Response AdminInterface::send(const AdminRequest& request) const {
    TransportRequest sent;
    sent.method = request.method;
    sent.url = fmt::format("{}/admin/v1/{}", baseURL_, request.target);
    sent.pathTemplate = "/admin/v1/" + request.target.substr(0, request.target.find('?'));
    sent.headers.set("Accept", "application/json");
    if (!secret_.empty()) sent.headers.set("Authorization", "Bearer " + secret_);
    if (request.body) {
        sent.headers.set("Content-Type", "application/json");
        sent.body = std::make_shared<const std::string>(*request.body);
    }
    sent.policy.allowsCleartext = true;  // a development service; who gives a secret is warned
    sent.policy.totalTimeout = request.patience;
    constexpr std::size_t largestReply = std::size_t{256} << 20U;
    sent.policy.maxBodyBytes = largestReply;
    try {
        return session_.waitFor(HalvardSling::Sling(std::move(sent)).responses());
    } catch (const SlingError& error) {
        throw CommandError(adminFailure(error));
    }
}

}  // namespace KestrinProfileCLI
