// Every error of the libraries, and every fault of the development service through the library for
// every operation: what the caller sees. docs/outcomes.md shows it; KESTRIN_WRITE_OUTCOMES=1 writes
// its tables anew.

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <regex>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <HalvardSling/transport/Transport.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinHousehold/error/Error.hpp>
#include <KestrinProfile/service/Profile.hpp>
#include <kestrin-profile-server/ClientConfiguration.hpp>
#include <kestrin-profile/ExitCode.hpp>

#include "docs/Page.hpp"
#include "server/AdminSupport.hpp"
#include "support/Program.hpp"

namespace {

using KestrinProfile::Profile;
using KestrinProfile::ProfileParams;
using KestrinProfile::SearchParams;
using KestrinProfile::Types;
using KestrinProfile::User;
using KestrinProfile::UserParams;
using KestrinProfile::UserProfileElement;
using KestrinProfileServer::Route;
using KestrinProfileServer::ServiceSettings;
using KestrinProfileServer::Testing::AdminCaller;
using KestrinProfileServer::Testing::Caller;
using KestrinProfileServer::Testing::HouseholdClient;
using KestrinProfileServer::Testing::TestService;

/// What an operation ended with.
struct Ending {
    std::optional<std::exception_ptr> error{};
    bool isReply = false;         ///< whether the operation hands the reply over as it is
    std::optional<int> status{};  ///< of that reply
};

template <class Emitted>
Ending endingOf(const HalvardSling::Observable<Emitted>& source) {
    constexpr bool isReply = std::is_same_v<Emitted, HalvardSling::Response>;
    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        bool hasCome = false;
        Ending ending{};
    };
    const auto state = std::make_shared<State>();
    state->ending.isReply = isReply;
    const auto end = [state](const std::optional<std::exception_ptr>& error) {
        const std::scoped_lock lock(state->mutex);
        state->ending.error = error;
        state->hasCome = true;
        state->changed.notify_all();
    };
    source.subscribe(
        [state]([[maybe_unused]] const Emitted& emitted) {
            const std::scoped_lock lock(state->mutex);
            if constexpr (isReply) state->ending.status = emitted.status();
        },
        [end](const std::exception_ptr& error) { end(error); }, [end] { end(std::nullopt); });
    std::unique_lock lock(state->mutex);
    state->changed.wait(lock, [&] { return state->hasCome; });
    return state->ending;
}

/// Profiles beside the parent.
struct Kids {
    std::string kept;
    std::string doomed;  ///< one to delete
};

using Operation = std::function<Ending(const Profile&, const Kids&)>;

ProfileParams listParams() {
    ProfileParams params;
    params.videoID = "video";
    params.showID = "show";
    params.progress = 1;
    params.userName = "Dora";
    params.elements = {UserProfileElement("show", Types::show)};
    return params;
}

/// An operation on a list.
template <class Method>
Operation ofList(Method method) {
    return [method](const Profile& profile, const Kids&) {
        return endingOf((profile.*method)(listParams()));
    };
}

/// Every operation of `Profile` by its name.
const std::map<std::string, Operation>& operations() {
    static const std::map<std::string, Operation> all{
        {"personalization-bind-anonymous",
         [](const Profile& profile, const Kids& kids) {
             return endingOf(profile.requestAnonymousBind(kids.kept));
         }},
        {"personalization-validator", ofList(&Profile::validateProfileName)},
        {"personalization-create-profile",
         [](const Profile& profile, const Kids& kids) {
             return endingOf(profile.createProfile(
                 UserParams({}, User::withoutProfileID("X" + kids.kept.substr(0, 16), "", ""))));
         }},
        {"personalization-get-profiles",
         [](const Profile& profile, const Kids&) { return endingOf(profile.getProfiles()); }},
        {"personalization-edit-profile",
         [](const Profile& profile, const Kids& kids) {
             return endingOf(profile.editProfile(
                 UserParams({}, User(kids.kept, "Y" + kids.kept.substr(0, 16), "", ""))));
         }},
        {"personalization-delete-profile",
         [](const Profile& profile, const Kids& kids) {
             return endingOf(profile.deleteProfile(UserParams({}, User(kids.doomed, "", "", ""))));
         }},
        {"personalization-history-get", ofList(&Profile::requestHistory)},
        {"personalization-get-video-history", ofList(&Profile::requestVideoHistory)},
        {"personalization-history-add-video", ofList(&Profile::addHistoryVideo)},
        {"personalization-history-delete-video", ofList(&Profile::deleteVideoHistory)},
        {"personalization-history-clear", ofList(&Profile::clearHistory)},
        {"personalization-favorites-get", ofList(&Profile::requestFavorites)},
        {"personalization-favorites-add-show", ofList(&Profile::addFavoriteShow)},
        {"personalization-favorites-add-shows", ofList(&Profile::addFavoriteShows)},
        {"personalization-favorites-delete-show", ofList(&Profile::deleteFavoriteShow)},
        {"personalization-favorites-clear", ofList(&Profile::clearFavorites)},
        {"personalization-watchlist-get", ofList(&Profile::requestWatchList)},
        {"personalization-watchlist-add-video", ofList(&Profile::addWatchListVideo)},
        {"personalization-watchlist-delete-video", ofList(&Profile::deleteWatchListVideo)},
        {"personalization-watchlist-clear", ofList(&Profile::clearWatchList)},
        {"personalization-searchhistory-add",
         [](const Profile& profile, const Kids&) {
             return endingOf(profile.addSearchHistory(SearchParams("text")));
         }},
        {"personalization-searchhistory-delete",
         [](const Profile& profile, const Kids&) {
             return endingOf(profile.deleteSearchHistory("kestrin"));
         }},
    };
    return all;
}

