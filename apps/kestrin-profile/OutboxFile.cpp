#include "OutboxFile.hpp"

#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include <fmt/format.h>

#include <KestrinHousehold/outbox/HouseholdDelivery.hpp>
#include <KestrinHousehold/outbox/SQLiteOutboxStore.hpp>
#include <KestrinProfile/model/DateFormatter.hpp>

#include "CurlCommand.hpp"
#include "Paths.hpp"
#include "PrivateDirectories.hpp"

namespace KestrinProfileCLI {

namespace fs = std::filesystem;
using HalvardSling::JSONDictionary;
using KestrinHousehold::HouseholdDelivery;
using KestrinHousehold::Outbox;
using KestrinHousehold::OutboxEntry;
using KestrinHousehold::OutboxOptions;
using KestrinHousehold::OutboxWrite;
using KestrinHousehold::SQLiteOutboxStore;
using KestrinProfile::ProfileOperation;
using Kind = KestrinHousehold::OutboxEvent::Kind;

fs::path outboxFile(const Session& session) {
    const fs::path base = stateDirectory();
    const fs::path file = outboxFileFor(session.configurationFile());
    if (const auto refusal = makePrivateDirectories(base, file.parent_path()))
        throw CommandError({ExitCode::serviceError, "the outbox cannot be used: " + *refusal,
                            "mend the directory, or do without --later"});
    return base / file;
}

/// What has happened; guarded by the interruption's lock.
struct OpenOutbox::Log {
    std::map<Number, Event> fates;
    std::set<std::string> withoutBind;  // profiles whose entries wait for one
    bool isSettled = false;
    bool isStuck = false;  // the disk takes nothing

