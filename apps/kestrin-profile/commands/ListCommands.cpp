#include <array>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <fmt/format.h>

#include <KestrinProfile/params/ProfileParams.hpp>
#include <KestrinProfile/service/Profile.hpp>

#include "../ActingProfile.hpp"
#include "../Batch.hpp"
#include "../Confirmation.hpp"
#include "../Format.hpp"
#include "../Results.hpp"
#include "../Watch.hpp"
#include "Commands.hpp"

namespace KestrinProfileCLI {

using HalvardSling::Observable;
using HalvardSling::Response;
using KestrinConfigManager::AnonymousBind;
using KestrinProfile::Profile;
using KestrinProfile::ProfileParams;
using KestrinProfile::Types;
using KestrinProfile::UserProfile;
using KestrinProfile::UserProfileElement;

namespace {

using Write = Observable<Response> (Profile::*)(ProfileParams) const;
using Read = Observable<UserProfile> (Profile::*)(ProfileParams) const;

/// One of a profile's lists: its words, and the operations of the library.
struct ListKind {
    const char* command;
    const char* description;
    const char* name;      ///< in a sentence
    const char* item;      ///< the heading of its identifiers
    const char* argument;  ///< an identifier on the command line
    const char* argumentText;
    std::optional<std::string> ProfileParams::* identifier;
    Read read;
    Write add;
    Write remove;
    Write clear;
};

constexpr const char* aVideo = "The identifier of a video";
constexpr const char* aShow = "The identifier of a show";

// clang-format off
constexpr ListKind history{
    "history", "What a profile has watched", "the history",
    "VIDEO", "VIDEO_ID", aVideo, &ProfileParams::videoID,
    &Profile::requestHistory, &Profile::addHistoryVideo, &Profile::deleteVideoHistory,
    &Profile::clearHistory};
constexpr ListKind favorites{
    "favorites", "The shows that a profile likes", "the favorites",
    "SHOW", "SHOW_ID", aShow, &ProfileParams::showID,
    &Profile::requestFavorites, &Profile::addFavoriteShow, &Profile::deleteFavoriteShow,
    &Profile::clearFavorites};
constexpr ListKind watchList{
    "watchlist", "The videos that a profile wants to watch", "the watch list",
    "VIDEO", "VIDEO_ID", aVideo, &ProfileParams::videoID,
    &Profile::requestWatchList, &Profile::addWatchListVideo, &Profile::deleteWatchListVideo,
    &Profile::clearWatchList};
// clang-format on

/// How far the videos were watched, as it is typed.
struct Watched {
    std::string progress;
    std::optional<bool> isComplete;
};

/// What the commands of one list are told.
struct ListOptions {
    explicit ListOptions(const ListKind& aKind) : kind(aKind) {}