/// A fault as the page calls it, and as it is set.
struct Fault {
    std::string name;
    std::string action;
};

std::vector<Fault> faults() {
    std::vector<Fault> all{{"none", ""}};
    for (const char* const status : {"400", "401", "403", "404", "409", "422", "429", "500", "503"})
        all.push_back({std::string("`status` ") + status,
                       R"("kind": "status", "status": )" + std::string(status)});
    all.push_back(
        {"`status` 302 without a place", R"("kind": "status", "status": 302, "body": "")"});
    all.push_back(
        {"`status` 200 with a page",
         R"("kind": "status", "status": 200, "contentType": "text/html", "body": "<p>")"});
    all.push_back({"`delay`", R"("kind": "delay", "milliseconds": 1)"});
    all.push_back({"`throttle`", R"("kind": "throttle", "bytesPerSecond": 1000000)"});
    for (const char* const kind : {"refuse", "resetBefore", "resetAfter", "resetMiddle",
                                   "malformed", "expiredToken", "revokedToken"})
        all.push_back({"`" + std::string(kind) + "`", R"("kind": ")" + std::string(kind) + "\""});
    all.push_back({"`truncate`", R"("kind": "truncate", "bytes": 0)"});
    all.push_back(
        {"`contentType` text/html", R"("kind": "contentType", "contentType": "text/html")"});
    all.push_back({"`clockSkew` of a day", R"("kind": "clockSkew", "seconds": 86400)"});
    return all;
}

/// The name of an error, as its type has it.
std::string nameOf(const std::exception_ptr& error) {
    return KestrinHousehold::visitError(
        error,
        [](const HalvardSling::SlingError& known) {
            const auto status = known.statusCode();
            return status ? "status " + std::to_string(*status) : std::string(name(known.kind()));
        },
        [](const std::exception& known) {
            const std::string_view text = known.what();
            return std::string(text.substr(0, text.find(':')));
        });
}

/// What is said of an error, as a row of the page has it.
std::string rowOf(const std::exception_ptr& error) {
    const auto description = KestrinHousehold::describe(error);
    const auto failure = KestrinProfileCLI::describe(error);
    const std::string_view domain = description.domain;
    return std::string(domain.substr(domain.rfind('.') + 1)) + " | " + nameOf(error) + " | " +
           std::to_string(description.code) + " | " + description.advice + " | " +
           std::string(KestrinProfile::name(KestrinHousehold::whatToShow(error))) + " | " +
           std::to_string(static_cast<int>(failure.code)) + " |\n";
}

/// Whether the service has taken a change.
bool isAcknowledged(const Ending& ending) {
    return !ending.error && ending.status.value_or(0) < 300;
}

/// What a caller sees, as a row of the page has it.
std::string rowOf(const Ending& ending) {
    if (ending.error) return rowOf(*ending.error);
    const std::string result = isAcknowledged(ending)
                                   ? "its result"
                                   : "a reply with status " + std::to_string(*ending.status);
    return result + " | – | – | – | – | 0 |\n";
}

constexpr std::array statuses{400, 401, 402, 403, 404, 405, 408, 409,
                              422, 429, 500, 501, 502, 503, 504, 511};

template <class Known>
void addCases(std::string& rows, typename Known::Case last) {
    for (int code = 0; code <= static_cast<int>(last); ++code)
        rows +=
            "| " + rowOf(std::make_exception_ptr(Known(static_cast<typename Known::Case>(code))));
}

