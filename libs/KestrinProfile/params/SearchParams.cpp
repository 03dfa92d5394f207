#include <tuple>
#include <utility>

#include <KestrinProfile/params/ProfileUtils.hpp>
#include <KestrinProfile/params/SearchParams.hpp>
#include <KestrinProfile/params/internal/PercentEncoding.hpp>
#include <KestrinProfile/params/internal/RequestSupport.hpp>

namespace KestrinProfile {

using HalvardSling::JSONDictionary;
using internal::fill;
using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::TextMap;

SearchParams::SearchParams(std::string aSearch, Types type, std::optional<AnonymousBind> bind)
    : SearchParams(std::move(aSearch), type, std::move(bind), internal::currentBrandID()) {}

SearchParams::SearchParams(std::string aSearch, Types type, std::optional<AnonymousBind> bind,
                           std::optional<std::string> aBrandID)
    : search(std::move(aSearch)),
      brandID(std::move(aBrandID)),
      bind_(internal::givenOrHeld(std::move(bind), false)),
      type_(type) {}

std::optional<TextMap> SearchParams::headers() const {
    return ProfileUtils::header(bind_);
}

std::optional<JSONDictionary> SearchParams::dictionaryRepresentation() const {
    JSONDictionary body;
    body.setText(Keys::type, Keys::term);
    return body;
}

std::optional<TextMap> SearchParams::URLMapping() const {
    TextMap mapping;
    fill(mapping, ProfileMapping::search, internal::percentEncoded(search));
    fill(mapping, ProfileMapping::brand, brandID);
    fill(mapping, bind_);
    return mapping;
}

bool SearchParams::hasValidParams() const {
    return bind_ && operation_ && brandID;
}

bool operator==(const SearchParams& left, const SearchParams& right) {
    const auto compared = [](const SearchParams& params) {
        return std::tie(params.bind_, params.operation_, params.search, params.brandID,
                        params.type_);
    };
    return compared(left) == compared(right);
}

}  // namespace KestrinProfile
