#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include <HalvardSling/transport/Transport.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinConfigManager/WebService.hpp>
#include <KestrinProfile/service/Profile.hpp>

using namespace HalvardSling;

namespace {

/// Stands for what an application has of its own. It keeps its answer until `deliver`.
class OwnTransport final : public Transport {
  public:
    TransferID send(CheckedRequest request, TransportCompletion completion) override {
        url_ = request->url;
        completion_ = std::move(completion);
        return ++last_;
    }
    void cancel(TransferID) noexcept override { completion_ = nullptr; }

    void deliver(std::string body) {
        const auto completion = std::exchange(completion_, nullptr);
        completion(Response({.status = 200,
                             .headers = {},
                             .body = std::move(body),
                             .effectiveURL = url_,
                             .timings = {}}));
    }

  private:
    TransferID last_ = 0;
    std::string url_;
    TransportCompletion completion_;
};

void configure() {
    KestrinConfigManager::WebService service;
    service.operation = "personalization-bind-anonymous";
    service.url = KestrinConfigManager::URLTemplate("https://api.example.com/%UXID%");
    KestrinConfigManager::ServiceTable services;
    services.add(service);
    KestrinConfigManager::ConfigurationManager::sharedInstance().configure(
        {.parentProfileID = "parent",
         .brand = {},
         .services = std::make_shared<const KestrinConfigManager::ServiceTable>(services)});
}

/// Asks for a bind. What is emitted, or the error's text, arrives in the string.
void bind(std::string& outcome) {
    KestrinProfile::Profile().requestAnonymousBind().subscribe(
        [&](const auto& bind) { outcome = bind.token; },
        [&](const std::exception_ptr& error) {
            try {
                std::rethrow_exception(error);
            } catch (const std::exception& known) {
                outcome = known.what();
            }
        });
}

}  // namespace

int main() {
    configure();
    std::string refused;
    bind(refused);
    const bool told = refused.find("setDefaultTransport") != std::string::npos;

    const auto own = std::make_shared<OwnTransport>();
    setDefaultTransport(own);
    std::string token;
    bind(token);
    own->deliver(R"({"profileId":"parent","token":"t"})");
    return told && token == "t" ? 0 : 1;
}
