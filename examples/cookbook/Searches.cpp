// Built with an installed RxCpp only: the bundled subset has no `debounce`.

#include <chrono>
#include <string>

#include <gmock/gmock.h>

#include <rxcpp/rx.hpp>
#include <rxcpp/rx-test.hpp>

#include <KestrinHousehold/session/Household.hpp>

#include "household/HouseholdFixture.hpp"

namespace {

using HalvardSling::Observable;
using HalvardSling::Response;
using KestrinHousehold::ProfileSession;

// [all of ReactiveX]
/// Keeps what somebody searches for, one request after the other, each text once.
/// @param typed  the text of the field, after each key
/// @param time   `rxcpp::observe_on_event_loop()`, for instance
template <class Coordination>
Observable<Response> keepSearches(const ProfileSession& session,
                                  const Observable<std::string>& typed, const Coordination& time) {
    constexpr std::chrono::seconds pause(1);
    return typed | rxcpp::operators::debounce(pause, time) |
           rxcpp::operators::distinct_until_changed() |
           rxcpp::operators::concat_map(
               [session](const std::string& text) { return session.addSearchHistory(text); });
}
// [end]

using testing::HasSubstr;

class SearchesRecipe : public TestSupport::HouseholdFixture {};

TEST_F(SearchesRecipe, KeepsOnlyWhatSomebodyHasStoppedTyping) {
    manager.storeBind({"parent", "t1"});
    const auto home = household();
    const auto clock = rxcpp::schedulers::make_test();
    const auto time = clock.create_worker();
    const rxcpp::subjects::subject<std::string> field;
    const TestSupport::Observed<Response> kept(keepSearches(
        home.session(), field.get_observable(), rxcpp::identity_one_worker(clock)));
    for (const std::string text : {"k", "ki", "kit", "kite"}) {
        field.get_subscriber().on_next(text);
        time.advance_by(300);
    }
    EXPECT_TRUE(transport->waiting().empty());
    time.advance_by(1000);
    ASSERT_EQ(transport->waiting().size(), 1U);
    EXPECT_THAT(transport->requests().back().url, HasSubstr("kite"));
    answer(reply(200));
    field.get_subscriber().on_completed();
    time.advance_by(1000);
    EXPECT_EQ(kept.values().size(), 1U);
}

}  // namespace