/// A row for each error that the libraries have.
std::string allErrors() {
    using HalvardSling::SlingError;
    using HalvardSling::SlingErrorKind;
    using KestrinConfigManager::ConfigurationManagerError;
    using KestrinHousehold::OutboxError;
    using KestrinProfile::ProfileError;
    std::string rows =
        "| error | which | code | what the caller should do | what an application shows | exit "
        "code "
        "|\n|---|---|---|---|---|---|\n";
    for (const int status : statuses)
        rows += "| " + rowOf(std::make_exception_ptr(SlingError::httpStatus(status, "", {})));
    for (int kind = 1; kind <= static_cast<int>(SlingErrorKind::malformedBody); ++kind)
        rows += "| " +
                rowOf(std::make_exception_ptr(SlingError(static_cast<SlingErrorKind>(kind), "")));
    addCases<ConfigurationManagerError>(rows, ConfigurationManagerError::Case::identifierRefused);
    addCases<ProfileError>(rows, ProfileError::Case::userSerializationError);
    addCases<OutboxError>(rows, OutboxError::Case::closed);
    return rows;
}

using Names = std::vector<std::string>;

/// Names without what all of them begin with.
std::string listed(const Names& names) {
    constexpr std::string_view prefix = "personalization-";
    std::string text;
    for (const std::string& name : names)
        text += (text.empty() ? "" : ", ") + name.substr(prefix.size());
    return text;
}

/// Names that are said together, because operations of one kind tend to end in one way.
struct NameGroup {
    std::string name;
    Names members{};
};

/// The names of operations, in the fewest words.
std::string shortened(const Names& names, const std::vector<NameGroup>& groups) {
    for (const NameGroup& group : groups)
        if (group.members == names) return group.name;
    return listed(names);
}

/// The page, as far as a test writes it.
class OutcomesPage {
  public:
    OutcomesPage() : text_(TestSupport::contentOf(KESTRIN_OUTCOMES)) {}

    /// Compares a table with the page's, or writes it there.
    /// @param name  of the table, as the page's marks have it
    void expect(const std::string& name, const std::string& table) {
        const std::string begin = "<!-- " + name + ": begin -->\n";
        const std::size_t from = text_.find(begin) + begin.size();
        const std::size_t to = text_.find("<!-- " + name + ": end -->", from);
        ASSERT_NE(to, std::string::npos) << "the page has no place for " << name;
        const std::string published = text_.substr(from, to - from);
        if (std::getenv("KESTRIN_WRITE_OUTCOMES") != nullptr)
            TestSupport::write(KESTRIN_OUTCOMES, text_.replace(from, to - from, table));
        else
            EXPECT_EQ(published, table) << "KESTRIN_WRITE_OUTCOMES=1 writes the page anew";
    }

  private:
    std::string text_;
};

class Outcomes : public testing::Test {
  protected:
    Outcomes() {
        TestSupport::write(configuration, KestrinProfileServer::clientConfiguration(
                                              service.baseURL(), "kestrin", service.household()));
        manager.dropBinds();
        if (!manager.load(configuration).empty()) throw std::runtime_error("no configuration");
    }
    ~Outcomes() override {
        HalvardSling::setDefaultTransport(nullptr);
        manager.dropBinds();
        manager.removeConfiguration();
    }

    /// Acts as the parent, also after a refusal has dropped the bind.
    void holdBind() {
        manager.dropBinds();
        manager.setBindProfileID(parent.profileID);
        manager.setBindToken(parent.token);
    }

    void setFault(const Fault& fault) {
        if (!fault.action.empty())
            admin.post("/admin/v1/faults", R"({"action": {)" + fault.action + "}}");
    }
    void endFaults() { admin.send("DELETE", "/admin/v1/faults"); }

    /// The rows of one fault: operations with the same outcome in one.
    std::string rows(const Fault& fault) {
        ++rounds;
        const Kids kids{client.create(parent, "Kid " + std::to_string(rounds)).profileID,
                        client.create(parent, "Doomed " + std::to_string(rounds)).profileID};
        holdBind();
        EXPECT_TRUE(isAcknowledged(endingOf(Profile().addHistoryVideo(listParams()))));
        setFault(fault);
        std::map<std::string, Names> operationsByOutcome;
        NameGroup all{"all"};
        NameGroup withToken{"all but the bind"};
        NameGroup decoding{"those that read the reply's body"};
        NameGroup handingOver{"those that hand the reply over"};
        for (const Route& route : KestrinProfileServer::routes()) {
            const std::string name(route.operation);
            holdBind();
            const Ending ending = operations().at(name)(Profile(), kids);
            operationsByOutcome[rowOf(ending)].push_back(name);
            all.members.push_back(name);
            if (name != "personalization-bind-anonymous") withToken.members.push_back(name);
            (ending.isReply ? handingOver : decoding).members.push_back(name);
        }
        endFaults();
        std::string text;
        for (const auto& [result, names] : operationsByOutcome)
            text += "| " + fault.name + " | " +
                    shortened(names, {all, withToken, decoding, handingOver}) + " | " + result;
        return text;
    }

