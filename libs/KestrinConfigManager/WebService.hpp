#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <HalvardSling/http/Headers.hpp>
#include <HalvardSling/http/RequestPolicy.hpp>
#include <HalvardSling/http/Response.hpp>
#include <HalvardSling/rx/Observable.hpp>
#include <KestrinConfigManager/APIParams.hpp>
#include <KestrinConfigManager/Export.hpp>
#include <KestrinConfigManager/URLTemplate.hpp>

namespace KestrinConfigManager {

/// What the body of a service's requests is made of. A record that has nothing of the kind is sent
/// without body.
enum class BodyForm {
    automatic,  ///< what the record has: as `json` if it has a dictionary, otherwise as `form`
    none,       ///< no body, whatever the record has
    json,       ///< `APIParams::dictionaryRepresentation` as JSON
    form,       ///< `APIParams::urlEncodedString`
};

/// The name that a body form has in a configuration file, e.g. "automatic".
[[nodiscard]] KESTRIN_CONFIG_MANAGER_EXPORT std::string_view name(BodyForm form) noexcept;

/// What a policy says that a configuration file can say, under the keys that it has there and in
/// the units that these name.
[[nodiscard]] KESTRIN_CONFIG_MANAGER_EXPORT std::vector<std::pair<std::string_view, std::int64_t>>
configuredValues(const HalvardSling::RequestPolicy& policy);

/// One operation of the web service: where its requests go and under which rules.
struct KESTRIN_CONFIG_MANAGER_EXPORT WebService {
    /// Decides instead of the standard rules; see `configurationGuard`. The parameters are the
    /// operation's own and end when the guard returns: an observable that needs any of them later
    /// has to hold copies.
    using Guard = std::function<std::optional<HalvardSling::Observable<HalvardSling::Response>>(
        const WebService& service, const APIParams& params)>;

    std::string operation;                ///< e.g. "personalization-history-get"
    std::string method = "GET";           ///< of its requests
    URLTemplate url;                      ///< where they go
    BodyForm body = BodyForm::automatic;  ///< what their body is made of
    HalvardSling::Headers headers;        ///< sent with every request of this service
    TextMap query;  ///< appended to every URL of this service, not yet encoded

    HalvardSling::RequestPolicy policy;  ///< their limits
    /// Whether values that hold `?`, `#` or `/` are refused.
    bool strictIdentifiers = false;
    bool enabled = true;  ///< false: every request is refused
    Guard guard;          ///< empty: the standard rules

    /// Asked before every request. Absent: the request may go. Otherwise the observable is the
    /// answer, and no request is made. The standard rules refuse, in this order, with a
    /// `ConfigurationManagerError`: a service that is switched off, a record that says it is
    /// incomplete, a placeholder without a value, an identifier that the strict mode forbids. What
    /// a `guard` of the application throws is an answer too: an observable that fails with it.
    /// Runs on the thread that calls; touches no network.
    [[nodiscard]] std::optional<HalvardSling::Observable<HalvardSling::Response>>
    configurationGuard(const APIParams& params) const;
};

/// The web services of a configuration, by operation name. Names are compared exactly.
class KESTRIN_CONFIG_MANAGER_EXPORT ServiceTable {
  public:
    /// No services.
    ServiceTable() = default;

    /// Adds a service under its `operation`; replaces one of the same name.
    void add(WebService service);

    /// The service of an operation; null if there is none.
    [[nodiscard]] const WebService* find(std::string_view operation) const;

    /// The first service, as a pair of its operation's name and itself; by their names.
    [[nodiscard]] auto begin() const noexcept { return services_.begin(); }
    /// Behind the last one.
    [[nodiscard]] auto end() const noexcept { return services_.end(); }
    /// How many there are.
    [[nodiscard]] std::size_t size() const noexcept { return services_.size(); }

  private:
    std::map<std::string, WebService, std::less<>> services_;
};

}  // namespace KestrinConfigManager
