#include <memory>
#include <string>

#include <fmt/format.h>

#include "../Batch.hpp"
#include "../Confirmation.hpp"
#include "../Profiles.hpp"
#include "../Results.hpp"
#include "Commands.hpp"

namespace KestrinProfileCLI {

namespace {

ExitCode add(Session& session, const BatchOptions& options) {
    session.configure();
    const auto items = readBatchItems(options.items, session.interruption());
    const auto acting = actingProfileOfBrand(session);
    const auto request = [&](const std::string& text) { return acting.addSearchHistory(text); };
    return runBatch(session, acting, options, items, {request, "added", "to the search history"});
}

ExitCode removeAll(Session& session, const bool& isConfirmed) {
    session.configure();
    const std::string brand = brandOf(session);
    confirm(
        session, isConfirmed,
        fmt::format("delete the search history of the profile '{}'", actingProfileName(session)));
    const auto reply = session.waitFor(actingProfileOfBrand(session).deleteSearchHistory());
    printDone(session, reply, fmt::format("deleted the search history of the brand {}", brand));
    return ExitCode::ok;
}

}  // namespace

void addSearchCommand(CLI::App& app, Command& chosen) {
    auto& group = *app.add_subcommand("search", "What a profile has searched for");
    group.require_subcommand(1);

    const auto options = std::make_shared<BatchOptions>();
    auto& adding = *group.add_subcommand("add", "Record search texts, one request each");
    addBatch(adding, *options, "TEXT", "A text that was searched for");
    onChosen(adding, chosen, options, &add);

    const auto isConfirmed = std::make_shared<bool>(false);
    auto& deleting = *group.add_subcommand("delete", "Delete the brand's whole search history");
    addConfirmation(deleting, *isConfirmed);
    onChosen(deleting, chosen, isConfirmed, &removeAll);
}

}  // namespace KestrinProfileCLI
