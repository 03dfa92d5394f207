// A household's evening: the operations of a session from end to end, against a development service
// that blocks a profile. Each step checks what it prints.

#include <cerrno>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <sys/file.h>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <internal/FileDescriptor.hpp>

#include "Scenes.hpp"

namespace {

using namespace HouseholdEvening;
using KestrinInternal::FileDescriptor;

void configure(const std::string& file) {
    auto& manager = KestrinConfigManager::ConfigurationManager::sharedInstance();
    for (const auto& problem : manager.load(file))
        throw std::runtime_error(fmt::format("{}: {}: {}", file, problem.path, problem.message));
}

/// A lock on the configuration file, which names the household: a second evening there would delete
/// what the first has created. It leaves nothing behind, however the program ends.
FileDescriptor lockOn(const std::string& file) {
    FileDescriptor lock(open(file.c_str(), O_RDONLY | O_CLOEXEC));
    if (flock(lock.number(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
        throw std::runtime_error("another evening is played with this configuration; wait for it");
    return lock;
}

void playScenes(Cast& cast, ServiceProcess* service) {
    Stage stage;
    playBinds(stage, cast);
    playHousehold(stage, cast);
    playLists(stage, cast);
    playTrouble(stage, cast, service);
    showLists(cast);
    playGoodNight(stage, cast);
    stage.close();
}

void play(const std::string& configurationFile, const std::string& blockedProfileID,
          ServiceProcess* service) {
    configure(configurationFile);
    const FileDescriptor lock = lockOn(configurationFile);
    Cast cast;
    cast.blockedProfileID = blockedProfileID;
    try {
        playScenes(cast, service);
    } catch (...) {
        try {
            if (!cast.home.empty()) deleteCreatedProfiles(cast);
        } catch (const std::exception& error) {
            fmt::print(stderr, "note: the next run deletes the created profiles: {}\n",
                       error.what());
        }
        throw;
    }
}

void playWithOwnService(const std::string& configurationFile, const std::string& blockedProfileID,
                        const std::vector<std::string>& command) {
    ServiceProcess service(command, configurationFile);
    play(configurationFile, blockedProfileID, &service);
    service.stop();
}

}  // namespace

int main(int argc, char** argv) {
    try {
        CLI::App app(
            "Play a household's evening against a development service that blocks a profile");
        std::string configurationFile;
        std::string blockedProfileID = "blocked";
        std::vector<std::string> command;
        app.add_option("--config", configurationFile, "The configuration file")->required();
        app.add_option("--blocked", blockedProfileID, "The profile that the service blocks")
            ->capture_default_str();
        app.add_option("SERVICE", command,
                       "The development service and its arguments, after --: it is started, writes "
                       "the configuration, is taken away and brought back, and ends with the "
                       "evening. Without it a service that runs is used, and stays")
            ->type_name("");
        CLI11_PARSE(app, argc, argv);
        if (command.empty())
            play(configurationFile, blockedProfileID, nullptr);
        else
            playWithOwnService(configurationFile, blockedProfileID, command);
        return 0;
    } catch (const std::exception& error) {
        static_cast<void>(std::fprintf(stderr, "error: %s\n", error.what()));
        return 1;
    }
}
