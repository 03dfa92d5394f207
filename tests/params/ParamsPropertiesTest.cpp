#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include <KestrinProfile/params/ProfileParams.hpp>
#include <KestrinProfile/params/SearchParams.hpp>
#include <KestrinProfile/params/UserParams.hpp>
#include <KestrinProfile/params/internal/PercentEncoding.hpp>

#include "model/Generators.hpp"
#include "params/ParamsFixture.hpp"

namespace KestrinProfile {
namespace {

using internal::percentEncoded;
using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::TextMap;
using TestSupport::arbitraryUser;
using TestSupport::maybe;
using TestSupport::text;

std::optional<AnonymousBind> arbitraryBind() {
    if (*rc::gen::inRange(0, 3) == 0) return std::nullopt;
    return AnonymousBind(*text(), *text());
}

std::optional<ProfileOperation> arbitraryOperation() {
    return *rc::gen::elementOf(TestSupport::allOperations());
}

/// Whether a mapping holds a placeholder exactly where there is a value, and then that value.
bool maps(const TextMap& mapping, const std::string& placeholder,
          const std::optional<std::string>& value) {
    const auto found = mapping.find(placeholder);
    if (found == mapping.end()) return !value;
    return value == found->second;
}

std::optional<std::string> profileID(const std::optional<AnonymousBind>& bind) {
    if (!bind) return std::nullopt;
    return bind->profileID;
}

std::optional<std::string> encoded(const std::optional<std::string>& value) {
    if (!value) return std::nullopt;
    return percentEncoded(*value);
}

class ParamsProperties : public TestSupport::ParamsFixture {};

RC_GTEST_FIXTURE_PROP(ParamsProperties, AListsMappingHoldsExactlyThePresentValues, ()) {
    ProfileParams params(arbitraryBind(), *maybe(text()));
    params.videoID = *maybe(text());
    params.showID = *maybe(text());
    params.userName = *maybe(text());
    TestSupport::setOperation(params, arbitraryOperation());

    const auto mapping = params.URLMapping();
    RC_ASSERT(mapping);
    RC_ASSERT(maps(*mapping, "%SHOWID%", params.showID));
    RC_ASSERT(maps(*mapping, "%BRANDNAME%", params.brandID));
    RC_ASSERT(maps(*mapping, "%VIDEO%", params.videoID));
    RC_ASSERT(maps(*mapping, "%UXID%", profileID(params.bind())));
    RC_ASSERT(maps(*mapping, "%USERNAME%", encoded(params.userName)));
    RC_ASSERT(!mapping->contains("%SEARCH%"));
    RC_ASSERT(mapping->size() <= std::size_t{5});
}

RC_GTEST_FIXTURE_PROP(ParamsProperties, ASearchsMappingHoldsExactlyThePresentValues, ()) {
    SearchParams params(*text(), Types::none, arbitraryBind(), *maybe(text()));
    TestSupport::setOperation(params, arbitraryOperation());

    const auto mapping = params.URLMapping();
    RC_ASSERT(mapping);
    RC_ASSERT(maps(*mapping, "%SEARCH%", percentEncoded(params.search)));
    RC_ASSERT(maps(*mapping, "%BRANDNAME%", params.brandID));
    RC_ASSERT(maps(*mapping, "%UXID%", profileID(params.bind())));
    const auto present = std::size_t{1} + (params.brandID ? 1U : 0U) + (params.bind() ? 1U : 0U);
    RC_ASSERT(mapping->size() == present);
}

RC_GTEST_FIXTURE_PROP(ParamsProperties, AUsersMappingHoldsExactlyThePresentValue, ()) {
    UserParams params(arbitraryBind());
    if (*rc::gen::arbitrary<bool>()) params.user = arbitraryUser();
    params.operation = arbitraryOperation();

    const bool addressesUser = params.operation == ProfileOperation::editProfile ||
                               params.operation == ProfileOperation::deleteProfile;
    const auto userID = params.user ? params.user->profileID : std::nullopt;
    const auto mapping = params.URLMapping();
    RC_ASSERT(mapping);
    RC_ASSERT(maps(*mapping, "%UXID%", addressesUser ? userID : profileID(params.bind)));
    RC_ASSERT(mapping->size() <= std::size_t{1});
}

RC_GTEST_FIXTURE_PROP(ParamsProperties, TheBodyOfAWatchedVideoHoldsOnlyTexts, ()) {
    ProfileParams params(arbitraryBind());
    params.progress = *maybe(rc::gen::arbitrary<std::intptr_t>());
    params.isComplete = *maybe(rc::gen::arbitrary<bool>());
    TestSupport::setOperation(params, ProfileOperation::addVideoToHistory);

    const auto body = params.dictionaryRepresentation();
    RC_ASSERT(body);
    for (const auto key : body->keys())
        RC_ASSERT(body->text(key));
    RC_ASSERT(body->text("progress").has_value() == params.progress.has_value());
    RC_ASSERT(body->text("isCompleted").has_value() == params.isComplete.has_value());
    if (params.progress) RC_ASSERT(*body->text("progress") == std::to_string(*params.progress));
}

}  // namespace
}  // namespace KestrinProfile
