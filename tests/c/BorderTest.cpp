// The sentences of kestrin_profile.h on handles, structures, texts and the problems of calls.

#include <cstring>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "Fixture.hpp"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;
using TestSupport::CInterface;
using TestSupport::string;
using TestSupport::text;

class Border : public CInterface {};

// ---- Handles ------------------------------------------------------------------------------------

TEST_F(Border, ReleasingNothingDoesNothing) {
    kestrin_result_release(nullptr);
    kestrin_request_release(nullptr);
    kestrin_executor_release(nullptr);
    kestrin_household_release(nullptr);
    kestrin_session_release(nullptr);
    kestrin_outbox_release(nullptr);
    kestrin_reporter_release(nullptr);
}

TEST_F(Border, RefusesHandlesThatAreNull) {
    const auto call = app_call(KESTRIN_GET_HISTORY);
    const auto completion = app_completion(&ending);
    kestrin_result* result = nullptr;
    const auto refused = [](kestrin_status status, const char* function, const char* name) {
        EXPECT_EQ(status, KESTRIN_INVALID_ARGUMENT);
        EXPECT_EQ(lastProblem(), std::string(function) + ": the " + name + " is NULL");
    };
    refused(kestrin_session_start(nullptr, &call, &completion, nullptr), "kestrin_session_start",
            "session");
    EXPECT_EQ(ending.released, 1);
    refused(kestrin_household_warm_up(nullptr, &completion, nullptr), "kestrin_household_warm_up",
            "household");
    refused(kestrin_household_session(nullptr, nullptr, &session), "kestrin_household_session",
            "household");
    refused(kestrin_outbox_create(nullptr, nullptr, &outbox), "kestrin_outbox_create", "household");
    refused(kestrin_outbox_entries(nullptr, &result), "kestrin_outbox_entries", "outbox");
    refused(kestrin_outbox_network_is_back(nullptr), "kestrin_outbox_network_is_back", "outbox");
    refused(kestrin_reporter_paused(nullptr), "kestrin_reporter_paused", "reporter");
    refused(kestrin_loaded_binds_select(nullptr, text("p")), "kestrin_loaded_binds_select",
            "loaded binds");
    refused(kestrin_transfer_fail(nullptr, KESTRIN_TLS, {}), "kestrin_transfer_fail", "transfer");
    kestrin_request_cancel(nullptr);
    EXPECT_EQ(lastProblem(), "kestrin_request_cancel: the request is NULL");
    kestrin_task_run(nullptr);
    EXPECT_EQ(lastProblem(), "kestrin_task_run: the task is NULL");
}

TEST_F(Border, RefusesPlacesThatAreNull) {
    EXPECT_EQ(kestrin_household_create(nullptr, nullptr), KESTRIN_INVALID_ARGUMENT);
    EXPECT_EQ(lastProblem(), "kestrin_household_create: household is NULL");
    EXPECT_EQ(kestrin_held_binds(nullptr), KESTRIN_INVALID_ARGUMENT);
    EXPECT_EQ(kestrin_retry_policy_init(nullptr, sizeof(kestrin_retry_policy)),
              KESTRIN_INVALID_ARGUMENT);
}

// ---- Structures ---------------------------------------------------------------------------------

TEST_F(Border, RefusesAStructureThatDoesNotSayItsSize) {
    makeSession();
    auto call = app_call(KESTRIN_GET_HISTORY);
    call.size = 0;
    EXPECT_EQ(begin(call, ending), KESTRIN_INVALID_ARGUMENT);
    EXPECT_EQ(lastProblem(),
              "kestrin_session_start: call has the size 0; set it to sizeof the structure");
    kestrin_bind bind{sizeof bind - 1, text("p"), text("t")};
    EXPECT_EQ(kestrin_store_bind(&bind), KESTRIN_INVALID_ARGUMENT);
    EXPECT_EQ(kestrin_store_bind(nullptr), KESTRIN_INVALID_ARGUMENT);
    EXPECT_EQ(lastProblem(), "kestrin_store_bind: bind is NULL");
}

