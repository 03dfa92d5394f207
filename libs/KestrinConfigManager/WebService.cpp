#include <algorithm>
#include <exception>
#include <utility>

#include <KestrinConfigManager/ConfigurationManagerError.hpp>
#include <KestrinConfigManager/WebService.hpp>
#include <KestrinConfigManager/internal/BodyFormNames.hpp>
#include <KestrinConfigManager/internal/RequestPolicyOptions.hpp>

namespace KestrinConfigManager {

namespace {

using HalvardSling::Observable;
using HalvardSling::Response;
using Case = ConfigurationManagerError::Case;

constexpr std::string_view charactersRefusedInStrictMode = "?#/";

/// The first placeholder whose value holds a character that the strict mode refuses, and that
/// character: what the error says. The value itself may be private.
std::optional<std::string> refusedIdentifier(const URLTemplate& url, const TextMap& values) {
    for (const std::string_view token : url.placeholders()) {
        const auto value = values.find(token);
        if (value == values.end()) continue;
        const auto at = value->second.find_first_of(charactersRefusedInStrictMode);
        if (at != std::string::npos)
            return std::string(token) + " holds \"" + value->second[at] + "\"";
    }
    return std::nullopt;
}

std::optional<ConfigurationManagerError> refusal(const WebService& service,
                                                 const APIParams& params) {
    const auto error = [&](Case reason, std::string_view detail = {}) {
        return ConfigurationManagerError(reason, service.operation, detail);
    };
    if (!service.enabled) return error(Case::serviceDisabled);
    if (!params.hasValidParams()) return error(Case::invalidParameters);

    const TextMap values = params.URLMapping().value_or(TextMap());
    if (const auto token = service.url.unfilled(values))
        return error(Case::placeholderUnfilled, *token);
    if (!service.strictIdentifiers) return std::nullopt;
    if (const auto detail = refusedIdentifier(service.url, values))
        return error(Case::identifierRefused, *detail);
    return std::nullopt;
}

Observable<Response> failing(const std::exception_ptr& error) {
    return rxcpp::observable<>::error<Response>(error);
}

}  // namespace

std::string_view name(BodyForm form) noexcept {
    return internal::bodyFormNames.at(static_cast<std::size_t>(form));
}

std::vector<std::pair<std::string_view, std::int64_t>> configuredValues(
    const HalvardSling::RequestPolicy& policy) {
    std::vector<std::pair<std::string_view, std::int64_t>> values;
    values.reserve(internal::requestPolicyOptions.size());
    for (const auto& option : internal::requestPolicyOptions)
        values.emplace_back(option.key, option.get(policy));
    return values;
}

std::optional<Observable<Response>> WebService::configurationGuard(const APIParams& params) const {
    if (guard) {
        try {
            return guard(*this, params);
        } catch (...) {
            return failing(std::current_exception());
        }
    }
    if (auto error = refusal(*this, params))
        return failing(std::make_exception_ptr(*std::move(error)));
    return std::nullopt;
}

void ServiceTable::add(WebService service) {
    std::string operation = service.operation;
    services_.insert_or_assign(std::move(operation), std::move(service));
}

const WebService* ServiceTable::find(std::string_view operation) const {
    const auto found = services_.find(operation);
    return found == services_.end() ? nullptr : &found->second;
}

}  // namespace KestrinConfigManager
