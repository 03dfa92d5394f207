#include <utility>

#include <KestrinConfigManager/APIParams.hpp>
#include <KestrinHousehold/session/internal/ConfiguredService.hpp>
#include <KestrinHousehold/session/internal/SearchDeletion.hpp>
#include <KestrinProfile/params/SearchParams.hpp>

namespace KestrinHousehold::internal {

using HalvardSling::Observable;
using HalvardSling::Response;
using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::APIParams;
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

}  // namespace

Observable<Response> deleteSearchHistory(const AnonymousBind& bind,
                                         const std::optional<std::string>& brandID) {
    SearchParams params({}, Types::none, bind);
    if (brandID) params.brandID = brandID;
    return responsesOf(ProfileOperation::deleteSearchHistory,
                       SearchDeletionParams(std::move(params)));
}

}  // namespace KestrinHousehold::internal
