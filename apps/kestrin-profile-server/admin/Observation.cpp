#include <utility>

#include <boost/json/serialize.hpp>

#include <kestrin-profile-server/admin/Observation.hpp>
#include <kestrin-profile-server/http/RequestFacts.hpp>
#include <kestrin-profile-server/http/Routes.hpp>

namespace KestrinProfileServer {
namespace {

constexpr unsigned firstFailure = 400;

/// Whether the households are other than before; what was done without a reply counts, too.
bool hasChangedSomething(const Exchange& exchange) {
    const Route* const route = requestFacts(exchange.method, exchange.target).route;
    return route != nullptr && route->effect == Effect::write &&
           exchange.status.value_or(0) < firstFailure;
}

}  // namespace

std::vector<Finding> Observation::findings(const Exchange& exchange, std::string_view requestBody) {
    return strict_ ? strict_->findings(exchange, requestBody) : std::vector<Finding>();
}

void Observation::record(Exchange exchange, std::string_view requestBody,
                         std::string_view replyBody) {
    if (!isRecording_) return;
    const JournalEntry entry = journal_.record(std::move(exchange), requestBody, replyBody);
    if (!events_.hasListeners()) return;
    events_.publish("request", boost::json::serialize(summaryJSON(entry)), entry.id);
    if (hasChangedSomething(*entry.exchange)) events_.publish("state", "{}");
}

void Observation::reset() {
    journal_.clear();
    faults_.clear();
    if (strict_) strict_->clear();
    events_.publish("reset", "{}");
}

}  // namespace KestrinProfileServer
