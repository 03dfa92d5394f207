#include <memory>
#include <string>

#include <fmt/format.h>

#include "../Batch.hpp"
#include "../Confirmation.hpp"
#include "../Later.hpp"
#include "../Profiles.hpp"
#include "../Results.hpp"
#include "Commands.hpp"

namespace KestrinProfileCLI {

using KestrinHousehold::LaterSession;

namespace {

/// What the commands below are told.
struct SearchOptions {
    BatchOptions batch;
    bool isConfirmed = false;
    LaterOptions later;
};

ExitCode add(Session& session, const SearchOptions& options) {
    session.configure();
    const auto items = readBatchItems(options.batch.items, session.interruption());
    const auto acting = actingProfileOfBrand(session);
    if (isLater(session, options.later))
        return keepLater(session, options.later, acting, items,
                         [](const LaterSession& later, const std::string& text) {
                             return later.addSearchHistory(text);
                         });
    const auto request = [&](const std::string& text) { return acting.addSearchHistory(text); };
    return runBatch(session, acting, options.batch, items,
                    {request, "added", "to the search history"});
}

ExitCode removeAll(Session& session, const SearchOptions& options) {
    session.configure();
    const std::string brand = brandOf(session);
    confirm(
        session, options.isConfirmed,
        fmt::format("delete the search history of the profile '{}'", actingProfileName(session)));
    const auto acting = actingProfileOfBrand(session);
    if (isLater(session, options.later))
        return keepLater(session, options.later, acting, "the search history",
                         &LaterSession::deleteSearchHistory);
    const auto reply = session.waitFor(acting.deleteSearchHistory());
    printDone(session, reply, fmt::format("deleted the search history of the brand {}", brand));
    return ExitCode::ok;
}

}  // namespace

void addSearchCommand(CLI::App& app, Command& chosen) {
    auto& group = *app.add_subcommand("search", "What a profile has searched for");
    group.require_subcommand(1);

    const auto options = std::make_shared<SearchOptions>();
    auto& adding = *group.add_subcommand("add", "Record search texts, one request each");
    addBatch(adding, options->batch, "TEXT", "A text that was searched for");
    addLater(adding, options->later);
    onChosen(adding, chosen, options, &add);

    auto& deleting = *group.add_subcommand("delete", "Delete the brand's whole search history");
    addConfirmation(deleting, options->isConfirmed);
    addLater(deleting, options->later);
    onChosen(deleting, chosen, options, &removeAll);
}

}  // namespace KestrinProfileCLI
