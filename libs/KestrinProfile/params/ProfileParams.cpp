#include <tuple>
#include <utility>

#include <KestrinProfile/model/internal/OperationTable.hpp>
#include <KestrinProfile/params/ProfileParams.hpp>
#include <KestrinProfile/params/ProfileUtils.hpp>
#include <KestrinProfile/params/internal/PercentEncoding.hpp>
#include <KestrinProfile/params/internal/RequestSupport.hpp>

namespace KestrinProfile {

using HalvardSling::JSONDictionary;
using internal::fill;
using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::TextMap;

namespace {

using Keys = ProfileParams::Keys;
using Body = internal::OperationRow::Body;
using Need = internal::OperationRow::Need;

std::optional<JSONDictionary> typeBody(std::optional<Types> type) {
    if (!type) return std::nullopt;
    JSONDictionary body;
    body.setText(Keys::type, rawValue(*type));
    return body;
}

JSONDictionary watchedVideoBody(const ProfileParams& params) {
    const auto& type = params.type();
    JSONDictionary body;
    if (params.isComplete) body.setText(Keys::isComplete, *params.isComplete ? "true" : "false");
    if (type) body.setText(Keys::type, rawValue(*type));
    if (params.progress) body.setText(Keys::progress, std::to_string(*params.progress));
    return body;
}

std::optional<JSONDictionary> elementsBody(
    const std::optional<std::vector<UserProfileElement>>& elements) {
    if (!elements) return std::nullopt;
    std::vector<JSONDictionary> entries;
    entries.reserve(elements->size());
    for (const auto& element : *elements)
        if (auto entry = element.serialized()) entries.push_back(*std::move(entry));
    JSONDictionary body;
    body.setDictionaries(Keys::elements, entries);
    return body;
}

}  // namespace

ProfileParams::ProfileParams(std::optional<AnonymousBind> bind)
    : ProfileParams(std::move(bind), internal::currentBrandID()) {}

ProfileParams::ProfileParams(std::optional<AnonymousBind> bind, std::optional<std::string> aBrandID,
                             std::optional<std::vector<UserProfileElement>> someElements)
    : brandID(std::move(aBrandID)),
      elements(std::move(someElements)),
      bind_(internal::givenOrHeld(std::move(bind), false)) {}

std::optional<TextMap> ProfileParams::headers() const {
    return ProfileUtils::header(bind_);
}

std::optional<JSONDictionary> ProfileParams::dictionaryRepresentation() const {
    switch (internal::rowOf(operation_).body) {
        case Body::type:
            return typeBody(type_);
        case Body::watchedVideo:
            return watchedVideoBody(*this);
        case Body::elements:
            return elementsBody(elements);
        default:
            return std::nullopt;
    }
}

std::optional<TextMap> ProfileParams::URLMapping() const {
    TextMap mapping;
    fill(mapping, ProfileMapping::show, showID);
    fill(mapping, ProfileMapping::brand, brandID);
    fill(mapping, ProfileMapping::video, videoID);
    fill(mapping, bind_);
    if (userName) fill(mapping, ProfileMapping::userName, internal::percentEncoded(*userName));
    return mapping;
}

bool ProfileParams::hasValidParams() const {
    if (!bind_ || !brandID) return false;
    switch (internal::rowOf(operation_).need) {
        case Need::userName:
            return userName && !userName->empty();
        case Need::video:
            return videoID.has_value();
        case Need::watchedVideo:
            return videoID && progress && *progress >= 0;
        case Need::show:
            return showID.has_value();
        case Need::elements:
            return elements && !elements->empty();
        default:
            return true;
    }
}

bool operator==(const ProfileParams& left, const ProfileParams& right) {
    const auto compared = [](const ProfileParams& params) {
        return std::tie(params.bind_, params.type_, params.operation_, params.brandID,
                        params.videoID, params.showID, params.progress, params.isComplete);
    };
    return compared(left) == compared(right);
}

}  // namespace KestrinProfile
