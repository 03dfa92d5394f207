#include <exception>
#include <memory>
#include <string>

#include "../Caller.hpp"
#include "../demo/OnlyDemo.hpp"
#include "../demo/Scenes.hpp"
#include "Commands.hpp"

namespace KestrinProfileCLI {

namespace {

void playAll(Stage& stage, Cast& cast) {
    playBinds(stage, cast);
    playHousehold(stage, cast);
    playLists(stage, cast);
    playTrouble(stage, cast);
    showLists(stage, cast);
    playGoodNight(stage, cast);
    stage.close();
}

/// Tidies up after a demo that ended early. What cannot be deleted now, the next demo deletes.
void tidyUp(const Stage& stage, const Cast& cast) {
    if (cast.home.empty()) return;  // Nothing was created yet.
    try {
        deleteLeftovers(stage);
    } catch (...) {
        stage.session().terminal.note(
            "note: the demo's profiles could not be deleted; the next demo does it");
    }
}

ExitCode play(Session& session, const std::string& blockedProfileID) {
    session.configure();
    const OnlyDemo only(session.configurationFile());
    Stage stage(session);
    Cast cast;
    cast.brand = brandOf(session);
    cast.blockedProfileID = blockedProfileID;
    try {
        playAll(stage, cast);
    } catch (...) {
        tidyUp(stage, cast);
        throw;
    }
    session.keepBinds();
    return ExitCode::ok;
}

}  // namespace

void addDemoCommand(CLI::App& app, Command& chosen) {
    auto* const command = app.add_subcommand(
        "demo", "Play a household's evening against a development service that blocks a profile");
    const auto blocked = std::make_shared<std::string>("blocked");
    command->add_option("--blocked", *blocked, "A profile that the service was started to block")
        ->capture_default_str();
    command->callback([&chosen, blocked] {
        chosen = [blocked](Session& session) { return play(session, *blocked); };
    });
}

}  // namespace KestrinProfileCLI
