#pragma once

#include <optional>
#include <string>
#include <utility>

#include <kestrin-profile-server/Namespaces.hpp>
#include <kestrin-profile-server/admin/Admin.hpp>
#include <kestrin-profile-server/http/Responder.hpp>

namespace KestrinProfileServer {

/// Leads each request where it belongs: to a namespace, and there to the protocol or to the admin
/// interface.
class Front final : public Responder {
  public:
    /// @param publicURL  where clients reach the service
    /// @param authority  the certificate in PEM that clients have to trust; empty if there is none
    /// @param admin  absent if the service has no admin interface; then there are no named
    ///               namespaces either
    Front(Namespaces& namespaces, std::optional<Admin> admin, std::string publicURL,
          std::string authority, std::string version)
        : namespaces_(namespaces),
          admin_(std::move(admin)),
          publicURL_(std::move(publicURL)),
          authority_(std::move(authority)),
          version_(std::move(version)) {}

    [[nodiscard]] std::size_t bodyLimit(std::string_view target) const override;
    [[nodiscard]] std::shared_ptr<ExchangeObserver> observer(
        std::string_view target) const override;
    [[nodiscard]] std::shared_ptr<const void> respond(Request request, std::size_t thread,
                                                      Done done) const override;

  private:
    [[nodiscard]] std::shared_ptr<Namespace> spaceOf(std::string_view target) const;
    [[nodiscard]] bool isOfService(std::string_view path) const;
    [[nodiscard]] Reply answeredByService(const Request& request, const Namespace& space) const;
    [[nodiscard]] Reply described(const Namespace& space) const;

    Namespaces& namespaces_;
    std::optional<Admin> admin_;
    std::string publicURL_;
    std::string authority_;
    std::string version_;
};

}  // namespace KestrinProfileServer
