// The parts that have rules of their own: texts, times, secrets, tokens, the queue of writes.
#include <atomic>
#include <future>
#include <string>

#include <gtest/gtest.h>

#include <internal/Base64URL.hpp>
#include <internal/UTF8.hpp>
#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/domain/Secrets.hpp>
#include <kestrin-profile-server/domain/Text.hpp>
#include <kestrin-profile-server/domain/Timestamp.hpp>
#include <kestrin-profile-server/domain/Tokens.hpp>
#include <kestrin-profile-server/http/WriteQueue.hpp>

#include "Support.hpp"

namespace KestrinProfileServer::Testing {
namespace {

TEST(TextTest, wellFormedUTF8IsToldFromMalformed) {
    for (const char* good : {"", "a", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"})
        EXPECT_TRUE(KestrinInternal::isUTF8(good)) << good;
    for (const char* bad : {"\x80", "\xC3", "\xC0\xAF", "\xE0\x80\x80", "\xED\xA0\x80",
                            "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80", "\xC3("}) {
        EXPECT_FALSE(KestrinInternal::isUTF8(bad)) << hexadecimal(bad);
    }
}

TEST(TextTest, codePointsSurviveTheWayThereAndBack) {
    const std::string text = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
    EXPECT_EQ(codePointsOf(text).size(), 4U);
    EXPECT_EQ(toUTF8(codePointsOf(text)), text);
}

TEST(TextTest, upperAndLowerCaseAreFoldedInEveryScriptOneByOne) {
    EXPECT_TRUE(caseFolded(U"AZ\u00C9\u00D1\u0150\u0178\u0394\u0416\u0401") ==
                U"az\u00E9\u00F1\u0151\u00FF\u03B4\u0436\u0451");
    EXPECT_TRUE(caseFolded(U"\u0218\u021A\u01CD\u0531\u1C90\U00010400\U0001E900") ==
                U"\u0219\u021B\u01CE\u0561\u10D0\U00010428\U0001E922");
    EXPECT_TRUE(caseFolded(U"\u017F\u212A\u03C2\u1E9E\u01C5") == U"sk\u03C3\u00DF\u01C6")
        << "more than two forms of one letter";
    const std::u32string_view same = U"az\u00D7\u00DF\u0130\u01319!\u4E2D\u0301";
    EXPECT_TRUE(caseFolded(same) == same);
    EXPECT_FALSE(caseFoldingVersion().empty());
}

TEST(TextTest, whiteSpaceOfAnyKindIsTrimmedAtTheEndsOnly) {
    EXPECT_TRUE(trimmed(U" \t\u00A0\u3000a b\u2003\n") == U"a b");
    EXPECT_TRUE(trimmed(U" \t ").empty());
}

TEST(TextTest, excerptsAreCutBetweenCodePointsAndAlwaysUTF8) {
    EXPECT_EQ(excerptOf("short"), "short");
    EXPECT_EQ(excerptOf("abc\xC3\xA9", 4), "abc…");
    EXPECT_EQ(excerptOf("a\xFFz"), "a?z");
    EXPECT_TRUE(KestrinInternal::isUTF8(excerptOf(std::string(200, '\xC3'))));
}

TEST(TimestampTest, isUTCWithThreeDigitsOfFraction) {
    EXPECT_EQ(timestampText(startTime), "2017-03-09T18:25:43.511Z");
    EXPECT_EQ(timestampText(0), "1970-01-01T00:00:00.000Z");
    EXPECT_EQ(timestampText(951782400007), "2000-02-29T00:00:00.007Z");
}

TEST(SecretsTest, hmacKnowsThePublishedExample) {
    EXPECT_EQ(hexadecimal(hmacSHA256("Jefe", "what do ya want for nothing?")),
              "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
}

TEST(SecretsTest, randomBytesDiffer) {
    EXPECT_EQ(randomBytes(32).size(), 32U);
    EXPECT_NE(randomBytes(32), randomBytes(32));
}

class TokensTest : public testing::Test {
  protected:
    std::string refusalOf(const std::string& token) const {
        try {
            static_cast<void>(tokens.verified(token));
            return "accepted";
        } catch (const Problem& problem) {
            EXPECT_EQ(problem.kind(), ProblemKind::tokenRefused);
            return problem.what();
        }
    }

    std::string signedToken(const std::string& header, const std::string& payload) const {
        const std::string text = KestrinInternal::base64URLEncoded(header) + "." +
                                 KestrinInternal::base64URLEncoded(payload);
        return text + "." + KestrinInternal::base64URLEncoded(hmacSHA256("key", text));
    }

    Milliseconds now = startTime;
    Tokens tokens{"key", std::chrono::seconds(60), [this] { return now; }};
    std::string good = tokens.issue({"kid/1", "home"});
};

TEST_F(TokensTest, theClaimsComeBack) {
    const TokenClaims claims = tokens.verified(good);
    EXPECT_EQ(claims.profileID, "kid/1");
    EXPECT_EQ(claims.household, "home");
}

TEST_F(TokensTest, thePayloadHasIssueAndExpiryInSeconds) {
    const auto start = good.find('.') + 1;
    const auto payload =
        KestrinInternal::base64URLDecoded(good.substr(start, good.rfind('.') - start));
    EXPECT_EQ(payload.value(), R"({"sub":"kid/1","hh":"home","iat":1489083943,"exp":1489084003})");
}

TEST_F(TokensTest, aTokenIsValidUntilItsExpiryAndNotAtIt) {
    now = (1489084003 * Milliseconds{1000}) - 1;
    EXPECT_EQ(refusalOf(good), "accepted");
    now += 1;
    EXPECT_EQ(refusalOf(good), "the token has expired; bind again");
}

TEST_F(TokensTest, everyChangedCharacterIsNoticed) {
    for (std::size_t index = 0; index + 1 < good.size(); ++index) {
        std::string forged = good;
        forged[index] = forged[index] == 'A' ? 'B' : 'A';
        EXPECT_NE(refusalOf(forged), "accepted") << "character " << index;
    }
}

TEST_F(TokensTest, otherAlgorithmsAreRefusedEvenWithOurSignature) {
    const std::string payload = R"({"sub":"kid/1","hh":"home","iat":1,"exp":9999999999})";
    EXPECT_EQ(refusalOf(signedToken(R"({"alg":"HS256","typ":"JWT"})", payload)), "accepted");
    EXPECT_NE(refusalOf(signedToken(R"({"alg":"none","typ":"JWT"})", payload)), "accepted");
    const std::string unsignedToken =
        KestrinInternal::base64URLEncoded(R"({"alg":"none","typ":"JWT"})") + "." +
        KestrinInternal::base64URLEncoded(payload) + ".";
    EXPECT_NE(refusalOf(unsignedToken), "accepted");
}

TEST_F(TokensTest, whatIsNoTokenIsRefused) {
    const std::string header = good.substr(0, good.find('.'));
    for (const std::string& text :
         {std::string(), std::string("."), std::string(".."), std::string("a.b.c"), header,
          header + ".", header + "..", good + ".", good.substr(0, good.size() - 1)}) {
        EXPECT_NE(refusalOf(text), "accepted") << text;
    }
}

TEST_F(TokensTest, aTokenOfAnotherKeyIsRefused) {
    const Tokens other("another key", std::chrono::seconds(60), [] { return startTime; });
    EXPECT_EQ(refusalOf(other.issue({"kid/1", "home"})), "the token's signature is wrong");
}

/// A queue that is held up by its first write until the test lets it go on.
class WriteQueueTest : public testing::Test {
  protected:
    WriteQueueTest() {
        prepareDatabase(file);
        queue.emplace(file);
    }

    /// Adds a write of a setting and returns its answer to come.
    std::future<Reply> add(const std::string& name, unsigned status) {
        auto answer = std::make_shared<std::promise<Reply>>();
        queue->add(
            "/test",
            [name, status](Connection& connection) {
                insert(connection, name);
                return Reply{status};
            },
            [answer](Reply reply) { answer->set_value(std::move(reply)); });
        return answer->get_future();
    }

    /// Adds a write whose transaction cannot be committed.
    std::future<Reply> addPoison() {
        auto answer = std::make_shared<std::promise<Reply>>();
        queue->add(
            "/poison",
            [](Connection& connection) {
                connection.database().exec(
                    "PRAGMA defer_foreign_keys = ON;"
                    "INSERT INTO blocks (household, profile_id) VALUES (4711, 'nobody')");
                return Reply{};
            },
            [answer](Reply reply) { answer->set_value(std::move(reply)); });
        return answer->get_future();
    }

    static void insert(Connection& connection, const std::string& name) {
        Query(connection, "INSERT INTO settings (name, value) VALUES (?, '')", name).run();
    }

    void holdUp() {
        std::promise<void> started;
        auto entered = started.get_future();
        queue->add(
            "/test",
            [&started, this](Connection&) {
                started.set_value();
                release.get_future().wait();
                return Reply{};
            },
            [](const Reply&) {});
        entered.wait();
    }

    std::string stored() {
        Connection connection(file, Connection::Mode::readOnly);
        Query query(connection,
                    "SELECT group_concat(name, ' ') FROM (SELECT name FROM settings"
                    " ORDER BY name)");
        query.next();
        return query.text(0);
    }

    TestSupport::TemporaryDirectory folder;
    std::filesystem::path file = folder / "queue.sqlite";
    std::promise<void> release;
    std::optional<WriteQueue> queue;
};

TEST_F(WriteQueueTest, aWriteIsOnTheDiskWhenItIsAnswered) {
    auto seen = std::make_shared<std::promise<std::string>>();
    queue->add(
        "/test",
        [](Connection& connection) {
            insert(connection, "one");
            return Reply{};
        },
        [seen, this](const Reply&) { seen->set_value(stored()); });
    EXPECT_EQ(seen->get_future().get(), "one");
}

TEST_F(WriteQueueTest, aFailedWriteLeavesNothingAndDisturbsNoOther) {
    holdUp();
    auto first = add("first", 204);
    auto second = add("second", 409);
    auto third = add("third", 204);
    release.set_value();
    EXPECT_EQ(first.get().status, 204U);
    EXPECT_EQ(second.get().status, 409U);
    EXPECT_EQ(third.get().status, 204U);
    EXPECT_EQ(stored(), "first third");
}

TEST_F(WriteQueueTest, aFailedWriteThatIsAloneLeavesNothing) {
    EXPECT_EQ(add("failed", 409).get().status, 409U);
    EXPECT_EQ(stored(), "");
    EXPECT_EQ(add("good", 204).get().status, 204U);
    EXPECT_EQ(stored(), "good");
}

TEST_F(WriteQueueTest, writesThatWaitedShareOneTransaction) {
    holdUp();
    std::atomic<int> rowsAtFirstAnswer = -1;
    queue->add(
        "/test",
        [](Connection& connection) {
            insert(connection, "a");
            return Reply{};
        },
        [this, &rowsAtFirstAnswer](const Reply&) {
            rowsAtFirstAnswer = static_cast<int>(stored().size());
        });
    auto last = add("b", 204);
    release.set_value();
    EXPECT_EQ(last.get().status, 204U);
    EXPECT_EQ(rowsAtFirstAnswer, 3) << "the second write was not stored with the first";
}

TEST_F(WriteQueueTest, aWriteMayHaveATransactionOfItsOwn) {
    holdUp();
    auto before = add("before", 204);
    std::string storedThen;
    queue->add(
        "/test",
        [](Connection& connection) {
            insert(connection, "own");
            return Reply{};
        },
        [this, &storedThen](const Reply&) { storedThen = stored(); }, WriteQueue::Transaction::own);
    auto after = add("failed", 409);
    auto last = add("last", 204);
    release.set_value();
    EXPECT_EQ(before.get().status, 204U);
    EXPECT_EQ(after.get().status, 409U);
    EXPECT_EQ(last.get().status, 204U);
    EXPECT_EQ(storedThen, "before own");
    EXPECT_EQ(stored(), "before last own");
}

TEST_F(WriteQueueTest, whenTheTransactionFailsEveryWriteOfItIsToldSo) {
    holdUp();
    auto good = add("good", 204);
    auto poisoned = addPoison();
    release.set_value();
    const Reply failed = poisoned.get();
    EXPECT_EQ(failed.status, 503U);
    EXPECT_NE(failed.body.find("\"instance\":\"/poison\""), std::string::npos) << failed.body;
    EXPECT_EQ(good.get().status, 503U);
    EXPECT_EQ(stored(), "");
    EXPECT_EQ(add("later", 204).get().status, 204U);
    EXPECT_EQ(stored(), "later");
}

TEST_F(WriteQueueTest, aWriteThatIsAloneIsToldOfAFailedTransactionToo) {
    EXPECT_EQ(addPoison().get().status, 503U);
    EXPECT_EQ(add("later", 204).get().status, 204U);
    EXPECT_EQ(stored(), "later");
}

TEST_F(WriteQueueTest, theEndWaitsForWhatWasAdded) {
    holdUp();
    auto answer = add("last", 204);
    std::thread end([this] { queue.reset(); });
    release.set_value();
    end.join();
    EXPECT_EQ(answer.get().status, 204U);
    EXPECT_EQ(stored(), "last");
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
