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

    kestrin_household* household = nullptr;
    kestrin_household_create(nullptr, &household);
    cHousehold_.reset(household);
    kestrin_session* session = nullptr;
    kestrin_household_session(household, nullptr, &session);
    cSession_.reset(session);
    if (!cSession_) throw std::runtime_error(kestrin_last_problem());
}

SessionCalls::~SessionCalls() {
    HalvardSling::setDefaultTransport(nullptr);
}

void SessionCalls::Released::operator()(kestrin_household* household) const {
    kestrin_household_release(household);
}

void SessionCalls::Released::operator()(kestrin_session* session) const {
    kestrin_session_release(session);
}

bool SessionCalls::callInC() {
    kestrin_call call{};
    call.size = sizeof call;
    call.operation = KESTRIN_GET_HISTORY;
    bool hasCome = false;
    kestrin_completion completion{};
    completion.size = sizeof completion;
    completion.context = &hasCome;
    completion.completed = [](void* context, kestrin_result* result) {
        *static_cast<bool*>(context) = result->list != nullptr;
        kestrin_result_release(result);
    };
    kestrin_session_start(cSession_.get(), &call, &completion, nullptr);
    return hasCome;
}

bool SessionCalls::call(std::string_view layer) {
    if (layer == "KestrinC") return callInC();
    const bool isPlain = layer == "KestrinProfile";
    bool hasCome = false;
    const auto history =
        isPlain ? Profile().requestHistory(ProfileParams(bind_)) : session_->history();
    history.subscribe([&](const UserProfile& list) { hasCome = list.elements.has_value(); },
                      [](const std::exception_ptr&) {}, [] {});
    return hasCome;
}

}  // namespace Bench
