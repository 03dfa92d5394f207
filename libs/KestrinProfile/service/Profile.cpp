#include <exception>
#include <new>
#include <utility>

#include <rxcpp/operators/rx-map.hpp>
#include <rxcpp/operators/rx-tap.hpp>

#include <HalvardSling/http/SlingError.hpp>
#include <HalvardSling/json/JSONDictionary.hpp>
#include <HalvardSling/rx/JSON.hpp>
#include <KestrinConfigManager/Configuration.hpp>
#include <KestrinConfigManager/ConfigurationManagerError.hpp>
#include <KestrinConfigManager/SlingBuild.hpp>
#include <KestrinConfigManager/WebService.hpp>
#include <KestrinProfile/model/ProfileError.hpp>
#include <KestrinProfile/params/AnonymousBindParams.hpp>
#include <KestrinProfile/service/Error.hpp>
#include <KestrinProfile/service/Profile.hpp>
#include <KestrinProfile/service/internal/Decoding.hpp>

namespace KestrinProfile {

using HalvardSling::JSONDictionary;
using HalvardSling::Observable;
using HalvardSling::Response;
using HalvardSling::SlingError;
using internal::decoded;
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

/// What `make` makes of an operation; without the memory for it, an error that says so.
/// @throws std::bad_alloc if there is no memory for that either
template <class T, class Make>
Observable<T> made(const Make& make) {
    try {
        return make();
    } catch (const std::bad_alloc& noMemory) {
        return failure<T>(noMemory);
    }
}

void reactToForbiddenReply(const std::exception_ptr& error) {
    const bool isForbidden = visitError(
        error, [](const SlingError& reply) { return reply.statusCode() == forbidden; },
        [](const std::exception&) { return false; });
    if (isForbidden) ConfigurationManager::sharedInstance().reactToForbiddenReply();
}

/// The same sequence with the forbidden-reply hook: the error passes through unchanged.
template <class T>
Observable<T> reactingToForbiddenReply(const Observable<T>& source) {
    return source | rxcpp::operators::tap([](const T&) {}, &reactToForbiddenReply);
}

std::vector<User> decodedUsers(const JSONDictionary& reply) {
    const auto entries = reply.dictionaries(Profile::Keys::getProfiles);
    if (!entries) throw ProfileError(ProfileError::userSerializationError);
    std::vector<User> users;
    users.reserve(entries->size());
    for (const auto& entry : *entries)
        if (auto user = User::fromJSON(entry)) users.push_back(std::move(*user));
    return users;
}

AnonymousBind storedBind(const JSONDictionary& reply) {
    constexpr auto failure = ProfileError::Case::anonymousBindSerializationError;
    auto bind = decoded<AnonymousBind, failure>(reply);
    if (!bind.isValid()) throw ProfileError(failure);
    auto& manager = ConfigurationManager::sharedInstance();
    manager.setBindProfileID(bind.profileID);
    manager.setBindToken(bind.token);
    return bind;
}

}  // namespace

Observable<AnonymousBind> Profile::requestAnonymousBind(
    std::optional<std::string> profileID) const {
    return made<AnonymousBind>([&]() -> Observable<AnonymousBind> {
        auto held = ConfigurationManager::profileBind(true);
        if (held && held->isValid() && profileID && held->profileID == *profileID)
            return rxcpp::observable<>::just(std::move(*held));
        if (!profileID) return failure<AnonymousBind>(ProfileError::profileIDValdationFailure);

        constexpr auto operation = ProfileOperation::anonymousBind;
        const AnonymousBindParams params(std::move(*profileID), operation);
        const auto replies = HalvardSling::json(createProfileRequest(params, operation, false));
        return reactingToForbiddenReply<AnonymousBind>(replies |
                                                       rxcpp::operators::map(&storedBind));
    });
}

Observable<Response> Profile::validateProfileName(ProfileParams params) const {
    return send(std::move(params), ProfileOperation::validate);
}

Observable<User> Profile::createProfile(UserParams params) const {
    return made<User>([&] {
        return HalvardSling::json(send(std::move(params), ProfileOperation::createProfile)) |
               rxcpp::operators::map(&decoded<User, ProfileError::Case::userSerializationError>);
    });
}

Observable<std::vector<User>> Profile::getProfiles(std::optional<AnonymousBind> bind) const {
    return made<std::vector<User>>([&] {
        if (!bind) bind = ConfigurationManager::sharedInstance().bind(true);
        return HalvardSling::json(
                   send(UserParams(std::move(bind), std::nullopt), ProfileOperation::getProfiles)) |
               rxcpp::operators::map(&decodedUsers);
    });
}

Observable<Response> Profile::editProfile(UserParams params) const {
    return changeProfile(std::move(params), ProfileOperation::editProfile);
}

Observable<Response> Profile::deleteProfile(UserParams params) const {
    return changeProfile(std::move(params), ProfileOperation::deleteProfile);
}

Observable<UserProfile> Profile::requestHistory(ProfileParams params) const {
    return readList(std::move(params), ProfileOperation::getHistory);
}

