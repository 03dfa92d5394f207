#include <algorithm>
#include <cctype>
#include <fcntl.h>
#include <sys/stat.h>

#include <internal/FileDescriptor.hpp>
#include <internal/Quoting.hpp>
#include <kestrin-profile-server/ClientConfiguration.hpp>
#include <kestrin-profile-server/Introduction.hpp>
#include <kestrin-profile-server/QRCode.hpp>
#include <kestrin-profile-server/admin/AdminRoutes.hpp>
#include <kestrin-profile-server/domain/Addresses.hpp>
#include <kestrin-profile-server/tls/DevelopmentCertificate.hpp>

namespace KestrinProfileServer {
namespace {

namespace fs = std::filesystem;

/// Whether a client's configuration may be written there: nothing is there, or what we have
/// written.
bool isFree(const fs::path& file) {
    constexpr std::size_t largest = std::size_t{1024} * 1024;
    std::error_code error;
    const auto status = fs::symlink_status(file, error);
    if (status.type() == fs::file_type::not_found) return true;
    if (status.type() != fs::file_type::regular) return false;
    const KestrinInternal::FileDescriptor opened(
        ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    const auto text = opened.isOpen() ? opened.readAll(largest) : std::nullopt;
    return text && isClientConfiguration(*text);
}

bool hasInspector(const Options& options) {
    return options.service.admin.isOn &&
           std::ranges::find(adminRoutes(), "/admin/", &AdminRoute::path) != adminRoutes().end();
}

/// Whether a text means itself in a shell and in a URL.
bool isPlain(std::string_view text) {
    return std::ranges::all_of(text, [](char each) {
        return std::isalnum(static_cast<unsigned char>(each)) != 0 ||
               std::string_view("._-/").find(each) != std::string_view::npos;
    });
}

/// How a shell asks for the parent's history, with a token that it asks for first.
std::string curlLine(const Options& options, Service& service) {
    const std::string url = service.baseURL();
    const std::string id = service.household().parentProfileID;
    const std::string curl =
        options.tls ? "curl --cacert " + authorityFileIn(options.tls->folder).string() : "curl";
    return "token=$(" + curl + " -s " + url +
           "/admin/v1/tokens -H 'Content-Type: application/json' -d '{\"profileId\":\"" + id +
           "\"}' | cut -d'\"' -f4); " + curl +
           " -H \"Authorization: JWT $token\" -H 'PXRO-PROFILE-ID: " + id + "' '" + url +
           "/v1/history?brand=" + options.service.brand + "&profile=" + id + "&v=1'";
}

std::string clientLine(const Options& options, const fs::path& configuration) {
    const bool isFound = configuration == options.configurationPlaces.front();
    return std::string("kestrin-profile ") +
           (isFound ? "" : "--config " + configuration.string() + " ") + "history list";
}

}  // namespace

std::optional<fs::path> writtenConfiguration(const Options& options, Service& service) {
    auto place = options.configuration;
    if (!place) {
        const auto free = std::ranges::find_if(options.configurationPlaces, isFree);
        if (free == options.configurationPlaces.end()) return std::nullopt;
        place = *free;
        std::error_code ignored;
        fs::create_directories(place->parent_path(), ignored);
    }
    writePrivateFile(*place, clientConfiguration(service.publicURL(), options.service.brand,
                                                 service.household()));
    return place;
}

std::string warning(const Options& options) {
    if (isLoopbackHost(options.service.http.host)) return {};
    if (options.tls) return "warning: other computers can reach this service.\n";
    return "warning: other computers can reach this service, and everything goes in clear text."
           " Clients accept clear text from this computer, and from the host that --public-url"
           " names.\n";
}

std::string invitation(const Options& options, const std::string& publicURL,
                       const Household& household, bool isForPeople) {
    const bool isReached = options.service.admin.isOn && !isLoopbackHost(options.service.http.host);
    if (!options.isQRCodeWanted && !(isReached && isForPeople)) return {};
    const std::string host = hostIn(std::string_view(publicURL).substr(publicURL.find("//") + 2));
    if (!options.isQRCodeWanted && isLoopbackName(host))
        return "With --public-url, a QR code shows a phone where its configuration is.\n";
    const std::string url = invitationURL(publicURL, household);
    return "A phone gets its configuration, with the household's secret, from\n" + url + "\n" +
           qrCode(url);
}

std::string introduction(const Options& options, Service& service,
                         const std::optional<fs::path>& configuration) {
    std::string text;
    if (hasInspector(options)) text += "inspector      " + service.baseURL() + "/admin/\n";
    if (!options.service.admin.isOn)
        text += "no admin       beyond this computer it needs --admin-secret-file\n";
    text += configuration ? "configuration  " + configuration->string() + "\n"
                          : "configuration  none written: there is no place for it, or one of"
                            " somebody else's; name a file with --write-config\n";
    text += options.service.database.empty()
                ? "data           kept by nobody; --data DIR keeps it\n"
                : "data           " + options.service.database.string() + "\n";
    if (options.tls)
        text += "authority      " + authorityFileIn(options.tls->folder).string() +
                "; clients have to trust it\n";
    if (!options.tls && configuration && !options.configuration && isPlain(configuration->string()))
        text += "try            " + clientLine(options, *configuration) + "\n";
    if (options.service.admin.isOn && !options.service.admin.secret &&
        (!options.tls || isPlain(options.tls->folder.string())) && isPlain(options.service.brand) &&
        isPlain(service.household().parentProfileID))
        text += "or             " + curlLine(options, service) + "\n";
    return text;
}

}  // namespace KestrinProfileServer
