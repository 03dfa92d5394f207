#include <KestrinProfile/service/Profile.hpp>

#include <exception>
#include <utility>

#include <rxcpp/operators/rx-map.hpp>
#include <rxcpp/operators/rx-tap.hpp>

#include <HalvardSling/JSON.hpp>
#include <HalvardSling/JSONDictionary.hpp>
#include <HalvardSling/SlingError.hpp>
#include <KestrinConfigManager/Configuration.hpp>
#include <KestrinConfigManager/ConfigurationManagerError.hpp>
#include <KestrinConfigManager/SlingBuild.hpp>
#include <KestrinConfigManager/WebService.hpp>
#include <KestrinProfile/model/ProfileError.hpp>
#include <KestrinProfile/params/AnonymousBindParams.hpp>

namespace KestrinProfile {

using HalvardSling::JSONDictionary;
using HalvardSling::Observable;
using HalvardSling::Response;
using HalvardSling::SlingError;
using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::APIParams;
using KestrinConfigManager::ConfigurationManager;
using KestrinConfigManager::ConfigurationManagerError;
using KestrinConfigManager::WebService;

namespace {

constexpr int forbidden = 403;

template <class T, class Error>
Observable<T> failure(Error error) {
    return rxcpp::observable<>::error<T>(std::move(error));
}

void reactToForbiddenReply(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const SlingError& reply) {
        if (reply.statusCode() == forbidden)
            ConfigurationManager::sharedInstance().reactToForbiddenReply();
    } catch (...) {  // NOLINT(bugprone-empty-catch): only the service's own refusal is reacted to.
    }
}

/// The same sequence with the forbidden-reply hook: the error passes through unchanged.
template <class T>
Observable<T> reactingToForbiddenReply(const Observable<T>& source) {
    return source | rxcpp::operators::tap([](const T&) {}, &reactToForbiddenReply);
}

AnonymousBind storedBind(const JSONDictionary& reply) {
    auto bind = AnonymousBind::fromJSON(reply);
    if (!bind || !bind->isValid()) raise(ProfileError::anonymousBindSerializationError);
    auto& manager = ConfigurationManager::sharedInstance();
    manager.setBindProfileID(bind->profileID);
    manager.setBindToken(bind->token);
    return std::move(*bind);
}

}  // namespace

Observable<AnonymousBind> Profile::requestAnonymousBind(
    std::optional<std::string> profileID) const {
    auto held = ConfigurationManager::profileBind(true);
    if (held && held->isValid() && profileID && held->profileID == *profileID)
        return rxcpp::observable<>::just(std::move(*held));
    if (!profileID)
        return failure<AnonymousBind>(ProfileError(ProfileError::profileIDValdationFailure));

    constexpr auto operation = ProfileOperation::anonymousBind;
    const AnonymousBindParams params(std::move(*profileID), operation);
    const auto replies = HalvardSling::json(createProfileRequest(params, operation, false));
    return reactingToForbiddenReply<AnonymousBind>(replies |
                                                   rxcpp::operators::map(&storedBind));
}

Observable<Response> Profile::createProfileRequest(const APIParams& params,
                                                   std::optional<ProfileOperation> operation,
                                                   bool /*requireBind*/) const {
    if (!operation)
        return failure<Response>(ProfileError(ProfileError::parameterOperationMismatch));

    const auto name = rawValue(*operation);
    const auto configuration = ConfigurationManager::sharedInstance().currentConfiguration();
    const WebService* const service = configuration && configuration->services
                                          ? configuration->services->find(name)
                                          : nullptr;
    if (service == nullptr)
        return failure<Response>(ConfigurationManagerError(
            ConfigurationManagerError::serviceNotConfigured, name,
            configuration ? "the configuration has no such service" : "nothing is configured"));

    if (const auto answer = service->configurationGuard(params)) return *answer;
    return reactingToForbiddenReply(KestrinConfigManager::build(params, *service).responses());
}

}  // namespace KestrinProfile