Observable<UserProfile> Profile::requestVideoHistory(ProfileParams params) const {
    return readList(std::move(params), ProfileOperation::getVideoProgress);
}

Observable<Response> Profile::addHistoryVideo(ProfileParams params) const {
    return addItem(std::move(params), Types::video, ProfileOperation::addVideoToHistory);
}

Observable<Response> Profile::deleteVideoHistory(ProfileParams params) const {
    return send(std::move(params), ProfileOperation::removeVideoFromHistory);
}

Observable<Response> Profile::clearHistory(ProfileParams params) const {
    return send(std::move(params), ProfileOperation::clearHistory);
}

Observable<UserProfile> Profile::requestFavorites(ProfileParams params) const {
    return readList(std::move(params), ProfileOperation::getFavorites);
}

Observable<Response> Profile::addFavoriteShow(ProfileParams params) const {
    return addItem(std::move(params), Types::show, ProfileOperation::addFavoriteShow);
}

Observable<Response> Profile::addFavoriteShows(ProfileParams params) const {
    return send(std::move(params), ProfileOperation::addFavoriteShows);
}

Observable<Response> Profile::deleteFavoriteShow(ProfileParams params) const {
    return send(std::move(params), ProfileOperation::removeFavoriteShow);
}

Observable<Response> Profile::clearFavorites(ProfileParams params) const {
    return send(std::move(params), ProfileOperation::clearFavorites);
}

Observable<UserProfile> Profile::requestWatchList(ProfileParams params) const {
    return readList(std::move(params), ProfileOperation::getWatchList);
}

Observable<Response> Profile::addWatchListVideo(ProfileParams params) const {
    return addItem(std::move(params), Types::video, ProfileOperation::addVideoToWatchList);
}

Observable<Response> Profile::deleteWatchListVideo(ProfileParams params) const {
    return send(std::move(params), ProfileOperation::removeFromWatchList);
}

Observable<Response> Profile::clearWatchList(ProfileParams params) const {
    return send(std::move(params), ProfileOperation::clearWatchList);
}

Observable<Response> Profile::addSearchHistory(SearchParams params) const {
    return send(std::move(params), ProfileOperation::addSearchHistory);
}

Observable<Response> Profile::deleteSearchHistory(std::string brandID) const {
    return made<Response>([&] {
        return send(
            SearchParams({}, Types::none, ConfigurationManager::sharedInstance().bind(false),
                         std::move(brandID)),
            ProfileOperation::deleteSearchHistory);
    });
}

Observable<UserProfile> Profile::readList(ProfileParams params, ProfileOperation operation) const {
    return made<UserProfile>([&] {
        return HalvardSling::json(send(std::move(params), operation)) |
               rxcpp::operators::map(
                   &decoded<UserProfile, ProfileError::Case::userProfileSerializationError>);
    });
}

Observable<Response> Profile::addItem(ProfileParams params, Types type,
                                      ProfileOperation operation) const {
    params.type_ = type;
    return send(std::move(params), operation);
}

Observable<Response> Profile::send(ProfileParams params, ProfileOperation operation) const {
    params.operation_ = operation;
    return createProfileRequest(params, operation, true);
}

Observable<Response> Profile::send(SearchParams params, ProfileOperation operation) const {
    params.operation_ = operation;
    return createProfileRequest(params, operation, true);
}

Observable<Response> Profile::send(UserParams params, ProfileOperation operation) const {
    params.operation = operation;
    return createProfileRequest(params, operation, true);
}

Observable<Response> Profile::changeProfile(UserParams params, ProfileOperation operation) const {
    return made<Response>([&]() -> Observable<Response> {
        const auto& profileID = params.user ? params.user->profileID : std::nullopt;
        if (!profileID || profileID->empty())
            return failure<Response>(ProfileError::userInvalidForOperation);
        if (*profileID == ConfigurationManager::parentProfileID())
            return failure<Response>(ProfileError::parentInvalidForOperation);
        return send(std::move(params), operation);
    });
}

Observable<Response> Profile::createProfileRequest(const APIParams& params,
                                                   std::optional<ProfileOperation> operation,
                                                   bool /*requireBind*/) const {
    return made<Response>([&]() -> Observable<Response> {
        if (!operation) return failure<Response>(ProfileError::parameterOperationMismatch);

        const auto name = rawValue(*operation);
        const auto configuration = ConfigurationManager::sharedInstance().currentConfiguration();
        const WebService* const service = configuration && configuration->services
                                              ? configuration->services->find(name)
                                              : nullptr;
        if (service == nullptr)
            return failure<Response>(ConfigurationManagerError(
                ConfigurationManagerError::Case::serviceNotConfigured, name,
                configuration ? "the configuration has no such service" : "nothing is configured"));

        if (const auto answer = service->configurationGuard(params)) return *answer;
        return reactingToForbiddenReply(KestrinConfigManager::build(params, *service).responses());
    });
}

}  // namespace KestrinProfile
