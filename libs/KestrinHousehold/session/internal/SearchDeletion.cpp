#include <utility>

#include <rxcpp/operators/rx-tap.hpp>

#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinConfigManager/ConfigurationManagerError.hpp>
#include <KestrinConfigManager/SlingBuild.hpp>
#include <KestrinHousehold/session/internal/ConfiguredService.hpp>
#include <KestrinHousehold/session/internal/Forbidden.hpp>
#include <KestrinHousehold/session/internal/SearchDeletion.hpp>
#include <KestrinProfile/params/SearchParams.hpp>

namespace KestrinHousehold::internal {

using HalvardSling::Observable;
using HalvardSling::Response;
using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::APIParams;
using KestrinConfigManager::ConfigurationManager;
using KestrinConfigManager::ConfigurationManagerError;
using KestrinProfile::ProfileOperation;
using KestrinProfile::SearchParams;
using KestrinProfile::Types;

namespace {

/// The answers of a `SearchParams`, whose operation only `Profile` can set.
class SearchDeletionParams final : public APIParams {
  public:
    explicit SearchDeletionParams(SearchParams params) : params_(std::move(params)) {}

    [[nodiscard]] std::optional<KestrinConfigManager::TextMap> headers() const override {
        return params_.headers();
    }
    [[nodiscard]] std::optional<HalvardSling::JSONDictionary> dictionaryRepresentation()
        const override {
        return params_.dictionaryRepresentation();
    }
    [[nodiscard]] std::optional<KestrinConfigManager::TextMap> URLMapping() const override {
        return params_.URLMapping();
    }
    [[nodiscard]] bool hasValidParams() const override { return params_.brandID.has_value(); }

  private:
    SearchParams params_;
};

void react(const std::exception_ptr& error) {
    if (isForbidden(error)) ConfigurationManager::sharedInstance().reactToForbiddenReply();
}

}  // namespace

Observable<Response> deleteSearchHistory(const AnonymousBind& bind,
                                         const std::optional<std::string>& brandID) {
    constexpr auto operation = ProfileOperation::deleteSearchHistory;
    const auto service = configuredService(operation);
    if (!service)
        return rxcpp::observable<>::error<Response>(ConfigurationManagerError(
            ConfigurationManagerError::Case::serviceNotConfigured, rawValue(operation),
            "the configuration has no such service"));
    const SearchDeletionParams params(brandID ? SearchParams({}, Types::none, bind, *brandID)
                                              : SearchParams({}, Types::none, bind));
    if (const auto answer = service->configurationGuard(params)) return *answer;
    return KestrinConfigManager::build(params, *service).responses() |
           rxcpp::operators::tap([](const Response&) {}, &react);
}

}  // namespace KestrinHousehold::internal
