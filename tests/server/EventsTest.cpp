// What happens is told to who listens, as it happens.
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <kestrin-profile-server/admin/Events.hpp>

#include "AdminSupport.hpp"

namespace KestrinProfileServer::Testing {
namespace {

namespace json = boost::json;
using testing::HasSubstr;
using testing::StartsWith;

/// A client of the stream.
class Listener {
  public:
    explicit Listener(const std::string& baseURL) : raw_(baseURL) {
        raw_.send("GET /admin/v1/events HTTP/1.1\r\nHost: 127.0.0.1:" +
                  std::to_string(portIn(baseURL)) + "\r\n\r\n");
        head_ = raw_.until("\n\n");
    }
    const std::string& head() const { return head_; }

    /// The next event, without comments.
    std::string next() {
        std::string text;
        do
            text = raw_.until("\n\n");
        while (text.starts_with(":"));
        return text;
    }
    /// Everything until the end.
    std::string rest() { return raw_.rest(); }

  private:
    RawClient raw_;
    std::string head_;
};

json::value dataOf(const std::string& event) {
    const std::size_t begin = event.find("data: ") + 6;
    return json::parse(event.substr(begin, event.find('\n', begin) - begin));
}

class EventsTest : public AdminClientTest {};

TEST_F(EventsTest, tellRequestsAndFaults) {
    Listener listener(service.baseURL());
    EXPECT_THAT(listener.head(), StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(listener.head(), HasSubstr("Content-Type: text/event-stream\r\n"));
    client.call(parent, "GET", "/v1/history?brand=b&profile=parent&v=1");
    const std::string request = listener.next();
    EXPECT_THAT(request, StartsWith("id: 2\nevent: request\ndata: {"));
    EXPECT_EQ(dataOf(request).at("operation"), "personalization-history-get");
    EXPECT_EQ(dataOf(request), get("/admin/v1/journal").at("entries").at(0));
    setFault(R"({"action": {"kind": "refuse"}})");
    const std::string faults = listener.next();
    EXPECT_THAT(faults, StartsWith("event: faults\ndata: {"));
    EXPECT_EQ(dataOf(faults), get("/admin/v1/faults"));
}

TEST_F(EventsTest, tellThatTheStateHasChanged) {
    Listener listener(service.baseURL());
    client.call(parent, "PUT", "/v1/history/video?video=v&brand=b&profile=parent&v=1");
    EXPECT_THAT(listener.next(), HasSubstr("event: request\n"));
    EXPECT_EQ(listener.next(), "event: state\ndata: {}\n\n");
    client.call(parent, "PUT", "/v1/history/video?video=&brand=b&profile=parent&v=1");
    client.call(parent, "GET", "/v1/history?brand=b&profile=parent&v=1");
    EXPECT_THAT(listener.next(), HasSubstr("\"status\":422"));
    EXPECT_THAT(listener.next(), HasSubstr("\"status\":200"));
}

TEST_F(EventsTest, reachEveryListenerAndOutliveWhoGoes) {
    std::optional<Listener> first(service.baseURL());
    Listener second(service.baseURL());
    setFault(R"({"action": {"kind": "refuse"}})");
    EXPECT_EQ(first->next(), second.next());
    first.reset();
    send("DELETE", "/admin/v1/faults");
    EXPECT_THAT(second.next(), HasSubstr(R"({"faults":[]})"));
}

TEST_F(EventsTest, endAtOnceWhenTheServiceStops) {
    Listener listener(service.baseURL());
    service.restart();
    // Nothing but the comments of a stream that is idle.
    EXPECT_EQ(listener.rest().find_first_not_of(":\n"), std::string::npos);
}

TEST(EventStreamTest, whoTakesTooSlowlyIsLeftBehind) {
    Events events;
    const auto slow = events.listen();
    const auto quick = events.listen();
    const std::string data(1000, 'x');
    for (std::size_t index = 0; index < EventStream::limit / data.size(); ++index) {
        events.publish("request", data);
        EXPECT_FALSE(quick->take().isEnded);
    }
    const auto taken = slow->take();
    EXPECT_TRUE(taken.isEnded);
    EXPECT_EQ(taken.text, "");
}

TEST(EventStreamTest, nobodyIsThereBeforeOneListensAndAfterAllHaveGone) {
    Events events;
    EXPECT_FALSE(events.hasListeners());
    auto stream = events.listen();
    EXPECT_TRUE(events.hasListeners());
    stream.reset();
    events.publish("reset", "{}");
    EXPECT_FALSE(events.hasListeners());
}

TEST(EventStreamTest, wakesOnceUntilWhatIsThereWasTaken) {
    EventStream stream;
    int calls = 0;
    stream.setWake([&] { ++calls; });
    stream.add("a");
    stream.add("b");
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(stream.take().text, "ab");
    stream.add("c");
    EXPECT_EQ(calls, 2);
    stream.setWake([&] { calls += 10; });
    EXPECT_EQ(calls, 12) << "something is there already";
    stream.end();
    EXPECT_EQ(calls, 22);
    EXPECT_TRUE(stream.take().isEnded);
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
