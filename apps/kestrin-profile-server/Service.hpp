#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <kestrin-profile-server/domain/Households.hpp>
#include <kestrin-profile-server/http/HttpServer.hpp>

namespace KestrinProfileServer {

struct ServiceSettings {
    std::filesystem::path database;
    HttpSettings http;
    Limits limits;
    std::chrono::seconds tokenLifetime{3600};
    std::string household = "household";
    std::optional<std::string> parentProfileID;
    std::vector<std::string> block;
    std::vector<std::string> unblock;
    Clock clock = systemTime;
};

/// The whole service; it answers requests as long as it lives.
class Service {
  public:
    /// Opens or creates the database and listens; throws StartError when it cannot.
    explicit Service(const ServiceSettings& settings);

    [[nodiscard]] const Household& household() const { return household_; }
    [[nodiscard]] std::string baseURL() const { return http_.baseURL(); }
    [[nodiscard]] bool isLoopback() const { return http_.isLoopback(); }

    /// Answers the requests that are running and stops. The destructor does so too.
    void stop() { http_.stop(); }

  private:
    Household household_;
    Tokens tokens_;
    WriteQueue writes_;
    Dispatcher dispatcher_;
    HttpServer http_;
};

/// Prepares the database and returns the household, created when it is missing.
[[nodiscard]] Household prepareHousehold(const ServiceSettings& settings);

}  // namespace KestrinProfileServer
