#pragma once

#include <optional>
#include <string>

#include <kestrin-profile-server/Front.hpp>
#include <kestrin-profile-server/Namespaces.hpp>
#include <kestrin-profile-server/http/HttpServer.hpp>

namespace KestrinProfileServer {

struct AdminSettings {
    bool isOn = false;
    /// What every admin request presents; without it the service is for this computer only.
    std::optional<std::string> secret;
};

/// Those of the namespace at the root, and of the whole.
struct ServiceSettings : NamespaceSettings {
    HttpSettings http;
    AdminSettings admin;
    std::string brand = "kestrin";
    /// Where clients reach it, without a slash at the end, if that is another address than the one
    /// that it listens on.
    std::optional<std::string> publicURL;
    /// The certificate in PEM that clients have to trust; empty if there is none.
    std::string authority;
};

/// The whole service; it answers requests as long as it lives.
class Service {
  public:
    /// Opens or creates the database and listens; throws StartError when it cannot, and when other
    /// computers would reach an admin interface without a secret.
    explicit Service(const ServiceSettings& settings);
    ~Service() { stop(); }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    [[nodiscard]] const Household& household() { return namespaces_.root().household(); }
    /// Where clients on this computer reach it, like http://127.0.0.1:8080.
    [[nodiscard]] std::string baseURL() const { return http_.baseURL(); }
    /// Where clients reach it by their configuration.
    [[nodiscard]] const std::string& publicURL() const { return publicURL_; }

    /// Answers the requests that are running and stops. The destructor does so too.
    void stop() { http_.stop(); }

  private:
    Namespaces namespaces_;
    HttpServer http_;
    std::string publicURL_;
    Front front_;
};

}  // namespace KestrinProfileServer
