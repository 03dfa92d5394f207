#include <fmt/format.h>

#include <HalvardSling/JSONDictionary.hpp>
#include <KestrinConfigManager/Configuration.hpp>
#include <KestrinConfigManager/WebService.hpp>

#include "Commands.hpp"

namespace KestrinProfileCLI {

using HalvardSling::JSONDictionary;
using KestrinConfigManager::Configuration;
using KestrinConfigManager::ConfigurationProblem;

namespace {

using Problems = std::vector<ConfigurationProblem>;

void printJSON(const Session& session, const Problems& problems) {
    std::vector<JSONDictionary> all;
    for (const auto& problem : problems) {
        all.emplace_back();
        all.back().setText("path", problem.path);
        all.back().setText("message", problem.message);
    }
    JSONDictionary result;
    result.setText("file", session.configurationFile().string());
    result.setDictionaries("problems", all);
    session.terminal.line(result.written());
}

void printForPeople(const Session& session, const Configuration& configuration) {
    const std::size_t services = configuration.services ? configuration.services->size() : 0;
    session.terminal.line(fmt::format("{}  {}", session.terminal.marked(Mark::good, "sound"),
                                      session.configurationFile().string()));
    session.terminal.line(fmt::format(
        "parent profile {}, brand {}, {} services", printable(configuration.parentProfileID),
        configuration.brand ? printable(configuration.brand->rawValue) : "none", services));
}

void printForPeople(const Session& session, const Problems& problems) {
    std::vector<std::vector<std::string>> rows;
    for (const auto& problem : problems)
        rows.push_back({printable(problem.path), printable(problem.message)});
    session.terminal.table({"WHERE", "PROBLEM"}, rows);
}

ExitCode check(Session& session) {
    const auto result = KestrinConfigManager::loadConfiguration(session.configurationFile());
    const auto* const problems = std::get_if<Problems>(&result);
    if (session.options.json)
        printJSON(session, problems != nullptr ? *problems : Problems{});
    else
        std::visit([&](const auto& any) { printForPeople(session, any); }, result);
    return problems != nullptr ? ExitCode::usage : ExitCode::ok;
}

}  // namespace

void addConfigCommand(CLI::App& app, Command& chosen) {
    auto* const group = app.add_subcommand("config", "Look at the configuration");
    group->require_subcommand(1);
    group->add_subcommand("check", "Say whether the configuration is sound, and every problem")
        ->callback([&chosen] { chosen = &check; });
}

}  // namespace KestrinProfileCLI
