#pragma once

#include <stdexcept>
#include <string>

#include <boost/json.hpp>
#include <gtest/gtest.h>

#include "Support.hpp"

namespace KestrinProfileServer::Testing {

/// Calls the admin interface.
class AdminCaller {
  public:
    explicit AdminCaller(std::string baseURL) : http_(std::move(baseURL)) {}

    HttpReply send(const std::string& method, const std::string& target,
                   const std::string& body = "") {
        return http_.send(
            method, target,
            body.empty() ? HeaderLines{} : HeaderLines{{"Content-Type", "application/json"}}, body);
    }
    boost::json::value get(const std::string& target) { return succeeded(send("GET", target)); }
    boost::json::value post(const std::string& target, const std::string& body) {
        return succeeded(send("POST", target, body));
    }

  private:
    static boost::json::value succeeded(const HttpReply& reply) {
        if (reply.status >= 300) throw std::runtime_error(reply.body);
        return reply.json();
    }

    HttpClient http_;
};

/// A service with an admin interface, and its household's parent.
class AdminClientTest : public testing::Test {
  protected:
    HttpReply send(const std::string& method, const std::string& target,
                   const std::string& body = "") {
        return admin.send(method, target, body);
    }
    boost::json::value get(const std::string& target) { return admin.get(target); }
    boost::json::value post(const std::string& target, const std::string& body) {
        return admin.post(target, body);
    }
    boost::json::value setFault(const std::string& fault) {
        return post("/admin/v1/faults", fault);
    }

    TestService service{[](ServiceSettings& settings) { settings.admin.isOn = true; }};
    AdminCaller admin{service.baseURL()};
    HouseholdClient client = service.client();
    Caller parent = client.bind("parent");
};

}  // namespace KestrinProfileServer::Testing