    void add(const Event& event) {
        if (event.kind == Kind::storeFailed) isStuck = true;
        // That it was refused is what counts, and that it was so before this run does not.
        if (event.entry.number == 0 || event.kind == Kind::forgotten) return;
        fates.insert_or_assign(event.entry.number, event);
        if (event.kind == Kind::waitsForBind) withoutBind.insert(event.entry.write.profileID);
        const bool hasBind = event.kind == Kind::sent || event.kind == Kind::delayed;
        if (hasBind) withoutBind.erase(event.entry.write.profileID);
    }
};

OpenOutbox::OpenOutbox(Session& session) : session_(session), log_(std::make_shared<Log>()) {
    OutboxOptions options;
    options.log = [log = log_, &session](const Event& event) {
        session.interruption().notify([&] { log->add(event); });
        if (event.kind == Kind::storeFailed)
            session.terminal.note("warning: the outbox: " + printable(event.text));
        else if (session.options.verbose && !event.text.empty())
            session.terminal.note(
                printable(fmt::format("outbox, entry {}: {}", event.entry.number, event.text)));
    };
    outbox_ = std::make_shared<Outbox>(
        std::make_shared<SQLiteOutboxStore>(outboxFile(session), outboxPatience),
        std::make_shared<HouseholdDelivery>(session.household()), session.household().scheduler(),
        std::move(options));
    for (const auto& warning : session.waitFor(outbox_->opening()).warnings)
        session.terminal.note("warning: " + printable(warning));
}

void OpenOutbox::settle(std::optional<std::chrono::duration<double>> time) const {
    auto& interruption = session_.interruption();
    const auto log = log_;
    interruption.notify([&] { log->isSettled = false; });
    const auto settled = [log, &interruption] {
        interruption.notify([&] { log->isSettled = true; });
    };
    outbox_->settled().subscribe([](const auto&) {}, [settled](const auto&) { settled(); },
                                 settled);
    const auto isSettled = [&] { return log->isSettled || log->isStuck; };
    static_cast<void>(time ? interruption.waitFor(*time, isSettled) : interruption.wait(isSettled));
}

void OpenOutbox::drain(std::chrono::duration<double> time) const {
    static_cast<void>(session_.interruption().waitFor(time, [this] {
        return std::ranges::all_of(outbox_->entries(), [this](const OutboxEntry& entry) {
            return log_->withoutBind.contains(entry.write.profileID);
        });
    }));
    settle(std::nullopt);
}

void OpenOutbox::close() {
    outbox_.reset();
}

std::map<OpenOutbox::Number, OpenOutbox::Event> OpenOutbox::fates() const {
    std::map<Number, Event> fates;
    session_.interruption().notify([&] { fates = log_->fates; });
    return fates;
}

void Tally::add(const OpenOutbox::Event* fate) {
    switch (fate == nullptr ? Kind::delayed : fate->kind) {
        case Kind::sent:
            ++sent;
            return;
        case Kind::superseded:
            ++superseded;
            return;
        case Kind::droppedAsStale:
            ++stale;
            return;
        case Kind::expired:
            ++expired;
            return;
        case Kind::refused:
            ++refused;
            return;
        default:
            break;
    }
    ++waiting;
    if (fate == nullptr || !reason.empty()) return;
    reason = fate->text;
    waitsForBind = fate->kind == Kind::waitsForBind;
}

std::string Tally::text() const {
    const std::array<std::pair<std::size_t, const char*>, 6> counts{
        {{sent, "sent"},
         {superseded, "superseded"},
         {stale, "dropped, as the service has something newer"},
         {expired, "dropped, as too old"},
         {refused, "refused"},
         {waiting, willBeSent}}};
    std::vector<std::string> texts;
    for (const auto& [count, what] : counts)
        if (count > 0) texts.push_back(fmt::format("{} {}", count, what));
    return texts.empty() ? "nothing" : joined(texts, ", ");
}

void Tally::addTo(JSONDictionary& document) const {
    const auto set = [&](const char* key, std::size_t count) {
        document.setInteger(key, static_cast<std::int64_t>(count));
    };
    set("sent", sent);
    set("superseded", superseded);
    set("stale", stale);
    set("expired", expired);
    set("refused", refused);
    set("waiting", waiting);
}

namespace {

struct Words {
    ProfileOperation operation;
    const char* words;
};

constexpr std::array words{
    Words{ProfileOperation::addVideoToHistory, "history add"},
    Words{ProfileOperation::removeVideoFromHistory, "history remove"},
    Words{ProfileOperation::clearHistory, "history clear"},
    Words{ProfileOperation::addFavoriteShow, "favorites add"},
    Words{ProfileOperation::addFavoriteShows, "favorites add-many"},
    Words{ProfileOperation::removeFavoriteShow, "favorites remove"},
    Words{ProfileOperation::clearFavorites, "favorites clear"},
    Words{ProfileOperation::addVideoToWatchList, "watchlist add"},
    Words{ProfileOperation::removeFromWatchList, "watchlist remove"},
    Words{ProfileOperation::clearWatchList, "watchlist clear"},
    Words{ProfileOperation::addSearchHistory, "search add"},
    Words{ProfileOperation::deleteSearchHistory, "search delete"},
};

std::vector<std::string> showsOf(const OutboxWrite& write) {
    std::vector<std::string> shows;
    for (const auto& show : write.shows)
        shows.push_back(show.id.value_or(""));
    return shows;
}

}  // namespace

std::string wordsOf(const OutboxWrite& write) {
    const auto found = std::ranges::find(words, write.operation, &Words::operation);
    std::vector<std::string> all{found == words.end() ? std::string(rawValue(write.operation))
                                                      : std::string(found->words)};
    if (!write.itemID.empty()) all.push_back(shellQuoted(write.itemID));
    for (const auto& show : showsOf(write))
        all.push_back(shellQuoted(show));
    return joined(all, " ");
}

JSONDictionary documentOf(const OutboxEntry& entry) {
    const KestrinProfile::DateFormatter& dates = KestrinProfile::DateFormatter::iso8601();
    const OutboxWrite& write = entry.write;
    JSONDictionary document;
    document.setInteger("number", entry.number);
    document.setText("profileId", write.profileID);
    document.setText("brand", write.brandID);
    document.setText("operation", rawValue(write.operation));
    if (!write.itemID.empty()) document.setText("item", write.itemID);
    if (!write.shows.empty()) document.setTexts("shows", showsOf(write));
    if (write.progress) document.setInteger("progress", *write.progress);
    if (write.isComplete) document.setBoolean("isCompleted", *write.isComplete);
    const auto date = [&](const char* key, KestrinHousehold::Scheduler::WallTime time) {
        document.setText(key, dates.text(std::chrono::floor<std::chrono::microseconds>(time)));
    };
    date("acceptedAt", entry.acceptedAt);
    if (!entry.refusal) return document;
    date("refusedAt", entry.refusal->at);
    document.setInteger("status", entry.refusal->status);
    document.setText("title", entry.refusal->title);
    document.setText("detail", entry.refusal->detail);
    return document;
}

std::string textOf(const KestrinHousehold::OutboxRefusal& refusal) {
    std::string text = refusal.status == 0 ? std::string("it could not be made")
                                           : fmt::format("status {}", refusal.status);
    if (!refusal.title.empty()) text += ", " + refusal.title;
    if (!refusal.detail.empty()) text += ": " + refusal.detail;
    return text;
}

}  // namespace KestrinProfileCLI
