#include <fmt/format.h>

#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinConfigManager/ConfigurationManagerError.hpp>
#include <KestrinProfile/service/Profile.hpp>

#include "OtherConfiguration.hpp"
#include "Scenes.hpp"

namespace KestrinProfileCLI {

using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::ConfigurationManager;
using KestrinConfigManager::ConfigurationManagerError;
using KestrinProfile::Profile;

namespace {

std::string obtainBind(const Stage& stage) {
    ConfigurationManager::sharedInstance().dropBinds();
    const auto before = stage.sent();
    const AnonymousBind bind = stage.await(Profile().requestAnonymousBind());
    Stage::require(stage.sent() == before + 1, "one request is sent");
    Stage::require(ConfigurationManager::profileBind(true) == bind, "the bind is stored");
    return fmt::format(
        "{} requested, decoded and stored with one request; token masked, {} "
        "characters",
        bind.profileID, bind.token.size());
}

std::string useHeldBind(const Stage& stage) {
    const auto before = stage.sent();
    const auto held = ConfigurationManager::profileBind(true);
    const AnonymousBind bind = stage.await(Profile().requestAnonymousBind());
    Stage::require(held == bind && stage.sent() == before,
                   "the held bind answers and no request is sent");
    return "answered by the held bind, no request sent";
}

std::string beForbidden(const Stage& stage, const std::string& blockedProfileID) {
    const auto refusal = stage.refusalOf(Profile().requestAnonymousBind(blockedProfileID));
    Stage::require(refusal.error.statusCode() == 403,
                   fmt::format("the service answers 403 for the profile '{}'; instead: {}",
                               blockedProfileID, refusal.error.what()),
                   "start the service with --block PROFILE_ID, and name that profile with "
                   "--blocked PROFILE_ID");
    Stage::require(refusal.reactions == 2, "the reaction comes twice");
    Stage::require(!ConfigurationManager::profileBind(true), "the held binds are dropped");
    return fmt::format("{} reactions, held binds dropped, the error delivered: {}",
                       refusal.reactions, refusal.error.what());
}

std::string missService(const Stage& stage) {
    const auto before = stage.sent();
    const OtherConfiguration empty(withoutServices());
    const auto error = stage.errorOf<ConfigurationManagerError>(Profile().requestAnonymousBind());
    Stage::require(error == ConfigurationManagerError::serviceNotConfigured,
                   "the configuration has no such service");
    Stage::require(stage.sent() == before, "no request is sent");
    return error.what();
}

}  // namespace

void playBinds(Stage& stage, const Cast& cast) {
    stage.scene("Who is there");
    stage.step("bind for the parent", [&] { return obtainBind(stage); });
    stage.step("the same again", [&] { return useHeldBind(stage); });
    stage.step("bind for a blocked profile",
               [&] { return beForbidden(stage, cast.blockedProfileID); });
    stage.step("an unconfigured operation", [&] { return missService(stage); });
}

}  // namespace KestrinProfileCLI
