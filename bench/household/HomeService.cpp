#include "household/HomeService.hpp"

#include <memory>
#include <stdexcept>
#include <utility>
#include <variant>
#include <vector>

#include <HalvardSling/curl/CurlTransport.hpp>
#include <KestrinConfigManager/Configuration.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>

namespace Bench {

namespace {

using HalvardSling::CurlTransport;
using KestrinConfigManager::Configuration;
using KestrinConfigManager::ConfigurationManager;

/// setpriv: where this program is killed, the service ends with it.
std::vector<std::string> serviceWords(const TestSupport::TemporaryDirectory& directory) {
    return {SETPRIV,
            "--pdeathsig",
            "KILL",
            SERVER,
            "--database",
            directory / "database",
            "--port",
            "0",
            "--quiet",
            "--write-config",
            directory / "configuration"};
}

/// "http://127.0.0.1:port", of the line that the service prints.
std::string originIn(const TestSupport::Program& service) {
    const std::string line = service.firstLine();
    const std::size_t begin = line.find("http://");
    if (begin == std::string::npos)
        throw std::runtime_error("the service did not start: " + service.errors());
    return line.substr(begin, line.find_first_of(" /", begin + 7) - begin);
}

std::string proxyTo(const std::string& origin) {
    return "location /v1/ { proxy_pass " + origin +
           "; proxy_http_version 1.1; proxy_set_header Connection \"\"; }";
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
    return text;
}

}  // namespace

HomeService::HomeService(std::chrono::nanoseconds roundTrip)
    : service_(serviceWords(directory_)),
      serviceOrigin_(originIn(service_)),
      nginx_(proxyTo(serviceOrigin_)),
      way_(nginx_.securePort(), roundTrip),
      origin_("https://localhost:" + std::to_string(way_.port())),
      configuration_(replaced(TestSupport::contentOf(directory_ / "configuration"), serviceOrigin_,
                              origin_)) {}

void HomeService::startApplication() const {
    auto parsed = KestrinConfigManager::parseConfiguration(configuration_);
    auto* const configuration = std::get_if<Configuration>(&parsed);
    if (!configuration) throw std::runtime_error("the configuration is refused");
    ConfigurationManager::sharedInstance().configure(std::move(*configuration));
    CurlTransport::Options options;
    options.caBundleFile = certificateFile();
    HalvardSling::setDefaultTransport(std::make_shared<CurlTransport>(std::move(options)));
}

}  // namespace Bench
