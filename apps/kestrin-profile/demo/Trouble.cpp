#include <fmt/format.h>

#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinProfile/service/Profile.hpp>

#include "OtherConfiguration.hpp"
#include "Scenes.hpp"
#include "UnusedPort.hpp"

namespace KestrinProfileCLI {

using HalvardSling::SlingErrorKind;
using KestrinConfigManager::ConfigurationManager;
using KestrinProfile::Profile;
using KestrinProfile::ProfileParams;
using KestrinProfile::UserParams;

namespace {

/// How many entries Anna's history has.
std::size_t historySize(const Stage& stage, const Cast& cast) {
    const auto list =
        stage.await(Profile().requestHistory(ProfileParams(bindOf(stage, cast.anna), cast.brand)));
    Stage::require(list.elements.has_value(), "the reply holds a list");
    return list.elements->size();
}

std::string overreach(const Stage& stage, const Cast& cast) {
    const auto before = historySize(stage, cast);
    const UserParams params(bindOf(stage, cast.ben), cast.anna);
    const auto refusal = stage.refusalOf(Profile().deleteProfile(params));
    Stage::require(refusal.error.statusCode() == 403, "the service answers 403");
    Stage::require(refusal.reactions == 1, "the reaction comes once");
    Stage::require(
        !ConfigurationManager::profileBind(true) && !ConfigurationManager::profileBind(false),
        "the held binds are dropped");
    const auto asked = stage.sent();
    Stage::require(historySize(stage, cast) == before, "nothing was deleted");
    Stage::require(stage.sent() == asked + 2, "a new bind is requested, then the list");
    return fmt::format(
        "403, {}; {} reaction, held binds dropped; a new bind, and {} is still "
        "there",
        reasonOf(refusal.error), refusal.reactions, *cast.anna.username);
}

std::string loseService(const Stage& stage, const Cast& cast) {
    const auto bind = bindOf(stage, cast.anna);
    const UnusedPort port;
    const OtherConfiguration elsewhere(withServicesAt(port.origin()));
    const auto refusal = stage.refusalOf(Profile().requestHistory(ProfileParams(bind, cast.brand)));
    Stage::require(refusal.error.kind() == SlingErrorKind::cannotConnect && refusal.reactions == 0,
                   "it fails with cannotConnect, without a reaction");
    const Failure failure = describe(std::make_exception_ptr(refusal.error));
    return fmt::format("{}: {}; what to do: {}", name(refusal.error.kind()), failure.message,
                       failure.advice);
}

std::string findService(const Stage& stage, const Cast& cast) {
    const auto before = stage.sent();
    const auto size = historySize(stage, cast);
    Stage::require(stage.sent() == before + 1, "the held bind is still good");
    return fmt::format("the same request is answered, with the same bind: {} entries", size);
}

}  // namespace

void playTrouble(Stage& stage, const Cast& cast) {
    stage.scene("Trouble");
    stage.step(fmt::format("{} tries to delete {}", *cast.ben.username, *cast.anna.username),
               [&] { return overreach(stage, cast); });
    stage.step("the service cannot be reached", [&] { return loseService(stage, cast); });
    stage.step("the service is back", [&] { return findService(stage, cast); });
}

}  // namespace KestrinProfileCLI
