#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "../Batch.hpp"
#include "../Confirmation.hpp"
#include "../Format.hpp"
#include "../Later.hpp"
#include "../Profiles.hpp"
#include "../Results.hpp"
#include "../Watch.hpp"
#include "Commands.hpp"

namespace KestrinProfileCLI {

using HalvardSling::Observable;
using HalvardSling::Response;
using KestrinHousehold::LaterSession;
using KestrinHousehold::OutboxEntry;
using KestrinHousehold::ProfileSession;
using KestrinProfile::Types;
using KestrinProfile::UserProfile;
using KestrinProfile::UserProfileElement;

namespace {

using Read = Observable<UserProfile> (ProfileSession::*)() const;

/// The operations that change a list, as an actor has them: at once or later.
template <class Actor, class Result>
struct Changes {
    Observable<Result> (Actor::*add)(std::string) const;  ///< null: with the progress
    Observable<Result> (Actor::*remove)(std::string) const;
    Observable<Result> (Actor::*clear)() const;
};

/// One of a profile's lists: its words, and the operations of a session.
struct ListKind {
    const char* command;
    const char* description;
    const char* name;      ///< in a sentence
    const char* item;      ///< the heading of its identifiers
    const char* argument;  ///< an identifier on the command line
    const char* argumentText;
    Read read;
    Changes<ProfileSession, Response> now;
    Changes<LaterSession, OutboxEntry> later;
};

constexpr const char* aVideo = "The identifier of a video";
constexpr const char* aShow = "The identifier of a show";

// clang-format off
constexpr ListKind history{
    "history", "What a profile has watched", "the history",
    "VIDEO", "VIDEO_ID", aVideo,
    &ProfileSession::history,
    {nullptr, &ProfileSession::deleteVideoHistory, &ProfileSession::clearHistory},
    {nullptr, &LaterSession::deleteVideoHistory, &LaterSession::clearHistory}};
constexpr ListKind favorites{
    "favorites", "The shows that a profile likes", "the favorites",
    "SHOW", "SHOW_ID", aShow,
    &ProfileSession::favorites,
    {&ProfileSession::addFavoriteShow, &ProfileSession::deleteFavoriteShow,
     &ProfileSession::clearFavorites},
    {&LaterSession::addFavoriteShow, &LaterSession::deleteFavoriteShow,
     &LaterSession::clearFavorites}};
constexpr ListKind watchList{
    "watchlist", "The videos that a profile wants to watch", "the watch list",
    "VIDEO", "VIDEO_ID", aVideo,
    &ProfileSession::watchList,
    {&ProfileSession::addWatchListVideo, &ProfileSession::deleteWatchListVideo,
     &ProfileSession::clearWatchList},
    {&LaterSession::addWatchListVideo, &LaterSession::deleteWatchListVideo,
     &LaterSession::clearWatchList}};
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
    std::string fields;
    bool isConfirmed = false;
    std::string videoID;
    BatchOptions batch;
    Watched watched;
    LaterOptions later;
};
using Shared = std::shared_ptr<ListOptions>;

bool hasProgress(const ListKind& kind) {
    return &kind == &history;
}

ListFormat formatOf(const ListOptions& options) {
    return {options.kind.item, hasProgress(options.kind), options.utc,
            fieldsOf(options.fields, keysOfEntries(hasProgress(options.kind)))};
}

ExitCode list(Session& session, const ListOptions& options) {
    const ListFormat format = formatOf(options);
    session.configure();
    const auto acting = actingProfileOfBrand(session);
    return show(session, options.watch, [&] {
        return linesOf(session, session.waitFor((acting.*options.kind.read)()), format);
    });
}

ExitCode progress(Session& session, const ListOptions& options) {
    const ListFormat format = formatOf(options);
    session.configure();
    const auto acting = actingProfileOfBrand(session);
    const auto found = session.waitFor(acting.videoHistory(options.videoID));
    if (found.elements && found.elements->empty())
        throw CommandError({ExitCode::notFound,
                            fmt::format("the history has no video '{}'", options.videoID),
                            "see what it has: kestrin-profile history list"});
    for (const auto& line : linesOf(session, found, format))
        session.terminal.line(line);
    return ExitCode::ok;
}

std::chrono::seconds progressOf(const Watched& watched) {
    if (const auto seconds = durationOf(watched.progress)) return std::chrono::seconds(*seconds);
    throw CommandError({ExitCode::usage, fmt::format("'{}' is not a time", watched.progress),
                        "give --progress in seconds, or as m:ss or h:mm:ss"});
}

ExitCode add(Session& session, const ListOptions& options) {
    const ListKind& kind = options.kind;
    const bool isWatched = kind.now.add == nullptr;
    const auto progress = isWatched ? progressOf(options.watched) : std::chrono::seconds(0);
    session.configure();
    const auto items = readBatchItems(options.batch.items, session.interruption());
    const auto acting = actingProfileOfBrand(session);
    const auto adding = [&](const auto& actor, const auto& changes, const std::string& item) {
        return isWatched ? actor.addHistoryVideo(item, progress, options.watched.isComplete)
                         : (actor.*changes.add)(item);
    };
    if (isLater(session, options.later))
        return keepLater(session, options.later, acting, items,
                         [&](const LaterSession& later, const std::string& item) {
                             return adding(later, kind.later, item);
                         });
    const auto request = [&](const std::string& item) { return adding(acting, kind.now, item); };
    return runBatch(session, acting, options.batch, items,
                    {request, "added", fmt::format("to {}", kind.name)});
}

/// Whether the list has an item, which the service does not say when it removes it. It is asked
/// for before, once; empty if the list cannot be had.
std::function<bool(const std::string& item)> isThere(Session& session, const ProfileSession& acting,
                                                     const ListKind& kind) {
    if (session.options.dryRun) return {};
    std::set<std::string> there;
    try {
        const auto found = session.waitFor((acting.withoutRepeats().*kind.read)());
        if (!found.elements) return {};
        for (const auto& element : *found.elements)
            there.insert(element.id.value_or(""));
    } catch (const std::exception&) {
        session.interruption().check();
        return {};  // The removal says what is wrong.
    }
    return [there = std::move(there)](const std::string& item) { return there.contains(item); };
}

ExitCode remove(Session& session, const ListOptions& options) {
    session.configure();
    const auto items = readBatchItems(options.batch.items, session.interruption());
    const auto acting = actingProfileOfBrand(session);
    if (isLater(session, options.later))
        return keepLater(session, options.later, acting, items, options.kind.later.remove);
    const auto request = [&](const std::string& item) {
        return (acting.*options.kind.now.remove)(item);
    };
    return runBatch(session, acting, options.batch, items,
                    {request, "removed", fmt::format("from {}", options.kind.name),
                     isThere(session, acting, options.kind)});
}

ExitCode clear(Session& session, const ListOptions& options) {
    session.configure();
    static_cast<void>(brandOf(session));  // before anybody is asked
    confirm(
        session, options.isConfirmed,
        fmt::format("clear {} of the profile '{}'", options.kind.name, actingProfileName(session)));
    const auto acting = actingProfileOfBrand(session);
    if (isLater(session, options.later))
        return keepLater(session, options.later, acting, options.kind.name,
                         options.kind.later.clear);
    const auto reply = session.waitFor((acting.*options.kind.now.clear)());
    printDone(session, reply, fmt::format("cleared {}", options.kind.name));
    return ExitCode::ok;
}

ExitCode addMany(Session& session, const ListOptions& options) {
    session.configure();
    const auto items = readBatchItems(options.batch.items, session.interruption());
    std::vector<UserProfileElement> elements;
    for (const auto& item : items)
        elements.emplace_back(item.text, Types::show);
    const auto acting = actingProfileOfBrand(session);
    if (isLater(session, options.later))
        return keepLater(
            session, options.later, acting, options.kind.name,
            [&](const LaterSession& later) { return later.addFavoriteShows(elements); });
    const auto reply = session.waitFor(acting.addFavoriteShows(elements));
    printDone(session, reply,
              fmt::format("added {} in one request to the favorites", items.size()));
    return ExitCode::ok;
}

void addFormat(CLI::App& command, ListOptions& options) {
    command.add_flag("--utc", options.utc, "Show dates in UTC instead of the local time zone");
    addFields(command, options.fields, keysOfEntries(hasProgress(options.kind)));
}

void addListing(CLI::App& group, Command& chosen, const Shared& options) {
    auto& command = *group.add_subcommand("list", "Show the list, the latest entry first");
    addWatch(command, options->watch);
    addFormat(command, *options);
    onChosen(command, chosen, options, &list);
}

void addProgress(CLI::App& group, Command& chosen, const Shared& options) {
    auto& command = *group.add_subcommand("progress", "Show how far one video was watched");
    command.add_option(options->kind.argument, options->videoID, options->kind.argumentText)
        ->required()
        ->type_name("");
    addFormat(command, *options);
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
    addLater(command, options->later);
    onChosen(command, chosen, options, &add);
}

void addAddingMany(CLI::App& group, Command& chosen, const Shared& options) {
    auto& command = *group.add_subcommand(
        "add-many", "Add entries, all in one request; the last one is in front");
    addBatchItems(command, options->batch.items, options->kind.argument,
                  options->kind.argumentText);
    addLater(command, options->later);
    onChosen(command, chosen, options, &addMany);
}

void addRemoving(CLI::App& group, Command& chosen, const Shared& options) {
    auto& command = *group.add_subcommand("remove", "Remove entries, one request each");
    addBatch(command, options->batch, options->kind.argument, options->kind.argumentText);
    addLater(command, options->later);
    onChosen(command, chosen, options, &remove);
}

void addClearing(CLI::App& group, Command& chosen, const Shared& options) {
    auto& command = *group.add_subcommand("clear", "Remove all entries");
    addConfirmation(command, options->isConfirmed);
    addLater(command, options->later);
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
