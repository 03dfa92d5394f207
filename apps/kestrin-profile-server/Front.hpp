#pragma once

#include <optional>

#include <kestrin-profile-server/Namespaces.hpp>
#include <kestrin-profile-server/admin/Admin.hpp>
#include <kestrin-profile-server/http/Responder.hpp>

namespace KestrinProfileServer {

/// Leads each request where it belongs: to a namespace, and there to the protocol or to the admin
/// interface.
class Front final : public Responder {
  public:
    /// @param admin  absent if the service has no admin interface; then there are no named
    ///               namespaces either
    Front(Namespaces& namespaces, std::optional<Admin> admin)
        : namespaces_(namespaces), admin_(std::move(admin)) {}

    [[nodiscard]] std::size_t bodyLimit(std::string_view target) const override;
    [[nodiscard]] std::shared_ptr<const void> respond(Request request, std::size_t thread,
                                                      Done done) const override;

  private:
    Namespaces& namespaces_;
    std::optional<Admin> admin_;
};

}  // namespace KestrinProfileServer
