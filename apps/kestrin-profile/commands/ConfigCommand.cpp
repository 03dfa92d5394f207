#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include <HalvardSling/json/JSONDictionary.hpp>
#include <KestrinConfigManager/Configuration.hpp>
#include <KestrinConfigManager/WebService.hpp>
#include <KestrinProfile/service/ConfigurationCheck.hpp>
#include <internal/Quoting.hpp>

#include "../CurlCommand.hpp"
#include "../ObjectText.hpp"
#include "Commands.hpp"

namespace KestrinProfileCLI {

using HalvardSling::JSONDictionary;
using KestrinConfigManager::Configuration;
using KestrinConfigManager::ConfigurationProblem;
using KestrinConfigManager::ProblemSeverity;
using KestrinConfigManager::WebService;
using KestrinInternal::inQuotes;

namespace {

using Problems = std::vector<ConfigurationProblem>;

/// What is wrong with a file, or with what it says about the operations.
Problems problemsOf(const KestrinConfigManager::ConfigurationResult& result) {
    if (const auto* const configuration = std::get_if<Configuration>(&result))
        return KestrinProfile::checkConfiguration(*configuration);
    return std::get<Problems>(result);
}

const char* nameOf(ProblemSeverity severity) {
    return severity == ProblemSeverity::error ? "error" : "warning";
}

void printJSON(const Session& session, const Problems& problems) {
    const std::string file = session.configurationFile().string();
    std::vector<JSONDictionary> all;
    for (const auto& problem : problems) {
        all.emplace_back();
        all.back().setText("severity", nameOf(problem.severity));
        all.back().setText("path", problem.path);
        all.back().setText("message", problem.message);
        all.back().setText("file", file);
    }
    JSONDictionary result;
    result.setText("file", file);
    result.setDictionaries("problems", all);
    session.terminal.json(result);
}

void printForPeople(const Session& session, const Configuration& configuration) {
    const std::size_t services = configuration.services ? configuration.services->size() : 0;
    session.terminal.line(fmt::format("{}  {}", session.terminal.styled(Style::good, "sound"),
                                      printable(session.configurationFile().string())));
    session.terminal.line(fmt::format(
        "parent profile {}, brand {}, {} services", printable(configuration.parentProfileID),
        configuration.brand ? printable(configuration.brand->rawValue) : "none", services));
}

void printForPeople(const Session& session, const Problems& problems) {
    if (problems.empty()) return;
    const std::string file = printable(session.configurationFile().string());
    std::vector<std::vector<std::string>> rows;
    for (const auto& [path, message, severity] : problems)
        rows.push_back(
            {nameOf(severity), fmt::format("{}: {}", file, printable(path)), printable(message)});
    session.terminal.table({"SEVERITY", "WHERE", "PROBLEM"}, rows);
}

ExitCode check(Session& session) {
    const auto result = KestrinConfigManager::loadConfiguration(session.configurationFile());
    const Problems problems = problemsOf(result);
    const bool isSound = std::ranges::find(problems, ProblemSeverity::error,
                                           &ConfigurationProblem::severity) == problems.end();
    if (session.options.json) {
        printJSON(session, problems);
    } else {
        if (isSound) printForPeople(session, std::get<Configuration>(result));
        printForPeople(session, problems);
    }
    return isSound ? ExitCode::ok : ExitCode::usage;
}

constexpr const char* masked = "***";

/// Names with the texts that may be shown of them.
using Texts = std::vector<std::pair<std::string, std::string>>;

Texts headersOf(const WebService& service) {
    Texts result;
    for (const auto& [name, value] : service.headers)
        result.emplace_back(name, isPublicHeader(name) ? value : masked);
    return result;
}

Texts queryOf(const WebService& service) {
    Texts result;
    for (const auto& [name, value] : service.query)
        result.emplace_back(name, masked);
    return result;
}

/// An object of texts.
std::string objectOf(const Texts& texts) {
    ObjectText object;
    for (const auto& [name, value] : texts)
        object.addText(name, value);
    return object.text();
}

/// A service with the keys of the configuration file.
std::string jsonOf(const WebService& service) {
    ObjectText result;
    result.add("method", inQuotes(service.method));
    result.add("url", inQuotes(service.url.text()));
    result.add("body", inQuotes(name(service.body)));
    result.add("headers", objectOf(headersOf(service)));
    result.add("query", objectOf(queryOf(service)));
    for (const auto& [key, value] : KestrinConfigManager::configuredValues(service.policy))
        result.add(key, std::to_string(value));
    result.add("enabled", service.enabled ? "true" : "false");
    return result.text();
}

std::string jsonOf(const Session& session, const Configuration& configuration) {
    ObjectText services;
    if (configuration.services)
        for (const auto& [operation, service] : *configuration.services)
            services.add(operation, jsonOf(service));
    ObjectText result;
    result.add("file", inQuotes(session.configurationFile().string()));
    result.add("parentProfileID", inQuotes(configuration.parentProfileID));
    if (configuration.brand) result.add("brand", inQuotes(configuration.brand->rawValue));
    result.add("services", services.text());
    return result.text();
}

/// The names with their texts, for people.
std::string listed(const Texts& texts) {
    std::vector<std::string> all;
    for (const auto& [name, value] : texts)
        all.push_back(fmt::format("{}: {}", name, value));
    return all.empty() ? "-" : joined(all, ", ");
}

void printServices(const Session& session, const Configuration& configuration) {
    if (!configuration.services) return;
    std::vector<std::vector<std::string>> rows;
    for (const auto& [operation, service] : *configuration.services)
        rows.push_back({printable(operation), printable(service.method),
                        printable(service.url.text()), std::string(name(service.body)),
                        printable(listed(headersOf(service))), printable(listed(queryOf(service))),
                        service.enabled ? "" : "off"});
    session.terminal.table({"OPERATION", "METHOD", "URL", "BODY", "HEADERS", "QUERY", ""}, rows);
}

ExitCode show(Session& session) {
    const auto result = KestrinConfigManager::loadConfiguration(session.configurationFile());
    const auto* const configuration = std::get_if<Configuration>(&result);
    if (configuration == nullptr) return check(session);
    if (session.options.json) {
        session.terminal.line(printableJSON(jsonOf(session, *configuration)));
        return ExitCode::ok;
    }
    printForPeople(session, *configuration);
    printServices(session, *configuration);
    return ExitCode::ok;
}

}  // namespace

void addConfigCommand(CLI::App& app, Command& chosen) {
    auto* const group = app.add_subcommand("config", "Inspect the configuration");
    group->require_subcommand(1);
    group->add_subcommand("check", "Report every problem of the configuration")
        ->callback([&chosen] { chosen = &check; });
    group
        ->add_subcommand("show",
                         "Show the configuration in effect; the values of headers and query "
                         "parameters are masked")
        ->callback([&chosen] { chosen = &show; });
}

}  // namespace KestrinProfileCLI
