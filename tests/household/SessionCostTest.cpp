// What a session costs beside plain `Profile`. A program of its own, whose allocations are counted.

#include <cstddef>
#include <exception>
#include <memory>
#include <utility>

#include <gtest/gtest.h>

#include <HalvardSling/transport/Transport.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinHousehold/session/Household.hpp>
#include <KestrinProfile/service/Profile.hpp>

#include "support/Allocations.hpp"

namespace {

using HalvardSling::CheckedRequest;
using HalvardSling::Response;
using HalvardSling::TransferID;
using HalvardSling::TransportCompletion;
using KestrinHousehold::Household;
using KestrinProfile::Profile;
using KestrinProfile::ProfileParams;
using TestSupport::allocationsSoFar;

Response reply(std::string body) {
    return Response(
        {.status = 200, .headers = {}, .body = std::move(body), .effectiveURL = {}, .timings = {}});
}

/// Answers at once, and requests for a bind when it is told.
class Service final : public HalvardSling::Transport {
  public:
    TransferID send(CheckedRequest request, TransportCompletion completion) override {
        if (request->operation == "personalization-bind-anonymous")
            bind_ = std::move(completion);
        else
            completion(empty_);
        return 1;
    }
    void cancel(TransferID /*transfer*/) noexcept override {}

    void giveBind() { std::exchange(bind_, {})(reply(R"({"profileId":"p","token":"t"})")); }

  private:
    const Response empty_ = reply("{}");
    TransportCompletion bind_;
};

class SessionCost : public testing::Test {
  protected:
    SessionCost() {
        HalvardSling::setDefaultTransport(service);
        EXPECT_TRUE(manager.load(KESTRIN_EXAMPLE_CONFIGURATION).empty());
    }
    ~SessionCost() override {
        manager.dropBinds();
        manager.removeConfiguration();
        HalvardSling::setDefaultTransport(nullptr);
    }

    template <class T>
    void run(const HalvardSling::Observable<T>& call) {
        call.subscribe([this](const T&) { ++completed; },
                       [](const std::exception_ptr&) { FAIL() << "the call failed"; });
    }

    /// How much memory is asked for, the second time: the first one sets up what lasts.
    template <class Work>
    static std::size_t allocationsOf(Work work) {
        work();
        const std::size_t before = allocationsSoFar().blocks;
        work();
        return allocationsSoFar().blocks - before;
    }

    /// The same for so many calls that wait for their bind.
    std::size_t allocationsOfWaiting(std::size_t calls) {
        manager.dropBinds();
        const Household household;
        const auto session = household.session("p");
        const std::size_t before = allocationsSoFar().blocks;
        completed = 0;
        for (std::size_t call = 0; call < calls; ++call)
            run(session.history());
        service->giveBind();
        EXPECT_EQ(completed, calls);
        return allocationsSoFar().blocks - before;
    }

    KestrinConfigManager::ConfigurationManager& manager =
        KestrinConfigManager::ConfigurationManager::sharedInstance();
    std::shared_ptr<Service> service = std::make_shared<Service>();
    std::size_t completed = 0;
};

TEST_F(SessionCost, IsAtMostSixAllocationsForACallWithAHeldBind) {
    const KestrinConfigManager::AnonymousBind bind("p", "t");
    manager.storeBind(bind);
    const Household household;
    const auto session = household.session("p");
    const auto plainRead =
        allocationsOf([&] { run(Profile().requestHistory(ProfileParams(bind))); });
    const auto plainWrite = allocationsOf([&] {
        ProfileParams params(bind);
        params.videoID = "v";
        params.progress = 62;
        run(Profile().addHistoryVideo(params));
    });
    EXPECT_LE(allocationsOf([&] { run(session.history()); }), plainRead + 6);
    EXPECT_LE(allocationsOf([&] { run(session.addHistoryVideo("v", std::chrono::seconds(62))); }),
              plainWrite + 6);
}

TEST_F(SessionCost, OfThoseThatWaitForABindGrowsWithTheirNumber) {
    allocationsOfWaiting(1);
    const auto few = static_cast<double>(allocationsOfWaiting(1'000));
    const auto many = static_cast<double>(allocationsOfWaiting(10'000));
    EXPECT_NEAR(many / few, 10, 0.2);
}

}  // namespace
