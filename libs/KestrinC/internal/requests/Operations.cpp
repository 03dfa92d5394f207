#include <array>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>

#include <KestrinC/internal/requests/Operations.hpp>
#include <KestrinProfile/service/Profile.hpp>
#include <internal/Table.hpp>

namespace KestrinC::internal {

namespace {

using KestrinHousehold::LaterSession;
using KestrinHousehold::ProfileSession;
using KestrinProfile::Profile;
using KestrinProfile::ProfileOperation;
using KestrinProfile::ProfileParams;
using KestrinProfile::SearchParams;
using KestrinProfile::Types;
using KestrinProfile::User;
using KestrinProfile::UserParams;

// ---- What a method is called with --------------------------------------------------------------

// A field that the operation needs, and that was checked; or one that may be absent.
const std::string& argument(const std::optional<std::string>& value) {
    return *value;
}
std::chrono::seconds argument(const std::optional<std::int64_t>& value) {
    return std::chrono::seconds(*value);
}
std::optional<bool> argument(const std::optional<bool>& value) {
    return value;
}
const User& argument(const std::optional<User>& value) {
    return *value;
}
const std::vector<KestrinProfile::UserProfileElement>& argument(
    const std::optional<std::vector<KestrinProfile::UserProfileElement>>& value) {
    return *value;
}

// The record that a plain operation takes.
void fill(std::optional<ProfileParams>& params, const GivenBind& bind, const Call& call) {
    params = call.brandID ? ProfileParams(bind, call.brandID) : ProfileParams(bind);
    params->videoID = call.videoID;
    params->showID = call.showID;
    params->elements = call.shows;
    if (call.progress) read(*call.progress, params->progress.emplace(), Path("call.progress"));
    params->isComplete = call.isComplete;
    params->userName = call.userName;
}
void fill(std::optional<UserParams>& params, const GivenBind& bind, const Call& call) {
    params.emplace(bind, call.user);
    // The one operation that names the profile alone.
    if (call.operation == ProfileOperation::deleteProfile) params->user.emplace(*call.profileID);
}
void fill(std::optional<SearchParams>& params, const GivenBind& bind, const Call& call) {
    if (call.brandID)
        params.emplace(*call.search, Types::none, bind, call.brandID);
    else
        params.emplace(*call.search, Types::none, bind);
}

template <class Method>
struct ClassOf;
template <class Result, class Class, class... Arguments>
struct ClassOf<Result (Class::*)(Arguments...) const> {
    using Type = Class;
};
template <class Method>
struct ParameterOf;
template <class Result, class Parameter>
struct ParameterOf<Result (Profile::*)(Parameter) const> {
    using Type = Parameter;
};

template <class Source>
using Start = void (*)(const Source& source, const Call& call, Request& request);

/// Calls a method of a session with fields of the call.
template <auto method, auto... fields>
void on(const typename ClassOf<decltype(method)>::Type& session, const Call& call,
        Request& request) {
    request.subscribeTo((session.*method)(argument(call.*fields)...));
}

/// Calls a method of `Profile` with its record.
template <auto method>
void plain(const GivenBind& bind, const Call& call, Request& request) {
    std::optional<typename ParameterOf<decltype(method)>::Type> params;
    fill(params, bind, call);
    request.subscribeTo((Profile().*method)(std::move(*params)));
}

void refuseBind(const GivenBind& bind) {
    if (bind)
        throw Refused(KESTRIN_INVALID_ARGUMENT, "bind is not NULL, but the operation takes none");
}

void plainBind(const GivenBind& bind, const Call& call, Request& request) {
    refuseBind(bind);
    request.subscribeTo(call.profileID ? Profile().requestAnonymousBind(call.profileID)
                                       : Profile().requestAnonymousBind());
}
void plainProfiles(const GivenBind& bind, const Call& /*call*/, Request& request) {
    request.subscribeTo(Profile().getProfiles(bind));
}
void plainSearchDeletion(const GivenBind& bind, const Call& call, Request& request) {
    refuseBind(bind);
    const auto brandID = call.brandID ? call.brandID : ProfileParams().brandID;
    request.subscribeTo(Profile().deleteSearchHistory(brandID.value_or(std::string())));
}

// ---- The table ----------------------------------------------------------------------------------

/// A field that an operation needs.
struct Need {
    const char* name = nullptr;
    bool (*isThere)(const Call& call) = nullptr;
};

template <auto field>
bool has(const Call& call) {
    return (call.*field).has_value();
}

constexpr Need aVideo{"video_id", &has<&Call::videoID>};
constexpr Need aShow{"show_id", &has<&Call::showID>};
constexpr Need aName{"user_name", &has<&Call::userName>};
constexpr Need aSearch{"search", &has<&Call::search>};
constexpr Need aProfile{"profile_id", &has<&Call::profileID>};
constexpr Need aUser{"user", &has<&Call::user>};
constexpr Need shows{"shows", &has<&Call::shows>};
constexpr Need progress{"progress", &has<&Call::progress>};

struct Row {
    ProfileOperation operation;
    std::array<Need, 2> needs;
    Start<GivenBind> plain;
    Start<ProfileSession> session;
    Start<LaterSession> later;  ///< null: no outbox keeps it
};

using enum ProfileOperation;
using S = ProfileSession;
using L = LaterSession;
using P = Profile;
using C = Call;

constexpr auto rows = std::to_array<Row>({
    {testOperation, {}, nullptr, nullptr, nullptr},
    {anonymousBind, {}, &plainBind, &on<&S::bind>, nullptr},
    {validate,
     {aName},
     &plain<&P::validateProfileName>,
     &on<&S::validateProfileName, &C::userName>,
     nullptr},
    {createProfile, {aUser}, &plain<&P::createProfile>, &on<&S::createProfile, &C::user>, nullptr},
    {getProfiles, {}, &plainProfiles, &on<&S::profiles>, nullptr},
    {editProfile, {aUser}, &plain<&P::editProfile>, &on<&S::editProfile, &C::user>, nullptr},
    {deleteProfile,
     {aProfile},
     &plain<&P::deleteProfile>,
     &on<&S::deleteProfile, &C::profileID>,
     nullptr},
    {getHistory, {}, &plain<&P::requestHistory>, &on<&S::history>, nullptr},
    {getVideoProgress,
     {aVideo},
     &plain<&P::requestVideoHistory>,
     &on<&S::videoHistory, &C::videoID>,
     nullptr},
    {addVideoToHistory,
     {aVideo, progress},
     &plain<&P::addHistoryVideo>,
     &on<&S::addHistoryVideo, &C::videoID, &C::progress, &C::isComplete>,
     &on<&L::addHistoryVideo, &C::videoID, &C::progress, &C::isComplete>},
    {removeVideoFromHistory,
     {aVideo},
     &plain<&P::deleteVideoHistory>,
     &on<&S::deleteVideoHistory, &C::videoID>,
     &on<&L::deleteVideoHistory, &C::videoID>},
    {clearHistory, {}, &plain<&P::clearHistory>, &on<&S::clearHistory>, &on<&L::clearHistory>},
    {getFavorites, {}, &plain<&P::requestFavorites>, &on<&S::favorites>, nullptr},
    {addFavoriteShow,
     {aShow},
     &plain<&P::addFavoriteShow>,
     &on<&S::addFavoriteShow, &C::showID>,
     &on<&L::addFavoriteShow, &C::showID>},
    {addFavoriteShows,
     {shows},
     &plain<&P::addFavoriteShows>,
     &on<&S::addFavoriteShows, &C::shows>,
     &on<&L::addFavoriteShows, &C::shows>},
    {removeFavoriteShow,
     {aShow},
     &plain<&P::deleteFavoriteShow>,
     &on<&S::deleteFavoriteShow, &C::showID>,
     &on<&L::deleteFavoriteShow, &C::showID>},
    {clearFavorites,
     {},
     &plain<&P::clearFavorites>,
     &on<&S::clearFavorites>,
     &on<&L::clearFavorites>},
    {getWatchList, {}, &plain<&P::requestWatchList>, &on<&S::watchList>, nullptr},
    {addVideoToWatchList,
     {aVideo},
     &plain<&P::addWatchListVideo>,
     &on<&S::addWatchListVideo, &C::videoID>,
     &on<&L::addWatchListVideo, &C::videoID>},
    {removeFromWatchList,
     {aVideo},
     &plain<&P::deleteWatchListVideo>,
     &on<&S::deleteWatchListVideo, &C::videoID>,
     &on<&L::deleteWatchListVideo, &C::videoID>},
    {clearWatchList,
     {},
     &plain<&P::clearWatchList>,
     &on<&S::clearWatchList>,
     &on<&L::clearWatchList>},
    {addSearchHistory,
     {aSearch},
     &plain<&P::addSearchHistory>,
     &on<&S::addSearchHistory, &C::search>,
     &on<&L::addSearchHistory, &C::search>},
    {deleteSearchHistory,
     {},
     &plainSearchDeletion,
     &on<&S::deleteSearchHistory>,
     &on<&L::deleteSearchHistory>},
});

static_assert(rows.size() == KestrinProfile::profileOperationCount);
static_assert(KestrinInternal::isInOrder(rows, &Row::operation));

template <class Source>
void startBy(Start<Source> Row::* column, const Source& source, const Call& call,
             Request& request) {
    const Row& row = KestrinInternal::rowOf(rows, call.operation);
    if (row.*column == nullptr)
        throw Refused(KESTRIN_INVALID_ARGUMENT,
                      "call.operation is " + std::to_string(static_cast<int>(call.operation)) +
                          ", which cannot be done here");
    for (const Need& need : row.needs)
        if (need.isThere != nullptr && !need.isThere(call))
            throw Refused(KESTRIN_INVALID_ARGUMENT,
                          std::string("call.") + need.name + " is absent, but " +
                              std::string(rawValue(call.operation)) + " needs it");
    (row.*column)(source, call, request);
}

}  // namespace

void start(const GivenBind& bind, const Call& call, Request& request) {
    startBy(&Row::plain, bind, call, request);
}

void start(const ProfileSession& session, const Call& call, Request& request) {
    startBy(&Row::session, session, call, request);
}

void start(const LaterSession& session, const Call& call, Request& request) {
    startBy(&Row::later, session, call, request);
}

}  // namespace KestrinC::internal
