// Whatever clients send, or do not read, the service keeps a limited amount of it for a limited
// time.
#include <list>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Support.hpp"
#include "support/Waiting.hpp"

namespace KestrinProfileServer::Testing {
namespace {

constexpr std::size_t tooLarge = 70UL * 1024;

std::string repeated(const std::string& text, std::size_t times) {
    std::string all;
    for (; times > 0; --times)
        all += text;
    return all;
}

const std::string padding(tooLarge, 'x');
const std::string get = "GET /healthz HTTP/1.1\r\nHost: x\r\n";
const std::string chunked =
    "POST /v1/binds?profile=parent&v=1 HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n";

/// A request that is larger than allowed in one of its parts.
struct Excess {
    std::string name;
    std::string beginning;  ///< up to the end of what is too large
    std::string end;
};

/// For GoogleTest's messages.
void PrintTo(const Excess& excess, std::ostream* out) {
    *out << excess.name;
}

class LimitTest : public testing::TestWithParam<Excess> {
  protected:
    TestService service;
};

TEST_P(LimitTest, aWholeRequestIsRefused) {
    EXPECT_EQ(outcomeOfRaw(sendRaw(service.baseURL(), GetParam().beginning + GetParam().end)),
              "431 headers-too-large");
}

TEST_P(LimitTest, aRequestThatNeverEndsIsRefused) {
    EXPECT_EQ(outcomeOfRaw(sendRaw(service.baseURL(), GetParam().beginning)),
              "431 headers-too-large");
}

INSTANTIATE_TEST_SUITE_P(
    All, LimitTest,
    testing::Values(
        Excess{"RequestLine", "GET /" + padding, " HTTP/1.1\r\nHost: x\r\n\r\n"},
        Excess{"Method", padding, " / HTTP/1.1\r\nHost: x\r\n\r\n"},
        Excess{"Header", get + "X: " + padding, "\r\n\r\n"},
        Excess{"HeaderName", get + padding, ": x\r\n\r\n"},
        Excess{"Headers", get + repeated("X: " + std::string(1000, 'x') + "\r\n", 70), "\r\n"},
        Excess{"ChunkExtension", chunked + "1;" + padding, "\r\na\r\n0\r\n\r\n"},
        Excess{"ChunkExtensionValue", chunked + "1;a=\"" + padding, "\"\r\na\r\n0\r\n\r\n"},
        Excess{"ChunkExtensions",
               chunked + repeated("1;" + std::string(1000, 'x') + "\r\n \r\n", 70), "0\r\n\r\n"},
        Excess{"ZerosOfAChunkSize", chunked + std::string(tooLarge, '0'), "1\r\na\r\n0\r\n\r\n"},
        Excess{"ZerosOfTheLastChunkSize", chunked + std::string(tooLarge, '0'), "\r\n\r\n"},
        Excess{"LastChunkExtension", chunked + "0;" + padding, "\r\n\r\n"},
        Excess{"Trailer", chunked + "0\r\nX: " + padding, "\r\n\r\n"},
        Excess{"Trailers",
               chunked + "0\r\n" + repeated("X: " + std::string(1000, 'x') + "\r\n", 70), "\r\n"},
        Excess{"ManyTrailers", chunked + "0\r\n" + repeated("X:\r\n", tooLarge / 4), "\r\n"}),
    [](const auto& each) { return each.param.name; });

class LimitsTest : public testing::Test {
  protected:
    static constexpr const char* favorites = "/v1/favorites?brand=b&profile=parent&v=1";
    static constexpr const char* addShows = "/v1/favorites/shows?brand=b&profile=parent&v=1";

