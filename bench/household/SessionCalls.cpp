#include "household/SessionCalls.hpp"

#include <exception>
#include <stdexcept>

#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinProfile/service/Profile.hpp>

#include "support/AnswersAtOnce.hpp"
#include "support/ListText.hpp"

namespace Bench {

using KestrinConfigManager::ConfigurationManager;
using KestrinProfile::Profile;
using KestrinProfile::ProfileParams;
using KestrinProfile::UserProfile;

SessionCalls::SessionCalls(const char* configuration)
    : bind_("parent", "a-token-of-some-length-0123456789-0123456789") {
    auto& manager = ConfigurationManager::sharedInstance();
    if (!manager.load(configuration).empty())
        throw std::runtime_error("the configuration has problems");
    manager.storeBind(bind_);
    HalvardSling::setDefaultTransport(std::make_shared<AnswersAtOnce>(replyOf(listText(1))));
    household_ = std::make_unique<KestrinHousehold::Household>();
    session_ = std::make_unique<KestrinHousehold::ProfileSession>(household_->session());
}

SessionCalls::~SessionCalls() {
    HalvardSling::setDefaultTransport(nullptr);
}

bool SessionCalls::call(std::string_view layer) {
    const bool isPlain = layer == "KestrinProfile";
    bool hasCome = false;
    const auto history =
        isPlain ? Profile().requestHistory(ProfileParams(bind_)) : session_->history();
    history.subscribe([&](const UserProfile& list) { hasCome = list.elements.has_value(); },
                      [](const std::exception_ptr&) {}, [] {});
    return hasCome;
}

}  // namespace Bench
