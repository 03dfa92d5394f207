#include <boost/json.hpp>

#include <kestrin-profile-server/domain/Text.hpp>
#include <kestrin-profile-server/http/Request.hpp>
#include <kestrin-profile-server/http/RequestFacts.hpp>
#include <kestrin-profile-server/http/RequestLine.hpp>

namespace KestrinProfileServer {
namespace {

namespace json = boost::json;

std::string tenths(std::chrono::microseconds time) {
    const auto count = time.count() / 100;
    return std::to_string(count / 10) + "." + std::to_string(count % 10);
}

std::string lineForPeople(const Exchange& exchange, const RequestFacts& facts,
                          const std::string& space) {
    std::string line = timestampText(exchange.time) + " " + excerptOf(exchange.method) + " " +
                       excerptOf(pathOf(exchange.target)) + " " +
                       (exchange.status ? std::to_string(*exchange.status) : "no-reply") + " " +
                       tenths(exchange.duration) + " ms";
    const auto add = [&line](std::string_view name, std::string_view value) {
        if (!value.empty()) line.append(" ").append(name).append("=").append(excerptOf(value));
    };
    add("namespace", space);
    add("operation", facts.operation());
    add("profile", facts.profile.value_or(""));
    add("problem", exchange.problem);
    add("fault", exchange.fault ? std::to_string(*exchange.fault) : "");
    add("id", exchange.requestID);
    for (const Finding& finding : exchange.findings)
        line.append(" finding=")
            .append(finding.code)
            .append(" (")
            .append(finding.detail)
            .append(")");
    return line + "\n";
}

std::string lineForPrograms(const Exchange& exchange, const RequestFacts& facts,
                            const std::string& space) {
    const auto orNull = [](std::string_view text) {
        return text.empty() ? json::value(nullptr) : json::value(excerptOf(text, longestText));
    };
    json::array findings;
    for (const Finding& finding : exchange.findings)
        findings.push_back({{"code", finding.code}, {"detail", finding.detail}});
    const json::object line{
        {"time", timestampText(exchange.time)},
        {"requestId", orNull(exchange.requestID)},
        {"namespace", orNull(space)},
        {"method", orNull(exchange.method)},
        {"path", orNull(pathOf(exchange.target))},
        {"operation", orNull(facts.operation())},
        {"profile", orNull(facts.profile.value_or(""))},
        {"household", orNull(exchange.household)},
        {"status", exchange.status ? json::value(*exchange.status) : json::value(nullptr)},
        {"problem", orNull(exchange.problem)},
        {"milliseconds", static_cast<double>(exchange.duration.count()) / 1000},
        {"fault", exchange.fault ? json::value(*exchange.fault) : json::value(nullptr)},
        {"findings", std::move(findings)}};
    return json::serialize(line) + "\n";
}

}  // namespace

std::string requestLine(const Exchange& exchange, const std::string& space, LogFormat format) {
    const RequestFacts facts = requestFacts(exchange.method, exchange.target);
    return format == LogFormat::text ? lineForPeople(exchange, facts, space)
                                     : lineForPrograms(exchange, facts, space);
}

}  // namespace KestrinProfileServer
