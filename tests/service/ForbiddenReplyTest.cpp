#include <exception>
#include <utility>

#include <gmock/gmock.h>

#include <KestrinProfile/params/ProfileParams.hpp>

#include "ServiceFixture.hpp"

namespace {

using KestrinConfigManager::AnonymousBind;
using KestrinProfile::ProfileParams;

/// What an application does about a refused reply, with the reaction of the library itself.
class ForbiddenReply : public TestSupport::ServiceFixture {
  protected:
    ForbiddenReply() {
        manager.setForbiddenReplyReaction({});
        hold("parent", "t");
    }
    ~ForbiddenReply() override { manager.setForbiddenReplyHandler({}); }

    /// Asks for a new bind; gives up after many times, where a test would never end.
    void bindAgain() {
        ++handled;
        if (transport->requests().size() < 50) ask();
    }

    void ask() { subscribe(profile.requestAnonymousBind()); }
    void read() {
        subscribe(profile.requestHistory(ProfileParams(AnonymousBind("parent", "t"), "acme")));
    }

    static HalvardSling::Response refusal() {
        HalvardSling::ResponseParts parts;
        parts.status = 403;
        return HalvardSling::Response(std::move(parts));
    }

    /// Refuses everything that waits, and what is sent because of that.
    void refuseAll() {
        for (auto waiting = transport->waiting(); !waiting.empty(); waiting = transport->waiting())
            transport->answer(waiting.front(), refusal());
    }

    int handled = 0;

  private:
    template <class T>
    void subscribe(const HalvardSling::Observable<T>& answer) {
        answer.subscribe([](const T&) {}, [](const std::exception_ptr&) {}, [] {});
    }
};

TEST_F(ForbiddenReply, AHandlerThatBindsAgainAndIsRefusedAgainEndsWhenRepliesComeAtOnce) {
    manager.setForbiddenReplyHandler([this] { bindAgain(); });
    transport->alwaysAnswer([](const auto&) { return refusal(); });
    read();
    EXPECT_EQ(transport->requests().size(), 2U);
    EXPECT_EQ(handled, 1);
}

TEST_F(ForbiddenReply, AHandlerThatBindsAgainAndIsRefusedAgainEndsWhenRepliesComeLater) {
    manager.setForbiddenReplyHandler([this] { bindAgain(); });
    read();
    refuseAll();
    EXPECT_EQ(transport->requests().size(), 2U);
    EXPECT_EQ(handled, 1);
}

TEST_F(ForbiddenReply, RepliesThatAreRefusedTogetherCallTheHandlerOnce) {
    manager.setForbiddenReplyHandler([this] { bindAgain(); });
    for (int count = 0; count < 5; ++count)
        read();
    refuseAll();
    EXPECT_EQ(transport->requests().size(), 6U);
    EXPECT_EQ(handled, 1);
}

TEST_F(ForbiddenReply, ABindThatIsRefusedCallsTheHandlerOnce) {
    manager.setForbiddenReplyHandler([this] { ++handled; });
    manager.dropBinds();
    ask();
    refuseAll();
    EXPECT_EQ(handled, 1);
}

TEST_F(ForbiddenReply, TheHandlerIsCalledAgainOnceANewBindIsStored) {
    manager.setForbiddenReplyHandler([this] { bindAgain(); });
    for (int round = 1; round <= 3; ++round) {
        transport->willAnswer(403);
        transport->willAnswer(200, R"({"profileId":"parent","token":"new"})");
        read();
        EXPECT_EQ(handled, round);
        EXPECT_EQ(manager.bind(true), AnonymousBind("parent", "new"));
    }
}

}  // namespace
