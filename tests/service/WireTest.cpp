// What reaches the network when the values of a request hold anything: each byte, in each
// placeholder and each header, with the real transport and a real server.

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <HalvardSling/curl/CurlTransport.hpp>
#include <KestrinProfile/model/ProfileError.hpp>

#include "ServiceFixture.hpp"
#include "support/RawServer.hpp"

namespace {

using HalvardSling::CurlTransport;
using HalvardSling::Response;
using KestrinConfigManager::ServiceTable;
using KestrinConfigManager::URLTemplate;
using KestrinProfile::ProfileOperation;
using KestrinProfile::ProfileParams;
using KestrinProfile::SearchParams;
using KestrinProfile::Types;
using TestSupport::httpReply;
using TestSupport::Observed;
using TestSupport::RawServer;
using TestSupport::ServiceFixture;

/// Where a value of the application goes to.
struct Place {
    const char* name;
    void (*put)(ProfileParams& params, std::string& profileID, std::string& token,
                const std::string& value);
};

constexpr Place places[] = {
    {"video", [](auto& params, auto&, auto&, auto& value) { params.videoID = value; }},
    {"show", [](auto& params, auto&, auto&, auto& value) { params.showID = value; }},
    {"name", [](auto& params, auto&, auto&, auto& value) { params.userName = value; }},
    {"brand", [](auto& params, auto&, auto&, auto& value) { params.brandID = value; }},
    {"profile", [](auto&, auto& profileID, auto&, auto& value) { profileID = value; }},
    {"token", [](auto&, auto&, auto& token, auto& value) { token = value; }},
};

class Wire : public ServiceFixture {
  protected:
    Wire() { HalvardSling::setDefaultTransport(curl); }

    [[nodiscard]] std::string origin() const {
        return "http://127.0.0.1:" + std::to_string(server.port());
    }

    /// All operations go to this path and query of the server.
    void configureTarget(const std::string& target) { configureURL(origin() + target); }

    void configureURL(const std::string& url) {
        ServiceTable table;
        for (const auto operation :
             {ProfileOperation::addVideoToHistory, ProfileOperation::addSearchHistory}) {
            auto each = service(operation);
            each.url = URLTemplate(url);
            each.policy.allowsCleartext = true;
            each.policy.connectTimeout = each.policy.totalTimeout = std::chrono::hours(10);
            table.add(std::move(each));
        }
        configureWith(std::move(table));
    }

    /// Values with this byte, some of which name another server.
    [[nodiscard]] std::vector<std::string> valuesWith(char byte) const {
        const std::string decoyHost = "127.0.0.1:" + std::to_string(decoy.port());
        const std::string single(1, byte);
        return {single,
                'a' + single + 'z',
                single + '@' + decoyHost + '/',
                single + single + decoyHost,
                'x' + single + "Host: " + decoyHost + single + '\n',
                single + "\n\nGET /smuggled HTTP/1.1\r\n\r\n"};
    }

    void send(const Place& place, const std::string& value) {
        ProfileParams params;
        params.videoID = params.showID = params.userName = params.brandID = "usual";
        params.progress = 1;
        std::string profileID = "p1";
        std::string token = "token";
        place.put(params, profileID, token, value);
        manager.dropBinds();
        hold(profileID, token);
        manager.selectProfile(profileID);
        count(Observed<Response>(profile.addHistoryVideo(std::move(params))));
    }

    void search(const std::string& text) {
        hold("p1", "token");
        manager.selectProfile("p1");
        SearchParams params(text, Types::video);
        count(Observed<Response>(profile.addSearchHistory(params)));
    }

    void count(const Observed<Response>& observed) {
        if (observed.completed()) ++answered;
    }

    /// Whether the head of what was received is that of one request to the server.
    void expectOneRequest(const std::string& received) const {
        const std::string head = received.substr(0, received.find("\r\n\r\n") + 2);
        std::size_t hosts = 0;
        for (std::size_t begin = 0; begin < head.size();) {
            const std::size_t end = head.find("\r\n", begin);
            const std::string line = head.substr(begin, end - begin);
            EXPECT_TRUE(std::ranges::none_of(line, [](char byte) {
                return byte == '\r' || byte == '\n' || byte == '\0';
            })) << testing::PrintToString(line);
            if (begin == 0) {
                EXPECT_TRUE(line.starts_with("POST /") && line.ends_with(" HTTP/1.1") &&
                            std::ranges::count(line, ' ') == 2)
                    << testing::PrintToString(line);
            }
            if (line.starts_with("Host:")) {
                ++hosts;
                EXPECT_EQ("http://" + line.substr(6), origin());
            }
            begin = end + 2;
        }
        EXPECT_EQ(hosts, 1U) << testing::PrintToString(head);
    }

    void expectOnlyWholeRequests() const {
        const auto requests = server.requests();
        EXPECT_EQ(requests.size(), answered);
        for (const auto& each : requests)
            expectOneRequest(each);
        EXPECT_EQ(decoy.connections(), 0U);
        EXPECT_GT(answered, 0U);
    }

    std::size_t answered = 0;
    RawServer decoy{RawServer::answering(httpReply(200, "decoy"))};
    RawServer server{RawServer::answering(httpReply(200, "{}"))};
    std::shared_ptr<CurlTransport> curl = std::make_shared<CurlTransport>();
};

TEST_F(Wire, NoByteInAnyPlaceholderOrHeaderLeavesItsPlace) {
    configureTarget("/v/%VIDEO%/x?s=%SHOWID%&n=%USERNAME%&b=%BRANDNAME%&p=%UXID%");
    for (const Place& place : places)
        for (int byte = 0; byte < 256; ++byte)
            for (const auto& value : valuesWith(static_cast<char>(byte)))
                send(place, value);
    expectOnlyWholeRequests();
}

TEST_F(Wire, NoByteInASearchLeavesItsPlace) {
    configureTarget("/v1/searches?search=%SEARCH%&b=%BRANDNAME%");
    for (int byte = 0; byte < 256; ++byte)
        for (const auto& value : valuesWith(static_cast<char>(byte)))
            search(value);
    expectOnlyWholeRequests();
}

TEST_F(Wire, NoByteBehindThePortLeadsToAnotherServer) {
    for (const std::string target : {"%VIDEO%", "%VIDEO%/v1", "/%VIDEO%", "?%VIDEO%"}) {
        configureTarget(target);
        for (int byte = 0; byte < 256; ++byte)
            for (const auto& value : valuesWith(static_cast<char>(byte)))
                send(places[0], value);
    }
    expectOnlyWholeRequests();
}

TEST_F(Wire, NoValueChoosesTheServer) {
    const std::string decoyPort = std::to_string(decoy.port());
    for (const std::string url : {"http://%VIDEO%/v1", "http://127.0.0.%VIDEO%/v1",
                                  "http://127.0.0.1:%VIDEO%/v1", "http://%VIDEO%127.0.0.1/v1"}) {
        configureURL(url);
        for (const std::string beginning : {"127.0.0.1:", "1:", "", "127.0.0.1:80@127.0.0.1:"})
            for (int byte = 0; byte < 256; ++byte)
                send(places[0], beginning + decoyPort + static_cast<char>(byte));
        for (const std::string value : {"127.0.0.1:", "1:", ""})
            send(places[0], value + decoyPort);
    }
    EXPECT_EQ(answered, 0U);
    EXPECT_EQ(decoy.connections(), 0U);
}

}  // namespace