    const ListKind& kind;
    WatchOptions watch;
    bool utc = false;
    bool isConfirmed = false;
    std::string videoID;
    BatchOptions batch;
    Watched watched;
};
using Shared = std::shared_ptr<ListOptions>;

ListFormat formatOf(const ListOptions& options) {
    return {options.kind.item, &options.kind == &history, options.utc};
}

ExitCode list(Session& session, const ListOptions& options) {
    session.configure();
    const std::string profileID = actingProfileID(session);
    const std::string brand = brandOf(session);
    return show(session, options.watch, [&] {
        const auto found =
            ActingProfile(session, profileID).waitFor([&](const AnonymousBind& bind) {
                return (Profile().*options.kind.read)(ProfileParams(bind, brand));
            });
        return linesOf(session, found, formatOf(options));
    });
}

ExitCode progress(Session& session, const ListOptions& options) {
    session.configure();
    const std::string brand = brandOf(session);
    const auto found = ActingProfile(session).waitFor([&](const AnonymousBind& bind) {
        ProfileParams params(bind, brand);
        params.videoID = options.videoID;
        return Profile().requestVideoHistory(std::move(params));
    });
    if (found.elements && found.elements->empty())
        throw CommandError({ExitCode::notFound,
                            fmt::format("the history has no video '{}'", options.videoID),
                            "see what it has: kestrin-profile history list"});
    for (const auto& line : linesOf(session, found, formatOf(options)))
        session.terminal.line(line);
    return ExitCode::ok;
}

std::int64_t progressOf(const Watched& watched) {
    if (const auto seconds = durationOf(watched.progress)) return *seconds;
    throw CommandError({ExitCode::usage, fmt::format("'{}' is not a time", watched.progress),
                        "give --progress in seconds, or as m:ss or h:mm:ss"});
}

/// What is done with each of the named items.
struct Change {
    Write operation;
    const char* done;
    const char* preposition;
    std::optional<std::int64_t> progress = std::nullopt;
};

ExitCode change(Session& session, const ListOptions& options, const Change& what) {
    session.configure();
    const auto items = readBatchItems(options.batch.items, session.interruption());
    const std::string brand = brandOf(session);
    const auto request = [&](const AnonymousBind& bind, const std::string& item) {
        ProfileParams params(bind, brand);
        params.progress = what.progress;
        params.isComplete = options.watched.isComplete;
        params.*options.kind.identifier = item;
        return (Profile().*what.operation)(std::move(params));
    };
    ActingProfile profile(session);
    return runBatch(
        profile, options.batch, items,
        {request, what.done, fmt::format("{} {}", what.preposition, options.kind.name)});
}

ExitCode add(Session& session, const ListOptions& options) {
    Change adding{options.kind.add, "added", "to"};
    if (&options.kind == &history) adding.progress = progressOf(options.watched);
    return change(session, options, adding);
}

ExitCode remove(Session& session, const ListOptions& options) {
    return change(session, options, {options.kind.remove, "removed", "from"});
}

ExitCode clear(Session& session, const ListOptions& options) {
    session.configure();
    const std::string brand = brandOf(session);
    confirm(
        session, options.isConfirmed,
        fmt::format("clear {} of the profile '{}'", options.kind.name, actingProfileName(session)));
    const auto reply = ActingProfile(session).waitFor([&](const AnonymousBind& bind) {
        return (Profile().*options.kind.clear)(ProfileParams(bind, brand));
    });
    printDone(session, reply, fmt::format("cleared {}", options.kind.name));
    return ExitCode::ok;
}

ExitCode addMany(Session& session, const ListOptions& options) {
    session.configure();
    const auto items = readBatchItems(options.batch.items, session.interruption());
    const std::string brand = brandOf(session);
    std::vector<UserProfileElement> elements;
    for (const auto& item : items)
        elements.emplace_back(item.text, Types::show);
    const auto reply = ActingProfile(session).waitFor([&](const AnonymousBind& bind) {
        return Profile().addFavoriteShows(ProfileParams(bind, brand, elements));
    });
    printDone(session, reply,
              fmt::format("added {} in one request to the favorites", items.size()));
    return ExitCode::ok;
}

void addUTC(CLI::App& command, ListOptions& options) {
    command.add_flag("--utc", options.utc, "Show dates in UTC instead of the local time zone");
}

void addListing(CLI::App& group, Command& chosen, const Shared& options) {
    auto& command = *group.add_subcommand("list", "Show the list, the latest entry first");
    addWatch(command, options->watch);
    addUTC(command, *options);
    onChosen(command, chosen, options, &list);
}

void addProgress(CLI::App& group, Command& chosen, const Shared& options) {
    auto& command = *group.add_subcommand("progress", "Show how far one video was watched");
    command.add_option(options->kind.argument, options->videoID, options->kind.argumentText)
        ->required()
        ->type_name("");
    addUTC(command, *options);
    onChosen(command, chosen, options, &progress);
}

void addAdding(CLI::App& group, Command& chosen, const Shared& options) {
    auto& command = *group.add_subcommand(
        "add", "Add entries, one request each; existing ones move to the front");
    addBatch(command, options->batch, options->kind.argument, options->kind.argumentText);
    if (&options->kind == &history) {
        command.add_option("--progress", options->watched.progress, "How far they were watched")
            ->required()
            ->type_name("SECONDS|h:mm:ss");
        auto* const completed = command.add_flag_callback(
            "--completed", [options] { options->watched.isComplete = true; },
            "They were watched to the end");
        command
            .add_flag_callback(
                "--not-completed", [options] { options->watched.isComplete = false; },
                "They were not; without either, the history keeps what it knows")
            ->excludes(completed);
    }
    onChosen(command, chosen, options, &add);
}

void addAddingMany(CLI::App& group, Command& chosen, const Shared& options) {
    auto& command = *group.add_subcommand(
        "add-many", "Add entries, all in one request; the last one is in front");
    addBatchItems(command, options->batch.items, options->kind.argument,
                  options->kind.argumentText);
    onChosen(command, chosen, options, &addMany);
}

void addRemoving(CLI::App& group, Command& chosen, const Shared& options) {
    auto& command = *group.add_subcommand("remove", "Remove entries, one request each");
    addBatch(command, options->batch, options->kind.argument, options->kind.argumentText);
    onChosen(command, chosen, options, &remove);
}

void addClearing(CLI::App& group, Command& chosen, const Shared& options) {
    auto& command = *group.add_subcommand("clear", "Remove all entries");
    addConfirmation(command, options->isConfirmed);
    onChosen(command, chosen, options, &clear);
}

void addGroup(CLI::App& app, Command& chosen, const ListKind& kind) {
    const auto options = std::make_shared<ListOptions>(kind);
    auto& group = *app.add_subcommand(kind.command, kind.description);
    group.require_subcommand(1);
    addListing(group, chosen, options);
    if (&kind == &history) addProgress(group, chosen, options);
    addAdding(group, chosen, options);
    if (&kind == &favorites) addAddingMany(group, chosen, options);
    addRemoving(group, chosen, options);
    addClearing(group, chosen, options);
}

}  // namespace

void addListCommands(CLI::App& app, Command& chosen) {
    for (const ListKind* const kind : {&history, &favorites, &watchList})
        addGroup(app, chosen, *kind);
}

}  // namespace KestrinProfileCLI
