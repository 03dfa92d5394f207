#include "household/HomeService.hpp"

#include <memory>
#include <utility>

#include <HalvardSling/curl/CurlTransport.hpp>

namespace Bench {

namespace {

using HalvardSling::CurlTransport;

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
    : nginx_(proxyTo(service_.origin())),
      way_(nginx_.securePort(), roundTrip),
      origin_("https://localhost:" + std::to_string(way_.port())),
      configuration_(replaced(service_.configuration(), service_.origin(), origin_)) {}

void HomeService::startApplication() const {
    configure(configuration_);
    CurlTransport::Options options;
    options.caBundleFile = certificateFile();
    HalvardSling::setDefaultTransport(std::make_shared<CurlTransport>(std::move(options)));
}

}  // namespace Bench
