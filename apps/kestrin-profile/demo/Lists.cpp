#include <algorithm>
#include <array>
#include <map>

#include <fmt/format.h>

#include <KestrinProfile/service/Profile.hpp>

#include "../Format.hpp"
#include "../Results.hpp"
#include "Scenes.hpp"

namespace KestrinProfileCLI {

using HalvardSling::Observable;
using HalvardSling::Response;
using KestrinProfile::Profile;
using KestrinProfile::ProfileParams;
using KestrinProfile::SearchParams;
using KestrinProfile::Types;
using KestrinProfile::User;
using KestrinProfile::UserProfile;
using KestrinProfile::UserProfileElement;

namespace {

using Elements = std::vector<UserProfileElement>;
using Read = Observable<UserProfile> (Profile::*)(ProfileParams) const;

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
constexpr int episodesEach = 50;

/// The videos of many evenings: every episode, most of them seen to the end, the others in part.
std::vector<Video> watchedVideos() {
    constexpr int parts = 8;
    std::vector<Video> videos;
    for (int episode = 1; episode <= episodesEach; ++episode)
        for (const auto& series : allSeries) {
            const int seen = std::min(1 + static_cast<int>(videos.size() * 5 % 13), parts);
            videos.push_back({fmt::format("{}-{:02}", series.name, episode),
                              series.episodeSeconds * seen / parts, seen == parts});
        }
    return videos;
}

ProfileParams paramsFor(const Stage& stage, const Cast& cast, const User& user) {
    return ProfileParams(bindOf(stage, user), cast.brand);
}

/// Anna's list, which the reply has to hold.
UserProfile listOf(const Stage& stage, const Cast& cast, Read read) {
    auto list = stage.await((Profile().*read)(paramsFor(stage, cast, cast.anna)));
    Stage::require(list.elements && list.maxSize, "the reply holds a list and its size");
    return list;
}

std::vector<std::string> idsOf(const Elements& elements) {
    std::vector<std::string> ids;
    for (const auto& element : elements)
        ids.push_back(element.id.value_or(""));
    return ids;
}

/// How many of so many added entries a list keeps.
std::size_t keptOf(std::size_t added, const UserProfile& list) {
    return std::min(added, static_cast<std::size_t>(std::max<std::int64_t>(*list.maxSize, 0)));
}

void addFavorite(const Stage& stage, ProfileParams params, const char* show) {
    params.showID = show;
    static_cast<void>(stage.await(Profile().addFavoriteShow(std::move(params))));
}

std::string likeShows(const Stage& stage, const Cast& cast) {
    const auto params = paramsFor(stage, cast, cast.anna);
    addFavorite(stage, params, allSeries[0].name);
    addFavorite(stage, params, allSeries[1].name);
    const auto before = stage.sent();
    auto many = params;
    many.elements.emplace();
    for (std::size_t index = 2; index < allSeries.size(); ++index)
        many.elements->emplace_back(allSeries.at(index).name, Types::show);
    static_cast<void>(stage.await(Profile().addFavoriteShows(many)));
    Stage::require(stage.sent() == before + 1, "many are added with one request");

    std::vector<std::string> expected;
    for (const auto& series : allSeries)
        expected.insert(expected.begin(), series.name);
    const auto list = listOf(stage, cast, &Profile::requestFavorites);
    expected.resize(keptOf(expected.size(), list));
    Stage::require(idsOf(*list.elements) == expected, "the latest favourite is in front");
    return fmt::format("2 one by one, {} at once with one request; in front: {}",
                       many.elements->size(), expected.front());
}

Observable<Response> recordingOf(ProfileParams params, const Video& video) {
    params.videoID = video.id;
    params.progress = video.progress;
    params.isComplete = video.isCompleted;
    return Profile().addHistoryVideo(std::move(params));
}

bool isNewestFirst(const Elements& elements) {
    return std::ranges::is_sorted(elements, std::ranges::greater(),
                                  &UserProfileElement::autoAddTimestamp);
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
    const auto params = paramsFor(stage, cast, cast.anna);
    const auto videos = watchedVideos();
    stage.awaitAll(videos.size(), requestsAtOnce,
                   [&](std::size_t index) { return recordingOf(params, videos.at(index)); });
    Stage::require(stage.mostInFlight() == requestsAtOnce, "so many requests were in flight");

    const auto list = listOf(stage, cast, &Profile::requestHistory);
    Stage::require(list.elements->size() == keptOf(videos.size(), list),
                   "the list keeps as many as it holds");
    Stage::require(holdsOnly(*list.elements, videos), "each has the progress that was recorded");
    Stage::require(isNewestFirst(*list.elements), "the newest is in front");
    return fmt::format(
        "{} videos, {} requests in flight; the list keeps the newest {}, each with "
        "its progress",
        videos.size(), requestsAtOnce, list.elements->size());
}

std::string seeAgain(const Stage& stage, const Cast& cast) {
    const auto before = listOf(stage, cast, &Profile::requestHistory);
    const Video again{*before.elements->back().id, 754, false};
    static_cast<void>(stage.await(recordingOf(paramsFor(stage, cast, cast.anna), again)));
    const auto after = listOf(stage, cast, &Profile::requestHistory);

    auto expected = idsOf(*before.elements);
    std::ranges::rotate(expected, expected.end() - 1);
    Stage::require(idsOf(*after.elements) == expected, "it moves to the front, the others stay");
    Stage::require(after.elements->front().progress == again.progress, "its progress is new");
    return fmt::format("{} was the last of {} and is in front, at {}", again.id, expected.size(),
                       durationText(again.progress));
}

std::string askForOne(const Stage& stage, const Cast& cast) {
    const auto history = listOf(stage, cast, &Profile::requestHistory);
    const UserProfileElement& known = history.elements->back();
    auto params = paramsFor(stage, cast, cast.anna);
    params.videoID = known.id;
    const auto found = stage.await(Profile().requestVideoHistory(params));
    Stage::require(found.elements == Elements{known},
                   "the entry of this video comes, and no other");
    return fmt::format("{} was watched to {}{}", *known.id,
                       durationText(known.progress.value_or(0)),
                       known.isCompleted == true ? ", the end" : "");
}

void addToWatchList(const Stage& stage, ProfileParams params, const std::string& videoID) {
    params.videoID = videoID;
    static_cast<void>(stage.await(Profile().addWatchListVideo(std::move(params))));
}

/// Watches a video of the watch list to its end: it goes to the history and off the list.
void watchToTheEnd(const Stage& stage, const Cast& cast, const std::string& videoID) {
    auto params = paramsFor(stage, cast, cast.anna);
    static_cast<void>(stage.await(recordingOf(params, {videoID, 5400, true})));
    params.videoID = videoID;
    static_cast<void>(stage.await(Profile().deleteWatchListVideo(params)));
}

std::string workOffWatchList(const Stage& stage, const Cast& cast) {
    const auto params = paramsFor(stage, cast, cast.anna);
    for (int film = 1; film <= 5; ++film)
        addToWatchList(stage, params, fmt::format("film-{}", film));
    auto open = idsOf(*listOf(stage, cast, &Profile::requestWatchList).elements);
    const std::size_t count = open.size();
    for (; !open.empty(); open.pop_back()) {
        const auto list = listOf(stage, cast, &Profile::requestWatchList);
        Stage::require(idsOf(*list.elements) == open, "what was not watched is still on the list");
        watchToTheEnd(stage, cast, open.back());
    }
    Stage::require(listOf(stage, cast, &Profile::requestWatchList).elements->empty(),
                   "the list is empty in the end");
    const auto history = listOf(stage, cast, &Profile::requestHistory);
    Stage::require(history.elements->front().id == "film-5", "the last film heads the history");
    addToWatchList(stage, params, "film-6");
    addToWatchList(stage, params, "film-7");
    return fmt::format("{} films, each removed as it was watched; 2 more for tomorrow", count);
}

std::string search(const Stage& stage, const Cast& cast) {
    constexpr std::array texts{"detective", "Grüße & Küsse?", "50% = half/double", "夜"};
    const auto bind = bindOf(stage, cast.anna);
    for (const auto* const text : texts)
        static_cast<void>(stage.await(
            Profile().addSearchHistory(SearchParams(text, Types::none, bind, cast.brand))));
    // The deletion takes the selected profile's bind, which is Anna's by now.
    const auto reply = stage.await(Profile().deleteSearchHistory(cast.brand));
    return fmt::format(
        "{} recorded ({}), then all deleted: status {}; the service has no "
        "operation that reads them",
        texts.size(), fmt::join(texts, ", "), reply.status());
}

}  // namespace

void playLists(Stage& stage, const Cast& cast) {
    stage.scene(*cast.anna.username + "'s evening");
    stage.step("shows become favourites", [&] { return likeShows(stage, cast); });
    stage.step("a history with progress", [&] { return recordHistory(stage, cast); });
    stage.step("a video is seen again", [&] { return seeAgain(stage, cast); });
    stage.step("how far was it watched?", [&] { return askForOne(stage, cast); });
    stage.step("a watch list is worked off", [&] { return workOffWatchList(stage, cast); });
    stage.step("searches are recorded and deleted", [&] { return search(stage, cast); });
}

void showLists(const Stage& stage, const Cast& cast) {
    const auto show = [&](const char* title, Read read, const ListLook& look) {
        stage.show(title, linesOf(stage.session(), listOf(stage, cast, read), look));
    };
    stage.show("The household", linesOf(stage.session(), profilesOf(stage)));
    show("Favourites", &Profile::requestFavorites, {"SHOW"});
    show("History", &Profile::requestHistory, {"VIDEO", true});
    show("Watch list", &Profile::requestWatchList, {"VIDEO"});
}

}  // namespace KestrinProfileCLI
