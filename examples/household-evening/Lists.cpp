#include <algorithm>
#include <array>
#include <chrono>
#include <map>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <KestrinProfile/model/UserProfile.hpp>

#include "Scenes.hpp"

namespace HouseholdEvening {

using KestrinProfile::Types;
using KestrinProfile::UserProfile;
using KestrinProfile::UserProfileElement;

namespace {

using Elements = std::vector<UserProfileElement>;
using Read = Observable<UserProfile> (ProfileSession::*)() const;

constexpr std::size_t requestsAtOnce = 16;

/// A video, how far it was watched in seconds, and whether to its end.
struct Video {
    std::string id;
    std::int64_t progress = 0;
    bool isCompleted = false;
};

struct Series {
    const char* name;
    std::int64_t episodeSeconds;
};

constexpr std::array allSeries{Series{"harbour-lights", 2640}, Series{"the-long-way", 3105},
                               Series{"night-train", 1512},    Series{"two-kitchens", 1290},
                               Series{"cold-harvest", 3480},   Series{"little-bear", 660}};

/// The videos of many evenings: 50 episodes each, most seen to the end, the others in part.
std::vector<Video> watchedVideos() {
    constexpr int parts = 8;
    std::vector<Video> videos;
    for (int episode = 1; episode <= 50; ++episode)
        for (const auto& series : allSeries) {
            const int seen = std::min(1 + static_cast<int>(videos.size() * 5 % 13), parts);
            videos.push_back({fmt::format("{}-{:02}", series.name, episode),
                              series.episodeSeconds * seen / parts, seen == parts});
        }
    return videos;
}

std::string durationText(std::int64_t seconds) {
    return fmt::format("{}:{:02}:{:02}", seconds / 3600, seconds / 60 % 60, seconds % 60);
}

/// Anna's list, which the reply has to hold.
UserProfile listOf(const Cast& cast, Read read) {
    auto list = await((cast.as(cast.anna).*read)());
    require(list.elements && list.maxSize, "the reply holds a list and its size");
    return list;
}

std::vector<std::string> idsOf(const Elements& elements) {
    std::vector<std::string> ids;
    for (const auto& element : elements)
        ids.push_back(element.id.value_or(""));
    return ids;
}

/// How many of the added entries a list keeps.
std::size_t keptOf(std::size_t added, const UserProfile& list) {
    return std::min(added, static_cast<std::size_t>(std::max<std::int64_t>(*list.maxSize, 0)));
}

std::string likeShows(const Stage& stage, const Cast& cast) {
    const auto anna = cast.as(cast.anna);
    await(anna.addFavoriteShow(allSeries[0].name));
    await(anna.addFavoriteShow(allSeries[1].name));
    const auto before = stage.sent();
    Elements others;
    for (std::size_t index = 2; index < allSeries.size(); ++index)
        others.emplace_back(allSeries.at(index).name, Types::show);
    await(anna.addFavoriteShows(others));
    require(stage.sent() == before + 1, "many are added with one request");

    std::vector<std::string> expected;
    for (const auto& series : allSeries)
        expected.insert(expected.begin(), series.name);
    const auto list = listOf(cast, &ProfileSession::favorites);
    expected.resize(keptOf(expected.size(), list));
    require(idsOf(*list.elements) == expected, "the latest favourite is in front");
    return fmt::format("2 one by one, {} at once with one request; in front: {}", others.size(),
                       expected.front());
}

Observable<Response> recordingOf(const ProfileSession& session, const Video& video) {
    return session.addHistoryVideo(video.id, std::chrono::seconds(video.progress),
                                   video.isCompleted);
}

/// Whether each entry is one of the videos, with its progress, and none is there twice.
bool holdsOnly(const Elements& elements, const std::vector<Video>& videos) {
    std::map<std::string, Video> open;
    for (const auto& video : videos)
        open.emplace(video.id, video);
    return std::ranges::all_of(elements, [&](const UserProfileElement& element) {
        const auto known = open.extract(element.id.value_or(""));
        return known && element.progress == known.mapped().progress &&
               element.isCompleted == known.mapped().isCompleted;
    });
}

std::string recordHistory(const Stage& stage, const Cast& cast) {
    const auto anna = cast.as(cast.anna);
    const auto videos = watchedVideos();
    awaitAll(videos.size(), requestsAtOnce,
             [&](std::size_t index) { return recordingOf(anna, videos.at(index)); });
    require(stage.mostInFlight() > 1 && stage.mostInFlight() <= requestsAtOnce,
            "several requests are in flight at once, and no more than were allowed");

    const auto list = listOf(cast, &ProfileSession::history);
    require(list.elements->size() == keptOf(videos.size(), list),
            "the list keeps as many as it holds");
    require(holdsOnly(*list.elements, videos), "each has the progress that was recorded");
    require(std::ranges::is_sorted(*list.elements, std::ranges::greater(),
                                   &UserProfileElement::autoAddTimestamp),
            "the newest is in front");
    return fmt::format(
        "{} videos, up to {} requests in flight; the list keeps the newest {}, each with its "
        "progress",
        videos.size(), stage.mostInFlight(), list.elements->size());
}

std::string seeAgain(const Cast& cast) {
    const auto before = listOf(cast, &ProfileSession::history);
    const Video again{*before.elements->back().id, 754, false};
    await(recordingOf(cast.as(cast.anna), again));
    const auto after = listOf(cast, &ProfileSession::history);

    auto expected = idsOf(*before.elements);
    std::ranges::rotate(expected, expected.end() - 1);
    require(idsOf(*after.elements) == expected, "it moves to the front, the others stay");
    require(after.elements->front().progress == again.progress, "its progress is new");
    return fmt::format("{} was the last of {} and is in front, at {}", again.id, expected.size(),
                       durationText(again.progress));
}

std::string askForOne(const Cast& cast) {
    const auto history = listOf(cast, &ProfileSession::history);
    const UserProfileElement& known = history.elements->back();
    const auto found = await(cast.as(cast.anna).videoHistory(known.id.value()));
    require(found.elements == Elements{known}, "the entry of this video comes, and no other");
    return fmt::format("{} was watched to {}{}", *known.id,
                       durationText(known.progress.value_or(0)),
                       known.isCompleted == true ? ", the end" : "");
}

/// Watches a video of the watch list to its end: it goes to the history and off the list.
void watchToTheEnd(const ProfileSession& session, const std::string& videoID) {
    await(recordingOf(session, {videoID, 5400, true}));
    await(session.deleteWatchListVideo(videoID));
}

std::string workOffWatchList(const Cast& cast) {
    const auto anna = cast.as(cast.anna);
    for (int film = 1; film <= 5; ++film)
        await(anna.addWatchListVideo(fmt::format("film-{}", film)));
    auto open = idsOf(*listOf(cast, &ProfileSession::watchList).elements);
    const std::size_t count = open.size();
    for (; !open.empty(); open.pop_back()) {
        require(idsOf(*listOf(cast, &ProfileSession::watchList).elements) == open,
                "what was not watched is still on the list");
        watchToTheEnd(anna, open.back());
    }
    require(listOf(cast, &ProfileSession::watchList).elements->empty(),
            "the list is empty in the end");
    require(listOf(cast, &ProfileSession::history).elements->front().id == "film-5",
            "the last film heads the history");
    await(anna.addWatchListVideo("film-6"));
    await(anna.addWatchListVideo("film-7"));
    return fmt::format("{} films, each removed as it was watched; 2 more for tomorrow", count);
}

std::string search(const Cast& cast) {
    constexpr std::array texts{"detective", "Grüße & Küsse?", "50% = half/double", "夜"};
    const auto anna = cast.as(cast.anna);
    for (const auto* const text : texts)
        await(anna.addSearchHistory(text));
    const auto reply = await(anna.deleteSearchHistory());
    return fmt::format(
        "{} recorded ({}), then all deleted: status {}; the service has no operation that reads "
        "them",
        texts.size(), fmt::join(texts, ", "), reply.status());
}

void show(const Cast& cast, const char* title, Read read) {
    constexpr std::size_t mostRows = 8;
    const auto list = listOf(cast, read);
    const Elements& elements = *list.elements;
    fmt::print("\n{}\n", title);
    for (std::size_t row = 0; row < std::min(elements.size(), mostRows); ++row) {
        const auto& element = elements[row];
        fmt::print("  {:<17}  {:>7}  {}\n", element.id.value_or("-"),
                   element.progress ? durationText(*element.progress) : "",
                   element.isCompleted == true ? "completed" : "");
    }
    if (elements.size() > mostRows) fmt::print("  … {} more\n", elements.size() - mostRows);
    fmt::print("  {} entries, {} at most\n", elements.size(), *list.maxSize);
}

}  // namespace

void playLists(Stage& stage, const Cast& cast) {
    Stage::scene(*cast.anna.username + "'s evening");
    stage.step("shows become favourites", [&] { return likeShows(stage, cast); });
    stage.step("a history with progress", [&] { return recordHistory(stage, cast); });
    stage.step("a video is seen again", [&] { return seeAgain(cast); });
    stage.step("how far was it watched?", [&] { return askForOne(cast); });
    stage.step("a watch list is worked off", [&] { return workOffWatchList(cast); });
    stage.step("searches are recorded and deleted", [&] { return search(cast); });
}

void showLists(const Cast& cast) {
    show(cast, "Favourites", &ProfileSession::favorites);
    show(cast, "History", &ProfileSession::history);
    show(cast, "Watch list", &ProfileSession::watchList);
}

}  // namespace HouseholdEvening
