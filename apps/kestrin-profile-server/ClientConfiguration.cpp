#include <algorithm>
#include <string_view>
#include <system_error>

#include <boost/json.hpp>

#include <kestrin-profile-server/ClientConfiguration.hpp>
#include <kestrin-profile-server/domain/Addresses.hpp>
#include <kestrin-profile-server/domain/Secrets.hpp>
#include <kestrin-profile-server/http/Authorisation.hpp>
#include <kestrin-profile-server/http/Routes.hpp>
#include <kestrin-profile-server/storage/PrivateFile.hpp>

namespace KestrinProfileServer {
namespace {

std::string memberJSON(std::string_view name, std::string_view value) {
    return boost::json::serialize(name) + ": " + boost::json::serialize(value);
}

std::string serviceJSON(const Route& route, const std::string& baseURL,
                        const Household& household) {
    const std::string headers =
        route.access == Access::household
            ? ",\n      \"headers\": {" + memberJSON(secretHeader, household.secret) + "}"
            : "";
    return boost::json::serialize(route.operation) + ": {\n      " +
           memberJSON("method", route.method) + ",\n      " +
           memberJSON("url", baseURL + urlTemplate(route)) + ",\n      " +
           memberJSON("body", route.body.rule == BodyRule::none ? "none" : "json") + headers +
           "\n    }";
}

/// 128 bits that follow from the secret, and from which nothing of it follows.
std::string invitationKey(const Household& household) {
    constexpr std::size_t size = 16;
    return hexadecimal(hmacSHA256(household.secret, "client configuration").substr(0, size));
}

const Route& routeWithSecret() {
    return *std::ranges::find(routes(), Access::household, &Route::access);
}

/// The text at a place in a document; empty if there is none.
std::string textAt(const boost::json::value& document, const std::string& pointer) {
    boost::json::error_code error;
    const auto* const found = document.find_pointer(pointer, error);
    return found != nullptr && found->is_string() ? std::string(found->get_string()) : "";
}

/// The member that lets clients send in cleartext to another computer; empty if they need none.
std::string cleartextHostsJSON(const std::string& baseURL) {
    constexpr std::string_view cleartext = "http://";
    if (!baseURL.starts_with(cleartext)) return {};
    const std::string host = hostIn(baseURL.substr(cleartext.size()));
    if (isLoopbackName(host)) return {};
    return "\"cleartextHosts\": [" + boost::json::serialize(host) + "],\n  ";
}

}  // namespace

std::string clientConfiguration(const std::string& baseURL, const std::string& brand,
                                const Household& household) {
    std::string services;
    for (const Route& route : routes())
        services +=
            (services.empty() ? "\n    " : ",\n    ") + serviceJSON(route, baseURL, household);
    return "{\n  \"version\": 1,\n  " + memberJSON("parentProfileID", household.parentProfileID) +
           ",\n  " + memberJSON("brand", brand) + ",\n  \"development\": true,\n  " +
           cleartextHostsJSON(baseURL) + "\"services\": {" + services + "\n  }\n}\n";
}

std::string invitationURL(const std::string& baseURL, const Household& household) {
    return baseURL + "/admin/v1/invitation?key=" + invitationKey(household);
}

bool isInvitationKey(std::string_view key, const Household& household) {
    return equalInConstantTime(key, invitationKey(household));
}

bool isClientConfiguration(const std::string& text) {
    boost::json::error_code error;
    const boost::json::value document = boost::json::parse(text, error);
    if (error) return false;
    const Route& bind = routeWithSecret();
    Household household;
    household.parentProfileID = textAt(document, "/parentProfileID");
    const std::string service = "/services/" + std::string(bind.operation);
    household.secret = textAt(document, service + "/headers/" + std::string(secretHeader));
    const std::string url = textAt(document, service + "/url");
    const std::string ending = urlTemplate(bind);
    return url.ends_with(ending) &&
           text == clientConfiguration(url.substr(0, url.size() - ending.size()),
                                       textAt(document, "/brand"), household);
}

void writePrivateFile(const std::filesystem::path& file, const std::string& content) {
    try {
        replacePrivateFile(file, content);
    } catch (const std::system_error& failure) {
        throw StartError("cannot write the configuration '" + file.string() +
                         "': " + failure.code().message() +
                         ". Name a file in a folder that exists with --write-config.");
    }
}

}  // namespace KestrinProfileServer
