#pragma once

#include <string>
#include <string_view>

#include <gmock/gmock.h>

#include "Application.h"
#include "support/Program.hpp"

namespace TestSupport {

inline kestrin_text text(std::string_view value) {
    return {value.data(), value.size()};
}

inline std::string string(kestrin_text value) {
    return {value.data == nullptr ? "" : value.data, value.length};
}

/// The configuration that the project ships, a held bind of the parent and one of a kid, who is
/// selected, and a transport in C.
class CInterface : public testing::Test {
  protected:
    CInterface() {
        EXPECT_EQ(kestrin_configure(text(contentOf(KESTRIN_EXAMPLE_CONFIGURATION))), KESTRIN_OK)
            << kestrin_last_problem();
        hold("kid", "the.kids.token");
        hold("parent", "the.parents.token");
        EXPECT_EQ(kestrin_select_profile(text("kid")), KESTRIN_OK);
        const auto hooks = app_transport_hooks(&transport);
        EXPECT_EQ(kestrin_set_transport(&hooks), KESTRIN_OK);
    }

    ~CInterface() override {
        for (auto* request : {ending.request, other.request})
            kestrin_request_release(request);
        kestrin_session_release(session);
        kestrin_outbox_release(outbox);
        kestrin_household_release(household);
        EXPECT_EQ(kestrin_set_transport(nullptr), KESTRIN_OK);
        EXPECT_EQ(transport.released, 1);
        for (int index = 0; index < transport.waiting_count; ++index)
            kestrin_transfer_fail(transport.waiting[index], KESTRIN_CONNECTION_LOST, {});
        app_forget(&ending);
        app_forget(&other);
        EXPECT_EQ(kestrin_drop_binds(), KESTRIN_OK);
        EXPECT_EQ(kestrin_remove_configuration(), KESTRIN_OK);
    }

    static void hold(const char* profileID, const char* token) {
        const kestrin_bind bind{sizeof bind, text(profileID), text(token)};
        EXPECT_EQ(kestrin_store_bind(&bind), KESTRIN_OK) << kestrin_last_problem();
    }

    /// A household, and a session of the kid.
    void makeSession(const kestrin_household_options* options = nullptr) {
        ASSERT_EQ(kestrin_household_create(options, &household), KESTRIN_OK)
            << kestrin_last_problem();
        kestrin_session_options who{};
        who.size = sizeof who;
        who.profile_id = text("kid");
        ASSERT_EQ(kestrin_household_session(household, &who, &session), KESTRIN_OK)
            << kestrin_last_problem();
    }

    void makeOutbox() {
        ASSERT_EQ(kestrin_outbox_create(household, nullptr, &outbox), KESTRIN_OK)
            << kestrin_last_problem();
    }

    /// Begins an operation of the session.
    kestrin_status begin(const kestrin_call& call, app_ending& end) {
        const auto completion = app_completion(&end);
        return kestrin_session_start(session, &call, &completion, &end.request);
    }
    kestrin_status begin(kestrin_operation operation) { return begin(app_call(operation), ending); }

    void answerAlways(int status, const char* body = "{}") {
        transport.status = status;
        transport.body = body;
        transport.content_type = "application/json";
    }

    static std::string lastProblem() { return kestrin_last_problem(); }

    app_transport transport{};
    app_ending ending{};
    app_ending other{};
    kestrin_household* household = nullptr;
    kestrin_session* session = nullptr;
    kestrin_outbox* outbox = nullptr;
};

}  // namespace TestSupport
