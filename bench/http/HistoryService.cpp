#include "http/HistoryService.hpp"

#include <exception>
#include <memory>
#include <stdexcept>
#include <utility>
#include <variant>

#include <HalvardSling/transport/Transport.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinProfile/service/Profile.hpp>

namespace Bench {

namespace {

using HalvardSling::CurlTransport;
using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::Configuration;
using KestrinConfigManager::ConfigurationManager;
using KestrinProfile::Profile;
using KestrinProfile::ProfileParams;
using KestrinProfile::UserProfile;

Configuration configurationOf(const std::string& url) {
    auto parsed = KestrinConfigManager::parseConfiguration(
        R"({"version": 1, "parentProfileID": "parent", "brand": "kestrin", "development": true,)"
        R"( "services": {"personalization-history-get": {"url": ")" +
        url + R"(?brand=%BRANDNAME%&profile=%UXID%&v=1"}}})");
    if (auto* const configuration = std::get_if<Configuration>(&parsed))
        return std::move(*configuration);
    throw std::runtime_error("the configuration is refused");
}

}  // namespace

HistoryService::HistoryService(const std::string& url, Options options) {
    ConfigurationManager::sharedInstance().configure(configurationOf(url));
    options.userAgent = HistoryHeaders::userAgent;
    HalvardSling::setDefaultTransport(std::make_shared<CurlTransport>(std::move(options)));
    params_ = ProfileParams(AnonymousBind(HistoryHeaders::profileID, HistoryHeaders::token));
}

HistoryService::~HistoryService() {
    HalvardSling::setDefaultTransport(nullptr);
}

HalvardSling::Observable<UserProfile> HistoryService::history() const {
    return Profile().requestHistory(params_);
}

void HistoryService::request(InFlight::Done done) const {
    history().subscribe(
        [done](const UserProfile& list) { done(list.elements && !list.elements->empty()); },
        [done](const std::exception_ptr&) { done(false); }, [] {});
}

bool HistoryService::requestAndWait() {
    request([this](bool ok) { outcome_.put(ok); });
    return outcome_.take();
}

}  // namespace Bench
