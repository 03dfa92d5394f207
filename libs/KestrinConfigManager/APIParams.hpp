#pragma once

#include <optional>
#include <string>

#include <HalvardSling/json/JSONDictionary.hpp>
#include <KestrinConfigManager/Export.hpp>
#include <KestrinConfigManager/TextMap.hpp>

namespace KestrinConfigManager {

/// What a request-parameter record answers, so that a request can be built from it and from the
/// service that it goes to. Every member has a default, for the record that has nothing to say.
///
/// Records are values; this interface exists because the pipeline takes any of them. The members
/// are asked on the thread that builds the request, and none of them fails.
class KESTRIN_CONFIG_MANAGER_EXPORT APIParams {
  public:
    /// Records are destroyed as what they are.
    virtual ~APIParams();

    /// Request headers by name. They win over the service's own of the same name. Absent, the
    /// default, means none.
    [[nodiscard]] virtual std::optional<TextMap> headers() const;

    /// The body of a service whose body form is JSON. Absent, the default, means no body.
    [[nodiscard]] virtual std::optional<HalvardSling::JSONDictionary> dictionaryRepresentation()
        const;

    /// The body of a service whose body form is a form (application/x-www-form-urlencoded),
    /// already encoded. Absent, the default, means no body.
    [[nodiscard]] virtual std::optional<std::string> urlEncodedString() const;

    /// Whether the record is complete enough to be sent. Default: true.
    [[nodiscard]] virtual bool hasValidParams() const;

    /// Values for the placeholders of the service's URL template, by token ("%UXID%"). They are
    /// inserted as they are. Absent, the default, means none.
    [[nodiscard]] virtual std::optional<TextMap> URLMapping() const;

    /// Query parameters to append to the URL, not yet encoded. They win over the service's own of
    /// the same name. Absent, the default, means none.
    [[nodiscard]] virtual std::optional<TextMap> queryParameters() const;

    /// Whether the request goes out without a "User-Agent" header. Default: false.
    [[nodiscard]] virtual bool removeUserAgent() const;

  protected:
    APIParams() = default;
    APIParams(const APIParams&) = default;
    APIParams(APIParams&&) = default;
    APIParams& operator=(const APIParams&) = default;
    APIParams& operator=(APIParams&&) = default;
};

}  // namespace KestrinConfigManager
