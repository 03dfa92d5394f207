#include "http/HistoryService.hpp"

#include <exception>
#include <stdexcept>
#include <utility>
#include <variant>

#include <HalvardSling/CurlTransport.hpp>
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

HistoryService::HistoryService(const std::string& url, const std::string& certificateFile) {
    ConfigurationManager::sharedInstance().configure(configurationOf(url));
    HalvardSling::setDefaultTransport(
        std::make_shared<CurlTransport>(CurlTransport::Options{.caBundleFile = certificateFile}));
    params_ = ProfileParams(AnonymousBind(HistoryHeaders::profileID, HistoryHeaders::token));
}

HistoryService::~HistoryService() {
    HalvardSling::setDefaultTransport(nullptr);
}

void HistoryService::request(InFlight::Done done) const {
    Profile().requestHistory(params_).subscribe(
        [done](const UserProfile& list) { done(list.elements && !list.elements->empty()); },
        [done](const std::exception_ptr&) { done(false); }, [] {});
}

bool HistoryService::requestAndWait() const {
    Handover<bool> outcome;
    request([&outcome](bool ok) { outcome.put(ok); });
    return outcome.take();
}

}  // namespace Bench
