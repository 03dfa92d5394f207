#include <atomic>
#include <exception>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <HalvardSling/http/URL.hpp>
#include <HalvardSling/rx/Sling.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinConfigManager/WebService.hpp>
#include <KestrinHousehold/session/internal/WarmUp.hpp>
#include <KestrinProfile/service/Error.hpp>

namespace KestrinHousehold::internal {

using HalvardSling::SlingError;
using HalvardSling::TransportRequest;
using HalvardSling::URL;
using KestrinConfigManager::ConfigurationManager;
using KestrinConfigManager::WebService;

namespace {

TransportRequest headRequest(const WebService& service, std::string url) {
    TransportRequest request;
    request.method = "HEAD";
    request.url = std::move(url);
    request.policy = service.policy;
    request.policy.maxRedirects = 0;
    request.pathTemplate = "/";
    return request;
}

/// One request for each host of the services that are switched on.
std::vector<TransportRequest> requests() {
    std::map<std::string, TransportRequest> byOrigin;
    const auto configuration = ConfigurationManager::sharedInstance().currentConfiguration();
    if (!configuration || !configuration->services) return {};
    for (const auto& [operation, service] : *configuration->services) {
        if (!service.enabled) continue;
        std::string root = service.url.text().substr(0, service.url.pathBegin()) + "/";
        const auto url = URL::parse(root);
        if (const auto* const parsed = std::get_if<URL>(&url))
            byOrigin.try_emplace(parsed->origin().text(), headRequest(service, std::move(root)));
    }
    std::vector<TransportRequest> all;
    all.reserve(byOrigin.size());
    for (auto& [origin, request] : byOrigin)
        all.push_back(std::move(request));
    return all;
}

bool hasAnswered(const std::exception_ptr& error) {
    return KestrinProfile::visitError(
        error, [](const SlingError& reply) { return reply.statusCode().has_value(); },
        [](const std::exception&) { return false; });
}

/// Counts the hosts, and delivers the number after the last one.
struct Count {
    explicit Count(std::size_t hosts, rxcpp::subscriber<std::size_t> to)
        : left(hosts), subscriber(std::move(to)) {}

    void end(bool answered) {
        if (answered) ++reached;
        if (--left > 0) return;
        subscriber.on_next(reached);
        subscriber.on_completed();
    }

    std::atomic<std::size_t> left;
    std::atomic<std::size_t> reached = 0;
    rxcpp::subscriber<std::size_t> subscriber;
};

void connectToAll(const rxcpp::subscriber<std::size_t>& subscriber) {
    const auto all = requests();
    // One more than there are hosts: it ends when all have been asked.
    const auto count = std::make_shared<Count>(all.size() + 1, subscriber);
    for (const auto& request : all) {
        const auto transfer = HalvardSling::Sling(request).responses().subscribe(
            [count](const HalvardSling::Response&) { count->end(true); },
            [count](const std::exception_ptr& error) { count->end(hasAnswered(error)); }, [] {});
        subscriber.add(transfer);
    }
    count->end(false);
}

}  // namespace

HalvardSling::Observable<std::size_t> warmUp() {
    return rxcpp::observable<>::create<std::size_t>(&connectToAll);
}

}  // namespace KestrinHousehold::internal