TEST_F(Border, TakesALargerStructureWhoseRestIsZero) {
    struct {
        kestrin_bind bind;
        char rest[8];
    } later{{sizeof later, text("later"), text("a.token")}, {}};
    EXPECT_EQ(kestrin_store_bind(&later.bind), KESTRIN_OK) << lastProblem();
    later.rest[7] = 1;
    EXPECT_EQ(kestrin_store_bind(&later.bind), KESTRIN_INVALID_ARGUMENT);
    EXPECT_THAT(lastProblem(),
                HasSubstr("sets a member that this version of the library does not know"));
}

template <class Structure>
struct Later {
    Structure known{};
    char rest[8]{0, 0, 0, 0, 0, 0, 0, 1};

    explicit Later(const Structure& structure) : known(structure) { known.size = sizeof(Later); }
};

TEST_F(Border, ReleasesTheContextOfHooksThatSetAnUnknownMember) {
    app_transport another{};
    const Later transportHooks(app_transport_hooks(&another));
    EXPECT_EQ(kestrin_set_transport(&transportHooks.known), KESTRIN_INVALID_ARGUMENT);
    EXPECT_THAT(lastProblem(), HasSubstr("transport sets a member"));
    EXPECT_EQ(another.released, 1);

    makeSession();
    const auto call = app_call(KESTRIN_GET_HISTORY);
    const Later completion(app_completion(&ending));
    EXPECT_EQ(kestrin_session_start(session, &call, &completion.known, nullptr),
              KESTRIN_INVALID_ARGUMENT);
    EXPECT_EQ(ending.released, 1);
    EXPECT_EQ(transport.sent, 0);
}

TEST_F(Border, ReleasesTheHooksOfOptionsThatSetAnUnknownMember) {
    app_clock clock{};
    app_log log{};
    const auto clockHooks = app_clock_hooks(&clock);
    const auto logHooks = app_log_hooks(&log);
    kestrin_household_options options{};
    options.clock = &clockHooks;
    options.log = &logHooks;
    const Later later(options);
    EXPECT_EQ(kestrin_household_create(&later.known, &household), KESTRIN_INVALID_ARGUMENT);
    EXPECT_THAT(lastProblem(), HasSubstr("options sets a member"));
    EXPECT_EQ(clock.released, 1);
    EXPECT_EQ(log.released, 1);
}

TEST_F(Border, TakesElementsThatAreFurtherApart) {
    makeSession();
    struct Later {
        kestrin_entry entry;
        char rest[8];
    };
    std::vector<Later> shows(2);
    for (std::size_t index = 0; index < shows.size(); ++index) {
        shows[index].entry.size = sizeof(Later);
        shows[index].entry.id = text(index == 0 ? "first" : "second");
        shows[index].entry.type = text("SHOW");
    }
    auto call = app_call(KESTRIN_ADD_FAVORITE_SHOWS);
    call.shows = {&shows.front().entry, shows.size(), sizeof(Later)};
    ASSERT_EQ(begin(call, ending), KESTRIN_OK) << lastProblem();
    EXPECT_THAT(transport.last_body, testing::AllOf(HasSubstr("first"), HasSubstr("second")));
    call.shows.stride = sizeof(kestrin_entry) - 1;
    EXPECT_EQ(begin(call, other), KESTRIN_INVALID_ARGUMENT);
    EXPECT_THAT(lastProblem(), HasSubstr("call.shows has the stride"));
    call.shows.stride = sizeof(kestrin_entry) + 1;
    EXPECT_EQ(begin(call, other), KESTRIN_INVALID_ARGUMENT) << "no element could stand there";
    EXPECT_THAT(lastProblem(), HasSubstr("call.shows has the stride"));
}

