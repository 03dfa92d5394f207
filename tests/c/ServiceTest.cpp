// The interface for C over HTTP, against the development service.

#include <atomic>
#include <csignal>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include <KestrinC/kestrin_profile.h>

#include "support/Program.hpp"
#include "support/Waiting.hpp"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using TestSupport::Program;
using TestSupport::Tally;
using TestSupport::TemporaryDirectory;

kestrin_text text(const std::string& value) {
    return {value.data(), value.size()};
}

class Service : public testing::Test {
  protected:
    Service() {
        service_ = std::make_unique<Program>(
            std::vector<std::string>{KESTRIN_SERVER, "--port", "0", "--database", directory_ / "db",
                                     "--write-config", configuration, "--quiet"});
        EXPECT_THAT(service_->firstLine(), HasSubstr("ready")) << service_->errors();
        EXPECT_EQ(kestrin_configure(text(TestSupport::contentOf(configuration))), KESTRIN_OK)
            << kestrin_last_problem();
        EXPECT_EQ(kestrin_household_create(nullptr, &household), KESTRIN_OK);
        EXPECT_EQ(kestrin_household_session(household, nullptr, &session), KESTRIN_OK);
    }

    ~Service() override {
        kestrin_session_release(session);
        kestrin_household_release(household);
        EXPECT_EQ(kestrin_set_transport(nullptr), KESTRIN_OK);
    }

    TemporaryDirectory directory_;
    std::unique_ptr<Program> service_;
    std::string configuration = directory_ / "config.json";
    kestrin_household* household = nullptr;
    kestrin_session* session = nullptr;
};

/// What came of a request: counted on whatever thread.
struct Ending {
    Tally released;
    std::atomic<int> completed = 0;
    std::thread::id thread;
    kestrin_outcome outcome = -1;
    std::vector<std::string> ids;

    kestrin_completion completion() {
        kestrin_completion completion{};
        completion.size = sizeof completion;
        completion.context = this;
        completion.completed = [](void* context, kestrin_result* result) {
            static_cast<Ending*>(context)->note(result);
        };
        completion.release_context = [](void* context) {
            static_cast<Ending*>(context)->released.add();
        };
        return completion;
    }

    void note(kestrin_result* result) {
        ++completed;
        thread = std::this_thread::get_id();
        outcome = result->outcome;
        if (result->list != nullptr)
            for (std::size_t index = 0; index < result->list->entries.count; ++index) {
                const auto id = kestrin_entry_at(&result->list->entries, index)->id;
                ids.emplace_back(id.data, id.length);
            }
        kestrin_result_release(result);
    }
};

TEST_F(Service, AnswersOnTheNetworkThread) {
    kestrin_call call{};
    call.size = sizeof call;
    call.operation = KESTRIN_ADD_FAVORITE_SHOW;
    call.show_id = kestrin_text_of("s1");
    Ending added;
    auto completion = added.completion();
    ASSERT_EQ(kestrin_session_start(session, &call, &completion, nullptr), KESTRIN_OK);
    ASSERT_TRUE(added.released.reaches(1));
    EXPECT_EQ(added.outcome, KESTRIN_VALUE);
    EXPECT_NE(added.thread, std::this_thread::get_id());
    call.operation = KESTRIN_GET_FAVORITES;
    Ending shown;
    completion = shown.completion();
    ASSERT_EQ(kestrin_session_start(session, &call, &completion, nullptr), KESTRIN_OK);
    ASSERT_TRUE(shown.released.reaches(1));
    EXPECT_THAT(shown.ids, ElementsAre("s1"));
}

TEST_F(Service, EndsEachOfManyRequestsOnceThoughManyThreadsCancelThem) {
    constexpr int threads = 4;
    constexpr int each = 50;
    std::vector<Ending> endings(threads * each);
    std::vector<std::thread> running;
    running.reserve(threads);
    for (int number = 0; number < threads; ++number)
        running.emplace_back([&, number] {
            for (int index = 0; index < each; ++index) {
                kestrin_call call{};
                call.size = sizeof call;
                call.operation = KESTRIN_GET_WATCH_LIST;
                const auto completion =
                    endings[static_cast<std::size_t>(number * each + index)].completion();
                kestrin_request* request = nullptr;
                EXPECT_EQ(kestrin_session_start(session, &call, &completion, &request), KESTRIN_OK);
                if (index % 2 == 0) kestrin_request_cancel(request);
                kestrin_request_release(request);
            }
        });
    for (auto& thread : running)
        thread.join();
    for (const auto& ending : endings) {
        EXPECT_TRUE(ending.released.reaches(1));
        EXPECT_EQ(ending.released.count(), 1U);
        EXPECT_EQ(ending.completed, 1);
    }
}

TEST_F(Service, IsWhatTheFirstProgramTalksTo) {
    for (const auto& [video, shown] : {std::pair{"v1", "v1\n"}, {"v2", "v2\nv1\n"}}) {
        Program program({KESTRIN_FIRST_PROGRAM, configuration, video});
        EXPECT_EQ(program.wait(), 0) << program.errors();
        EXPECT_EQ(program.output(), shown);
    }
    Program program({KESTRIN_FIRST_PROGRAM, directory_ / "db", "v3"});
    EXPECT_EQ(program.wait(), 2);
    EXPECT_THAT(program.errors(), HasSubstr("kestrin_configure: "));
}

}  // namespace