    KestrinConfigManager::ConfigurationManager& manager =
        KestrinConfigManager::ConfigurationManager::sharedInstance();
    TestSupport::TemporaryDirectory directory;
    std::filesystem::path configuration = directory / "config.json";
    TestService service{[](ServiceSettings& settings) {
        settings.admin.isOn = true;
        settings.limits.maxProfiles = 10'000;
        settings.tokenLifetime = std::chrono::hours(24 * 365);
        settings.clock = KestrinProfileServer::systemTime;
    }};
    AdminCaller admin{service.baseURL()};
    HouseholdClient client = service.client();
    Caller parent = client.bind("parent");
    int rounds = 0;
};

TEST(OutcomesPage, HasEveryErrorOfTheLibraries) {
    OutcomesPage().expect("errors", allErrors());
}

TEST(OutcomesPage, TheCommandLinesPageHasEveryExitCode) {
    std::vector<TestSupport::Page::Row> meanings;
    for (const auto& [code, meaning] : KestrinProfileCLI::exitCodeMeanings())
        meanings.push_back({std::to_string(static_cast<int>(code)), meaning});
    auto rows = TestSupport::Page("cli.md").tableBelow("## Exit codes");
    const std::regex link(R"(\[([^\]]*)\]\([^)]*\))");
    for (auto& row : rows)
        row.back() = std::regex_replace(row.back(), link, "$1");
    EXPECT_EQ(rows, meanings);
}

TEST_F(Outcomes, AreThoseOfThePage) {
    std::string table =
        "| fault | operations | the caller gets | which | code | what the caller should do "
        "| what an application shows | exit code |\n|---|---|---|---|---|---|---|---|\n";
    for (const Fault& fault : faults())
        table += rows(fault);
    OutcomesPage().expect("outcomes", table);
}

/// A change of a list, and where the service shows what it has made.
struct Write {
    std::string list;  ///< as the admin interface calls it
    std::string id;    ///< and its entries' identifier
    std::function<Ending(const std::string& item)> send;
};

std::vector<Write> writes() {
    const auto params = [](const std::string& item) {
        ProfileParams result = listParams();
        result.videoID = result.showID = item;
        return result;
    };
    return {{"history", "videoId",
             [=](const std::string& item) {
                 return endingOf(Profile().addHistoryVideo(params(item)));
             }},
            {"favorites", "showId",
             [=](const std::string& item) {
                 return endingOf(Profile().addFavoriteShow(params(item)));
             }},
            {"watchlist", "videoId",
             [=](const std::string& item) {
                 return endingOf(Profile().addWatchListVideo(params(item)));
             }},
            {"searches", "term", [](const std::string& item) {
                 return endingOf(Profile().addSearchHistory(SearchParams(item)));
             }}};
}

TEST_F(Outcomes, NoFaultCostsAWriteThatWasAcknowledged) {
    std::map<std::string, std::set<std::string>> acknowledged;
    std::size_t failed = 0;
    for (const Fault& fault : faults()) {
        setFault(fault);
        ++rounds;
        for (const Write& write : writes()) {
            const std::string item = "item" + std::to_string(rounds);
            holdBind();
            if (isAcknowledged(write.send(item)))
                acknowledged[write.list].insert(item);
            else
                ++failed;
        }
        endFaults();
    }
    EXPECT_GT(failed, faults().size()) << "the faults did not act";

    HalvardSling::setDefaultTransport(nullptr);
    service.restart([](ServiceSettings& settings) { settings.admin.isOn = true; });
    const auto stored = AdminCaller(service.baseURL()).get("/admin/v1/profiles/parent");
    for (const Write& write : writes()) {
        std::set<std::string> there;
        for (const auto& entry : stored.at(write.list).as_array())
            there.emplace(entry.at(write.id).as_string());
        EXPECT_GT(acknowledged[write.list].size(), 1U) << write.list;
        for (const std::string& item : acknowledged[write.list])
            EXPECT_TRUE(there.contains(item)) << write.list << " has lost " << item;
    }
}

}  // namespace
