#include <algorithm>
#include <atomic>
#include <filesystem>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "CommandLineFixture.hpp"
#include "support/RawServer.hpp"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using TestSupport::CommandLine;
using TestSupport::contentOf;
using TestSupport::httpReply;
using TestSupport::RawConnection;
using TestSupport::RawServer;
using TestSupport::write;

/// A service whose reply to a request for a bind is given; it accepts everything else.
class BindService {
  public:
    void operator()(RawConnection& connection) {
        while (const auto request = connection.readRequest()) {
            const bool isBind = request->starts_with("POST");
            binds += isBind ? 1 : 0;
            connection.send(httpReply(200, isBind ? bind() : "{}"));
        }
    }

    [[nodiscard]] std::string bind() {
        const std::scoped_lock lock(mutex_);
        return bind_;
    }

    void giveBind(std::string bind) {
        const std::scoped_lock lock(mutex_);
        bind_ = std::move(bind);
    }

    std::atomic<int> binds = 0;

  private:
    std::mutex mutex_;
    std::string bind_ = R"({"profileId":"p","token":"good"})";
};

class UnusableBind : public CommandLine {
  protected:
    void SetUp() override { configureWatchList(server.url("")); }

    Result add() { return runConfigured({"watchlist", "add", "v1"}); }

    BindService bindService;
    RawServer server{[this](RawConnection& connection) { bindService(connection); }};
};

/// Binds that no header can carry; the parts of JSON texts.
const std::vector<std::string> spoiltTokens{R"(s3cret\r\nX-Evil: 1)",
                                            R"(s3cret\n)",
                                            R"(s3cret\u0000)",
                                            "s3cret\xC3\xB6",
                                            "s3cret ",
                                            " s3cret",
                                            R"(\ts3cret)",
                                            R"(s3cret\u007f)",
                                            "s3cret" + std::string(2'000'000, 'x')};

TEST_F(UnusableBind, AsAReplyIsRefusedAndForgotten) {
    const std::string good = bindService.bind();
    for (const std::string& token : spoiltTokens)
        for (const std::string field : {"token", "profileId"}) {
            const std::string other =
                field == "token" ? R"("profileId":"p")" : R"("token":"s3cret")";
            bindService.giveBind(R"({")" + field + R"(":")" + token + R"(",)" + other + "}");
            const auto refused = add();
            EXPECT_EQ(refused.code, 1);
            EXPECT_THAT(refused.errors, AllOf(HasSubstr("header"), Not(HasSubstr("s3cret"))));
            EXPECT_THAT(contentOf(bindFile()), Not(HasSubstr("s3cret")));

            bindService.giveBind(good);
            const auto next = add();
            EXPECT_EQ(next.code, 0) << next.errors;
            std::filesystem::remove(bindFile());
        }
}

TEST_F(UnusableBind, ThatIsHeldIsDroppedAndFetchedAnewOnce) {
    ASSERT_EQ(add().code, 0);
    for (const std::string& token : spoiltTokens) {
        write(bindFile(), R"({"version":1,"revision":3,"selectedProfileID":"p",)"
                          R"("binds":[{"profileId":"p","token":")" +
                              token + R"("}]})");
        bindService.binds = 0;
        const auto first = add();
        EXPECT_EQ(first.code, 0) << first.errors;
        EXPECT_THAT(first.errors,
                    AllOf(HasSubstr("warning"), HasSubstr("\"token\""), Not(HasSubstr("s3cret"))));
        EXPECT_EQ(bindService.binds, 1);
        const auto second = add();
        EXPECT_EQ(second.code, 0) << second.errors;
        EXPECT_THAT(second.errors, IsEmpty());
        EXPECT_EQ(bindService.binds, 1);
    }
}

TEST_F(UnusableBind, OfAnotherProfileIsForgottenToo) {
    ASSERT_EQ(add().code, 0);
    write(bindFile(), R"({"version":1,"revision":3,"selectedProfileID":"p","binds":[)"
                      R"({"profileId":"p","token":"good"},{"profileId":"q","token":"s3cret\r"}]})");
    const auto first = add();
    EXPECT_EQ(first.code, 0) << first.errors;
    EXPECT_THAT(first.errors, HasSubstr("warning"));
    EXPECT_THAT(contentOf(bindFile()), AllOf(HasSubstr("good"), Not(HasSubstr("s3cret"))));
    EXPECT_THAT(add().errors, IsEmpty());
    EXPECT_EQ(bindService.binds, 1);
}

TEST_F(UnusableBind, ThatIsHeldAndAsAReplyIsAskedForOnceAndRefused) {
    ASSERT_EQ(add().code, 0);
    const std::string spoilt = R"({"profileId":"p","token":"s3cret\r\n"})";
    write(bindFile(),
          R"({"version":1,"revision":3,"selectedProfileID":"p","binds":[)" + spoilt + "]}");
    bindService.giveBind(spoilt);
    bindService.binds = 0;
    EXPECT_EQ(add().code, 1);
    EXPECT_EQ(bindService.binds, 1);
}

}  // namespace
