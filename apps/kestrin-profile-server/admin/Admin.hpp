#pragma once

#include <cstddef>
#include <functional>
#include <memory>

#include <kestrin-profile-server/Namespaces.hpp>
#include <kestrin-profile-server/admin/AdminGuard.hpp>
#include <kestrin-profile-server/admin/AdminRoutes.hpp>
#include <kestrin-profile-server/http/Responder.hpp>

namespace KestrinProfileServer {

/// The largest body that the admin interface takes: seeds are larger than what clients send.
constexpr std::size_t adminBodyLimit = std::size_t{32} * 1024 * 1024;

/// Answers the requests of the admin interface. Used by all threads at once.
class Admin {
  public:
    Admin(AdminGuard guard, ServiceFacts facts, Namespaces& namespaces)
        : guard_(std::move(guard)), facts_(std::move(facts)), namespaces_(namespaces) {}

    /// Calls `done` once, at once or later, on whichever thread.
    /// @param request  its target is that within the namespace
    /// @param space    lives until the reply is written
    void answer(const Request& request, Namespace& space, std::size_t thread,
                Responder::Done done) const;

  private:
    [[nodiscard]] AdminCall callFor(const Request& request, bool isRoot) const;
    [[nodiscard]] Reply optionsOf(const Request& request, bool isRoot) const;
    void run(AdminCall call, const Request& request, Namespace& space, std::size_t thread,
             Responder::Done done) const;
    void runLater(const AdminCall& call, const Request& request, Namespace& space,
                  const Responder::Done& done) const;
    void runWrite(AdminCall call, Namespace& space, Responder::Done done) const;
    [[nodiscard]] Reply handled(const AdminCall& call, Namespace& space, Connection* connection,
                                std::function<void()>* afterCommit = nullptr) const;

    AdminGuard guard_;
    ServiceFacts facts_;
    Namespaces& namespaces_;
};

}  // namespace KestrinProfileServer