    /// Fills the favourites with so many of the longest entries.
    void fill(int count) {
        HouseholdClient client = service.client();
        const Caller parent = client.bind("parent");
        const std::string type(2048, 't');
        for (int show = 0; show < count;) {
            std::string body;
            for (int left = 200; left > 0 && show < count; --left, ++show) {
                const std::string id = std::to_string(show);
                body += (body.empty() ? R"({"id":")" : R"(,{"id":")") + id +
                        std::string(2048 - id.size(), 'i') + R"(","type":")" + type + "\"}";
            }
            ASSERT_EQ(
                outcomeOf(client.call(parent, "POST", addShows, R"({"elements":[)" + body + "]}")),
                "204");
        }
    }

    std::string request(const std::string& method, const std::string& target,
                        const std::string& headers = "") {
        std::string lines;
        for (const auto& [name, value] : service.client().bind("parent").headers())
            lines.append(name).append(": ").append(value).append("\r\n");
        return method + " " + target + " HTTP/1.1\r\nHost: x\r\n" + lines + headers + "\r\n";
    }

    /// The head of a request and a part of its body.
    std::string partOfABody(std::size_t bytes) {
        return request("POST", addShows,
                       "Content-Type: application/json\r\nContent-Length: 1000000\r\n") +
               std::string(bytes, ' ');
    }

    TestService service;
};

// Each line fills the reader's first piece of memory, so it is taken apart by itself.
TEST_F(LimitsTest, headersThatComeLineByLineAreCountedTogether) {
    RawClient client(service.baseURL());
    const std::string start = "GET /healthz?";
    const std::string end = " HTTP/1.1\r\n";
    const auto filled = [](const std::string& from, const std::string& to) {
        return from + std::string(512 - from.size() - to.size(), 'x') + to;
    };
    bool isOpen = client.send(filled(start, end)) && client.send(filled("Host: ", "\r\n"));
    for (int line = 0; isOpen && line < 4000; ++line)
        isOpen = client.send(filled("X: ", "\r\n"));
    client.send("\r\n");
    EXPECT_EQ(outcomeOfRaw(client.rest()), "431 headers-too-large");
}

TEST_F(LimitsTest, oneHundredHeadersAreAllowed) {
    const auto outcome = [this](std::size_t more) {
        return outcomeOfRaw(sendRaw(
            service.baseURL(), get + "Connection: close\r\n" + repeated("X:\r\n", more) + "\r\n"));
    };
    EXPECT_EQ(outcome(98), "200");
    EXPECT_EQ(outcome(99), "431 headers-too-large");
}

TEST_F(LimitsTest, anAnnouncedBodyIsRefusedBeforeItComes) {
    EXPECT_EQ(outcomeOfRaw(sendRaw(service.baseURL(),
                                   "POST /v1/binds HTTP/1.1\r\nHost: x\r\n"
                                   "Content-Length: 1048577\r\n\r\n")),
              "413 body-too-large");
    EXPECT_EQ(outcomeOfRaw(sendRaw(service.baseURL(), chunked + "100001\r\n")),
              "413 body-too-large");
    EXPECT_EQ(outcomeOfRaw(sendRaw(service.baseURL(), chunked + "ffffffffffffffff\r\n")),
              "413 body-too-large");
}

TEST_F(LimitsTest, manyRequestsAtOnceAreAnsweredOneAfterAnother) {
    constexpr std::size_t count = 5000;
    RawClient client(service.baseURL());
    std::thread sender(
        [&] { client.send(repeated(get + "\r\n", count) + get + "Connection: close\r\n\r\n"); });
    const std::string answers = client.rest();
    sender.join();
    std::size_t found = 0;
    for (std::size_t at = answers.find("\"ok\""); at != std::string::npos;
         at = answers.find("\"ok\"", at + 1))
        ++found;
    EXPECT_EQ(found, count + 1);
}

TEST_F(LimitsTest, theBodiesOfAllClientsTogetherAreLimited) {
    service.restart([](ServiceSettings& settings) { settings.http.memoryLimit = 100'000; });
    const auto outcomeOfBody = [this](std::size_t bytes) {
        const std::string head =
            request("POST", addShows,
                    "Content-Type: application/json\r\nConnection: close\r\nContent-Length: " +
                        std::to_string(bytes) + "\r\n");
        return outcomeOfRaw(
            sendRaw(service.baseURL(), head + R"({"elements":[]})" + std::string(bytes - 15, ' ')));
    };
    // The second one may be read before the first, which is refused then.
    EXPECT_TRUE(TestSupport::eventually([&] {
        RawClient first(service.baseURL());
        first.send(partOfABody(60'000));
        if (outcomeOfBody(60'000) != "503 busy") return false;
        first.send(std::string(40'001, ' '));
        EXPECT_EQ(outcomeOfRaw(first.rest()), "503 busy");
        return true;
    })) << "the first one holds more than the rest";
    EXPECT_TRUE(TestSupport::eventually([&] { return outcomeOfBody(90'000) == "204"; }))
        << "what the others held was given back";
}

TEST_F(LimitsTest, repliesThatNobodyReadsAreLimitedInSizeAndTime) {
    constexpr int entries = 2000;
    service.restart([](ServiceSettings& settings) {
        settings.limits.maxListSize = entries;
        settings.http.memoryLimit = std::size_t{12} * 1024 * 1024;
    });
    ASSERT_NO_FATAL_FAILURE(fill(entries));
    const std::string list = request("GET", favorites);
    std::list<RawClient> greedy;
    RawClient another(service.baseURL());
    EXPECT_TRUE(TestSupport::eventually([&] {
        greedy.emplace_back(service.baseURL(), RawClient::Reading::little).send(list);
        another.send(list);
        return outcomeOfRaw(another.reply()) == "503 busy";
    })) << "a reply that waits for its reader takes most of the memory";
    another.send(get + "\r\n");
    EXPECT_EQ(outcomeOfRaw(another.reply()), "200") << "the connection stays, and small replies go";

    greedy.clear();
    service.restart([](ServiceSettings& settings) {
        settings.http.transferTimeout = std::chrono::milliseconds(300);
    });
    RawClient slow(service.baseURL(), RawClient::Reading::little);
    ASSERT_TRUE(slow.send(list));
    EXPECT_TRUE(TestSupport::eventually([&] {
        RawClient next(service.baseURL());
        next.send(list);
        return outcomeOfRaw(next.reply()) == "200";
    })) << "the time for reading is limited";
}

TEST_F(LimitsTest, aRequestCannotBeKeptOpenByteByByte) {
    service.restart([](ServiceSettings& settings) {
        settings.http.transferTimeout = std::chrono::milliseconds(300);
    });
    for (const std::string& begun :
         {get + "X: ", request("POST", addShows, "Content-Length: 1000000\r\n"), chunked + "1;",
          chunked + "0\r\nX: ", chunked + "0"}) {
        RawClient client(service.baseURL());
        ASSERT_TRUE(client.send(begun));
        const char next = begun.ends_with("0") ? '0' : 'x';
        // Without a limit of time, only that of the size would end this, with an answer.
        while (client.send({&next, 1}))
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        EXPECT_EQ(client.rest(), "") << begun;
    }
}

TEST_F(LimitsTest, noMoreClientsAreServedAtOnceThanAllowed) {
    service.restart([](ServiceSettings& settings) { settings.http.maxConnections = 2; });
    RawClient first(service.baseURL());
    RawClient second(service.baseURL());
    for (RawClient* each : {&first, &second}) {
        each->send(get + "\r\n");
        ASSERT_EQ(outcomeOfRaw(each->reply()), "200");
    }
    std::string order;
    std::mutex mutex;
    const auto note = [&](const char* what) {
        const std::lock_guard lock(mutex);
        order += what;
    };
    RawClient third(service.baseURL());
    std::thread waiting([&] {
        third.send(get + "\r\n");
        const std::string answer = outcomeOfRaw(third.reply());
        note(answer == "200" ? " third" : " nothing");
    });
    for (int request = 0; request < 200; ++request) {
        second.send(get + "\r\n");
        ASSERT_EQ(outcomeOfRaw(second.reply()), "200");
    }
    note("first");
    first.send(get + "Connection: close\r\n\r\n");
    EXPECT_EQ(outcomeOfRaw(first.rest()), "200");
    first.close();
    waiting.join();
    EXPECT_EQ(order, "first third");
}

TEST_F(LimitsTest, aServiceThatIsFullStops) {
    service.restart([](ServiceSettings& settings) { settings.http.maxConnections = 1; });
    RawClient only(service.baseURL());
    only.send(get + "\r\n");
    ASSERT_EQ(outcomeOfRaw(only.reply()), "200");
    const RawClient waiting(service.baseURL());
    service.restart();
    EXPECT_EQ(outcomeOf(HttpClient(service.baseURL()).send("GET", "/healthz")), "200");
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