TEST_F(Border, TakesTheTimeOfAnEntryThoughNoRequestCarriesIt) {
    makeSession();
    kestrin_entry show{};
    show.size = sizeof show;
    show.id = text("s1");
    show.auto_add_timestamp = {true, 1'489'083'943'511'000};
    auto call = app_call(KESTRIN_ADD_FAVORITE_SHOWS);
    call.shows = {&show, 1, sizeof show};
    ASSERT_EQ(begin(call, ending), KESTRIN_OK) << lastProblem();
    EXPECT_THAT(transport.last_body, HasSubstr("s1"));
}

TEST_F(Border, RefusesACountWithoutElements) {
    makeSession();
    auto call = app_call(KESTRIN_ADD_FAVORITE_SHOWS);
    call.shows.first = nullptr;
    EXPECT_EQ(begin(call, ending), KESTRIN_INVALID_ARGUMENT);
    EXPECT_THAT(lastProblem(), EndsWith("call.shows has a count, but no elements"));
}

TEST_F(Border, FillsInNoMoreThanTheSizeThatItIsTold) {
    struct {
        kestrin_outbox_options options;
        unsigned char behind[16];
    } place{};
    std::memset(&place, 0xAA, sizeof place);
    ASSERT_EQ(kestrin_outbox_options_init(&place.options, sizeof place.options + 8), KESTRIN_OK);
    EXPECT_EQ(place.options.size, sizeof place.options + 8);
    EXPECT_EQ(place.options.max_entries, 10'000U);
    EXPECT_EQ(place.options.max_age_ms, 30LL * 24 * 3600 * 1000);
    EXPECT_EQ(place.options.removal_delay_ms, 200);
    EXPECT_EQ(place.behind[7], 0);
    EXPECT_EQ(place.behind[8], 0xAA);
    EXPECT_EQ(kestrin_outbox_options_init(&place.options, 8), KESTRIN_INVALID_ARGUMENT);
}

TEST_F(Border, RefusesBoundsThatNoOutboxCanKeep) {
    makeSession();
    const auto expectRefused = [&](auto member, auto value, const char* problem) {
        kestrin_outbox_options options{};
        EXPECT_EQ(kestrin_outbox_options_init(&options, sizeof options), KESTRIN_OK);
        options.*member = value;
        EXPECT_EQ(kestrin_outbox_create(household, &options, &outbox), KESTRIN_INVALID_ARGUMENT);
        EXPECT_THAT(lastProblem(), HasSubstr(problem));
    };
    expectRefused(&kestrin_outbox_options::max_entries, 0U, "options.max_entries is 0");
    expectRefused(&kestrin_outbox_options::max_age_ms, -1, "options.max_age_ms is negative");
    expectRefused(&kestrin_outbox_options::first_delay_ms, -1,
                  "options.first_delay_ms is negative");
}

TEST_F(Border, FillsInThePolicyThatHouseholdsHave) {
    kestrin_retry_policy policy;
    ASSERT_EQ(kestrin_retry_policy_init(&policy, sizeof policy), KESTRIN_OK);
    EXPECT_EQ(policy.max_attempts, 4);
    EXPECT_EQ(policy.first_delay_ms, 500);
    EXPECT_EQ(policy.deadline_ms, 60'000);
    ASSERT_EQ(policy.unsent_errors.count, 3U);
    EXPECT_EQ(policy.unsent_errors.first[0], KESTRIN_CANNOT_CONNECT);
    ASSERT_EQ(policy.idempotent_methods.count, 5U);
    EXPECT_EQ(string(policy.idempotent_methods.first[0]), "GET");
    EXPECT_EQ(policy.statuses.first[0], 429);
    EXPECT_EQ(policy.refusals.count, 0U);
    EXPECT_EQ(policy.budget_share, 0.1);
    policy.errors.first = nullptr;
    kestrin_household_options options{};
    options.size = sizeof options;
    options.retry = &policy;
    EXPECT_EQ(kestrin_household_create(&options, &household), KESTRIN_INVALID_ARGUMENT);
    EXPECT_EQ(lastProblem(),
              "kestrin_household_create: options.retry.errors has a count, but no elements");
    const int32_t unknown = 99;
    policy.errors = {&unknown, 1};
    EXPECT_EQ(kestrin_household_create(&options, &household), KESTRIN_INVALID_ARGUMENT);
    EXPECT_THAT(lastProblem(),
                EndsWith("options.retry.errors[0] is 99, which is not a known value"));
    policy.errors.count = 0;
    policy.deadline_ms = INT64_MAX;
    EXPECT_EQ(kestrin_household_create(&options, &household), KESTRIN_INVALID_ARGUMENT);
    EXPECT_THAT(lastProblem(), EndsWith("options.retry.deadline_ms is out of range"));
}

TEST_F(Border, TakesAPolicyThatRepeatsNothing) {
    kestrin_retry_policy policy;
    ASSERT_EQ(kestrin_retry_policy_init(&policy, sizeof policy), KESTRIN_OK);
    policy.errors = policy.unsent_errors = policy.statuses = policy.refusals = {};
    policy.idempotent_methods = {};
    kestrin_household_options options{};
    options.size = sizeof options;
    options.retry = &policy;
    makeSession(&options);
    ASSERT_EQ(begin(KESTRIN_GET_HISTORY), KESTRIN_OK);
    EXPECT_EQ(app_answer(&transport, 503, "{}"), KESTRIN_OK);
    ASSERT_EQ(ending.completed, 1);
    EXPECT_EQ(ending.result->error->status, 503);
    EXPECT_EQ(transport.sent, 1);
}

// ---- Texts --------------------------------------------------------------------------------------

struct Malformed {
    std::string_view bytes;
    int from;
};

void PrintTo(const Malformed& each, std::ostream* out) {
    *out << "from byte " << each.from;
}

class MalformedText : public CInterface, public testing::WithParamInterface<Malformed> {};

TEST_P(MalformedText, IsRefusedAndNothingIsSent) {
    makeSession();
    auto call = app_call(KESTRIN_ADD_SEARCH_HISTORY);
    call.search = text(GetParam().bytes);
    EXPECT_EQ(begin(call, ending), KESTRIN_INVALID_UTF8);
    EXPECT_EQ(lastProblem(), "kestrin_session_start: call.search is not UTF-8, from byte " +
                                 std::to_string(GetParam().from) + " on");
    EXPECT_EQ(transport.sent, 0);
    EXPECT_EQ(ending.completed, 0);
    EXPECT_EQ(ending.released, 1);
}

using namespace std::string_view_literals;
INSTANTIATE_TEST_SUITE_P(Each, MalformedText,
                         testing::Values(Malformed{"\xC0\x80"sv, 0},  // a zero of Java's
                                         Malformed{"ab\xED\xA0\xBD\xED\xB8\x80"sv, 2},
                                         Malformed{"\xE0\x80\xAF"sv, 0},
                                         Malformed{"a\xF4\x90\x80\x80"sv, 1},
                                         Malformed{"\xF5"sv, 0}, Malformed{"caf\xC3"sv, 3},
                                         Malformed{"\x80"sv, 0}, Malformed{"\xFF\xFE"sv, 0}));

TEST_F(Border, NamesTheElementWhoseTextIsMalformed) {
    makeSession();
    std::vector<kestrin_entry> shows(4);
    for (auto& show : shows) {
        show.size = sizeof show;
        show.id = text("s");
    }
    shows[3].id = text("\xED\xB0\x80");
    auto call = app_call(KESTRIN_ADD_FAVORITE_SHOWS);
    call.shows = {shows.data(), shows.size(), sizeof shows[0]};
    EXPECT_EQ(begin(call, ending), KESTRIN_INVALID_UTF8);
    EXPECT_THAT(lastProblem(), HasSubstr("call.shows[3].id is not UTF-8"));
}

TEST_F(Border, TakesEveryCharacterThereIs) {
    makeSession();
    kestrin_user user{};
    user.size = sizeof user;
    user.username = text("A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\0B"sv);
    auto call = app_call(KESTRIN_CREATE_PROFILE);
    call.user = &user;
    ASSERT_EQ(begin(call, ending), KESTRIN_OK) << lastProblem();
    EXPECT_THAT(string(transport.requests[0]->body),
                HasSubstr("A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\\u0000B"));
}

TEST_F(Border, RefusesALengthWithoutData) {
    makeSession();
    auto call = app_call(KESTRIN_ADD_SEARCH_HISTORY);
    call.search = {nullptr, 3};
    EXPECT_EQ(begin(call, ending), KESTRIN_INVALID_ARGUMENT);
    EXPECT_THAT(lastProblem(), EndsWith("call.search has a length, but no data"));
}

TEST_F(Border, CopiesWhatItIsGiven) {
    makeSession();
    std::string name = "a name that is long enough for memory of its own";
    kestrin_user user{};
    user.size = sizeof user;
    user.username = text(name);
    auto call = app_call(KESTRIN_CREATE_PROFILE);
    call.user = &user;
    ASSERT_EQ(kestrin_drop_binds(), KESTRIN_OK);  // the request is made when the bind is there
    ASSERT_EQ(begin(call, ending), KESTRIN_OK);
    name.assign(name.size(), 'x');
    ASSERT_EQ(app_answer(&transport, 200, R"({"profileId":"kid","token":"a.b.c"})"), KESTRIN_OK);
    EXPECT_THAT(transport.last_body, HasSubstr("long enough"));
}

// ---- The problems of calls ----------------------------------------------------------------------

TEST_F(Border, KeepsAProblemUntilTheNextOneOfTheThread) {
    EXPECT_EQ(kestrin_store_bind(nullptr), KESTRIN_INVALID_ARGUMENT);
    EXPECT_EQ(kestrin_select_profile(text("kid")), KESTRIN_OK);
    EXPECT_EQ(lastProblem(), "kestrin_store_bind: bind is NULL");
    std::string there = "?";
    std::thread([&] { there = kestrin_last_problem(); }).join();
    EXPECT_EQ(there, "");
}

TEST_F(Border, CutsAProblemThatIsTooLong) {
    std::string configuration = R"({"version":1,"services":{)";
    for (int index = 0; index < 100; ++index)
        configuration += (index > 0 ? ",\"s" : "\"s") + std::to_string(index) + R"(":7)";
    EXPECT_EQ(kestrin_configure(text(configuration + "}}")), KESTRIN_INVALID_ARGUMENT);
    EXPECT_EQ(lastProblem().size(), 1023U);
}

TEST_F(Border, CutsAProblemBetweenCharacters) {
    for (const char* const shift : {"", "a", "aa", "aaa"}) {
        std::string configuration = R"({"version":1,"services":{)";
        configuration += '"' + std::string(shift);
        for (int index = 0; index < 500; ++index)
            configuration += "\xF0\x9F\x98\x80";
        EXPECT_EQ(kestrin_configure(text(configuration + R"(":7}})")), KESTRIN_INVALID_ARGUMENT);
        const std::string problem = lastProblem();
        EXPECT_GT(problem.size(), 1'019U);
        EXPECT_THAT(problem, EndsWith("\xF0\x9F\x98\x80"));
    }
}

TEST_F(Border, NamesTheOperationsThatThereAre) {
    EXPECT_STREQ(kestrin_operation_name(KESTRIN_GET_HISTORY), "personalization-history-get");
    EXPECT_STRNE(kestrin_operation_name(KESTRIN_ANONYMOUS_BIND), "");
    EXPECT_STRNE(kestrin_operation_name(KESTRIN_DELETE_SEARCH_HISTORY), "");
    for (const auto none : {-1, 0, 23})
        EXPECT_STREQ(kestrin_operation_name(none), "");
}

TEST_F(Border, SaysItsVersion) {
    EXPECT_STREQ(kestrin_version(), KESTRIN_VERSION);
}

// ---- Configuration and binds --------------------------------------------------------------------

TEST_F(Border, KeepsTheConfigurationIfANewOneHasProblems) {
    EXPECT_EQ(kestrin_configure(text(R"({"version":1,"parentProfileID":7})")),
              KESTRIN_INVALID_ARGUMENT);
    EXPECT_THAT(lastProblem(), StartsWith("kestrin_configure: the configuration has problems\n$"));
    EXPECT_THAT(lastProblem(), HasSubstr("$.parentProfileID: "));
    makeSession();
    answerAlways(200);
    ASSERT_EQ(begin(KESTRIN_GET_HISTORY), KESTRIN_OK);
    EXPECT_EQ(ending.result->outcome, KESTRIN_VALUE);
}

TEST_F(Border, ShowsTheBindsThatAreHeld) {
    ASSERT_EQ(kestrin_select_profile(text("parent")), KESTRIN_OK);
    kestrin_result* held = nullptr;
    ASSERT_EQ(kestrin_held_binds(&held), KESTRIN_OK);
    ASSERT_EQ(held->binds.count, 2U);
    EXPECT_EQ(string(kestrin_bind_at(&held->binds, 0)->profile_id), "kid");
    EXPECT_EQ(string(kestrin_bind_at(&held->binds, 0)->token), "the.kids.token");
    EXPECT_EQ(string(held->text), "parent");
    kestrin_result_release(held);
    ASSERT_EQ(kestrin_drop_binds(), KESTRIN_OK);
    ASSERT_EQ(kestrin_held_binds(&held), KESTRIN_OK);
    EXPECT_EQ(held->binds.count, 0U);
    kestrin_result_release(held);
}

TEST_F(Border, KeepsBindsInTheApplicationsStore) {
    app_store store{};
    store.profile_id = "stored";
    store.token = "the.stored.token";
    auto hooks = app_store_hooks(&store);
    ASSERT_EQ(kestrin_set_bind_store(&hooks), KESTRIN_OK) << lastProblem();
    kestrin_result* held = nullptr;
    ASSERT_EQ(kestrin_held_binds(&held), KESTRIN_OK);
    ASSERT_EQ(held->binds.count, 1U);
    EXPECT_EQ(string(kestrin_bind_at(&held->binds, 0)->token), "the.stored.token");
    EXPECT_EQ(string(held->text), "stored");
    kestrin_result_release(held);

    hold("another", "another.token");
    EXPECT_EQ(store.saved, 1);
    EXPECT_EQ(store.last_count, 2U);
    EXPECT_STREQ(store.last_selected, "stored");
    const auto revision = store.revision;
    ASSERT_EQ(kestrin_drop_binds(), KESTRIN_OK);
    EXPECT_EQ(store.saved, 2);
    EXPECT_GT(store.revision, revision);
    EXPECT_EQ(store.last_count, 0U);

    EXPECT_EQ(store.released, 0);
    ASSERT_EQ(kestrin_set_bind_store(nullptr), KESTRIN_OK);
    EXPECT_EQ(store.released, 1);

    app_store incomplete{};
    hooks = app_store_hooks(&incomplete);
    hooks.save = nullptr;
    EXPECT_EQ(kestrin_set_bind_store(&hooks), KESTRIN_INVALID_ARGUMENT);
    EXPECT_EQ(lastProblem(), "kestrin_set_bind_store: store lacks a function");
    EXPECT_EQ(incomplete.released, 1);
}

TEST_F(Border, TakesNoBindFromAStoreThatNoRequestCouldCarry) {
    app_store store{};
    store.profile_id = "stored";
    store.token = "two\nlines";
    const auto hooks = app_store_hooks(&store);
    ASSERT_EQ(kestrin_set_bind_store(&hooks), KESTRIN_OK);
    EXPECT_EQ(store.added, KESTRIN_INVALID_ARGUMENT);
    EXPECT_EQ(lastProblem(), "kestrin_loaded_binds_add: bind.token holds what no header may carry");
    store.profile_id = "two\nlines";
    store.token = "the.stored.token";
    ASSERT_EQ(kestrin_set_bind_store(&hooks), KESTRIN_OK);
    EXPECT_EQ(lastProblem(),
              "kestrin_loaded_binds_add: bind.profile_id holds what no header may carry");
    ASSERT_EQ(kestrin_set_bind_store(nullptr), KESTRIN_OK);
}

TEST_F(Border, GivesPlainOperationsTheHeldBindUnlessOneIsGiven) {
    const auto call = app_call(KESTRIN_GET_HISTORY);
    const auto completion = app_completion(&ending);
    ASSERT_EQ(kestrin_profile_start(nullptr, &call, &completion, nullptr), KESTRIN_OK);
    EXPECT_STREQ(transport.last_token, "JWT the.kids.token");
    app_answer(&transport, 200, "{}");
    const kestrin_bind bind{sizeof bind, text("kid"), text("a.given.token")};
    for (const auto operation : {KESTRIN_ANONYMOUS_BIND, KESTRIN_DELETE_SEARCH_HISTORY}) {
        const auto without = app_call(operation);
        app_ending end{};
        const auto refused = app_completion(&end);
        EXPECT_EQ(kestrin_profile_start(&bind, &without, &refused, nullptr),
                  KESTRIN_INVALID_ARGUMENT);
        EXPECT_THAT(lastProblem(), HasSubstr("the operation takes none"));
    }
}

TEST_F(Border, LetsAPlainOperationHaveABrandOfItsOwn) {
    answerAlways(200);
    for (const auto operation :
         {KESTRIN_GET_HISTORY, KESTRIN_ADD_SEARCH_HISTORY, KESTRIN_DELETE_SEARCH_HISTORY}) {
        for (const char* const brand : {"", "else"}) {
            auto call = app_call(operation);
            call.progress = {};
            if (*brand != '\0') call.brand_id = text(brand);
            app_ending end{};
            const auto completion = app_completion(&end);
            ASSERT_EQ(kestrin_profile_start(nullptr, &call, &completion, nullptr), KESTRIN_OK)
                << lastProblem();
            EXPECT_THAT(transport.last_url,
                        HasSubstr(*brand != '\0' ? "brand=else&" : "brand=kestrin&"))
                << operation;
            app_forget(&end);
        }
    }
}

TEST_F(Border, LetsASessionHaveABrandOfItsOwn) {
    makeSession();
    auto call = app_call(KESTRIN_GET_HISTORY);
    call.brand_id = text("else");
    EXPECT_EQ(begin(call, ending), KESTRIN_INVALID_ARGUMENT);
    EXPECT_THAT(lastProblem(), HasSubstr("call.brand_id"));
    kestrin_session_release(session);
    kestrin_session_options who{};
    who.size = sizeof who;
    who.profile_id = text("kid");
    who.brand_id = text("else");
    ASSERT_EQ(kestrin_household_session(household, &who, &session), KESTRIN_OK);
    ASSERT_EQ(begin(app_call(KESTRIN_GET_HISTORY), other), KESTRIN_OK);
    EXPECT_THAT(transport.last_url, HasSubstr("brand=else"));
}

TEST_F(Border, MakesTheParentsSessionUnlessAProfileIsNamed) {
    ASSERT_EQ(kestrin_household_create(nullptr, &household), KESTRIN_OK);
    ASSERT_EQ(kestrin_household_session(household, nullptr, &session), KESTRIN_OK);
    ASSERT_EQ(begin(KESTRIN_GET_PROFILES), KESTRIN_OK);
    EXPECT_STREQ(transport.last_token, "JWT the.parents.token");
}

}  // namespace
