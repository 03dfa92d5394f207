#include "Session.hpp"

#include <chrono>

#include <fmt/format.h>

#include <HalvardSling/curl/CurlTransport.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinConfigManager/WebService.hpp>

#include "CurlCommand.hpp"
#include "HiddenBinds.hpp"
#include "Paths.hpp"
#include "PrivateDirectories.hpp"

namespace KestrinProfileCLI {

namespace fs = std::filesystem;
using KestrinConfigManager::ConfigurationManager;
using KestrinConfigManager::ConfigurationProblem;
using KestrinConfigManager::FileBindStore;

namespace {

std::string asText(const std::vector<ConfigurationProblem>& problems, const fs::path& file) {
    std::string text = fmt::format("the configuration {} has {}", file.string(),
                                   countOf(problems.size(), "problem", "problems"));
    for (const auto& problem : problems)
        text += fmt::format("; {}: {}", problem.path, problem.message);
    return text;
}

std::string asText(const HalvardSling::TransferLog& log) {
    const std::string outcome = log.status  ? std::to_string(*log.status)
                                : log.error ? std::string(name(*log.error))
                                            : "no reply";
    return fmt::format("{} {}{} -> {}  {} bytes sent, {} received, {:.1f} ms, HTTP/{}{}",
                       log.method, log.origin, log.pathTemplate, outcome, log.bytesSent,
                       log.bytesReceived,
                       std::chrono::duration<double, std::milli>(log.timings.total).count(),
                       log.httpVersion.empty() ? "-" : log.httpVersion,
                       log.reusedConnection ? ", connection used again" : "");
}

KestrinHousehold::RetryPolicy policyFor(Repeats repeats) {
    KestrinHousehold::RetryPolicy policy;
    switch (repeats) {
        case Repeats::never:
            return KestrinHousehold::RetryPolicy::never();
        case Repeats::many: {
            constexpr int most = 100;  // more than there is time for
            policy.maxAttempts = most;
            policy.longestDelay = std::chrono::seconds(5);
            policy.deadline = Session::patience;
            policy.budget = {1, most, most};
            return policy;
        }
        case Repeats::usual:
            break;
    }
    // Who calls a program waits for its end; an application's minute is too long for that.
    policy.deadline = std::chrono::seconds(10);
    return policy;
}

}  // namespace

Session::~Session() {
    household_.reset();
    HalvardSling::setDefaultTransport(nullptr);
    saveBinds();
}

void Session::report(const Failure& failure) const {
    if (options.json)
        terminal.noteJSON(documentOf(failure));
    else
        terminal.failure(failure.message, failure.advice);
}

std::shared_ptr<Recording> Session::record() {
    recording_ = std::make_shared<Recording>();
    return recording_;
}

fs::path Session::configurationFile() const {
    return options.configurationFile.empty() ? defaultConfigurationFile()
                                             : options.configurationFile;
}

void Session::configure() {
    const fs::path file = configurationFile();
    auto& manager = ConfigurationManager::sharedInstance();
    if (const auto problems = manager.load(file); !problems.empty())
        throw CommandError({ExitCode::usage, asText(problems, file),
                            "name a configuration with --config FILE, or write one with "
                            "kestrin-profile-server --write-config FILE"});

    hideSecrets(*manager.currentConfiguration());
    if (!options.dryRun) loadBinds(bindFileFor(file));
    connect();
}

void Session::connect() const {
    HalvardSling::setDefaultTransport(newTransport());
}

void Session::hideSecrets(const KestrinConfigManager::Configuration& configuration) {
    if (!configuration.services) return;
    for (const auto& [operation, service] : *configuration.services)
        for (const auto& [name, value] : service.headers)
            if (!isPublicHeader(name)) terminal.hide(std::string(value));
}

void Session::loadBinds(const fs::path& file) {
    const fs::path base = stateDirectory();
    if (const auto refusal = makePrivateDirectories(base, file.parent_path()))
        terminal.note("warning: binds are not kept: " + printable(*refusal));
    else
        store_ = std::make_shared<FileBindStore>(base / file);
    const auto hidden = std::make_shared<HiddenBinds>(terminal, store_);
    if (const auto warning = ConfigurationManager::sharedInstance().useBindStore(hidden))
        terminal.note("warning: " + printable(*warning));
}

std::shared_ptr<HalvardSling::Transport> Session::newTransport() const {
    if (options.dryRun)
        return std::make_shared<DryRunTransport>(
            [this](const std::string& command) { terminal.line(command); });
    HalvardSling::CurlTransport::Options transport;
    if (options.verbose)
        transport.log = [this](const HalvardSling::TransferLog& log) {
            terminal.note(asText(log));
        };
    auto sending = std::make_shared<HalvardSling::CurlTransport>(std::move(transport));
    if (!recording_) return sending;
    return std::make_shared<RecordingTransport>(std::move(sending), recording_);
}

KestrinHousehold::HouseholdOptions Session::householdOptions() const {
    KestrinHousehold::HouseholdOptions household;
    household.retry = policyFor(options.repeats);
    if (options.verbose)
        household.log = [this](const KestrinHousehold::HouseholdEvent& event) {
            terminal.note(event.text());
        };
    return household;
}

const KestrinHousehold::Household& Session::household() {
    if (!household_) household_.emplace(householdOptions());
    return *household_;
}

KestrinHousehold::ProfileSession Session::profile(const std::string& profileID) {
    if (options.dryRun)
        ConfigurationManager::sharedInstance().storeBind({profileID, std::string(unknownToken)});
    return household().session(profileID);
}

void Session::saveBinds() {
    if (!store_) return;
    if (const auto failed = store_->flush())
        terminal.note("warning: the bind could not be saved: " + printable(*failed));
}

}  // namespace KestrinProfileCLI
