#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <chrono>
#include <fstream>
#include <mutex>
#include <netinet/in.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>

#include "Transfers.hpp"
#include "support/Certificates.hpp"

using namespace HalvardSling;
using namespace TestSupport;
using namespace std::chrono_literals;

namespace {

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

/// A port that was free a moment ago.
std::uint16_t freePort() {
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    ::bind(socket, reinterpret_cast<sockaddr*>(&address), size);
    ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
    ::close(socket);
    return ntohs(address.sin_port);
}

bool answers(std::uint16_t port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    const sockaddr_in address = loopback(port);
    const bool connected =
        ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(socket);
    return connected;
}

/// nghttp2's server on the loopback interface, serving a folder over TLS.
class NGHTTPServer {
  public:
    NGHTTPServer(const Certificate& certificate, const std::filesystem::path& folder) {
        for (int attempt = 0; attempt < 5 && !running(); ++attempt)
            start(certificate, folder);
    }
    NGHTTPServer(const NGHTTPServer&) = delete;
    NGHTTPServer(NGHTTPServer&&) = delete;
    NGHTTPServer& operator=(const NGHTTPServer&) = delete;
    NGHTTPServer& operator=(NGHTTPServer&&) = delete;
    ~NGHTTPServer() { stop(); }

    [[nodiscard]] bool running() const { return process_ > 0; }

    [[nodiscard]] std::string url(const std::string& path) const {
        return "https://localhost:" + std::to_string(port_) + path;
    }

    void stop() {
        if (!running()) return;
        ::kill(process_, SIGKILL);
        ::waitpid(process_, nullptr, 0);
        process_ = 0;
    }

  private:
    void start(const Certificate& certificate, const std::filesystem::path& folder) {
        port_ = freePort();
        std::vector<std::string> words{"nghttpd",
                                       "--address=127.0.0.1",
                                       "--htdocs=" + folder.string(),
                                       std::to_string(port_),
                                       certificate.keyFile(),
                                       certificate.certificateFile()};
        std::vector<char*> arguments;
        for (auto& word : words)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        if (::posix_spawnp(&process_, "nghttpd", nullptr, nullptr, arguments.data(), environ) !=
            0) {
            process_ = 0;
            return;
        }
        for (int i = 0; i < 200; ++i) {
            if (answers(port_)) return;
            std::this_thread::sleep_for(20ms);
        }
        stop();
    }

    pid_t process_ = 0;
    std::uint16_t port_ = 0;
};

class HTTP2Test : public testing::Test {
  protected:
    void SetUp() override {
        std::ofstream(folder.path() / "small") << "small";
        std::ofstream(folder.path() / "large") << std::string(5'000'000, 'x');
        ASSERT_TRUE(server.running()) << "nghttpd (Debian's package nghttp2-server) cannot be run";
    }

    [[nodiscard]] TransportRequest request(const std::string& path) const {
        TransportRequest result;
        result.url = server.url(path);
        return result;
    }

    [[nodiscard]] std::vector<TransferLog> logged() {
        const std::scoped_lock lock(mutex);
        return log;
    }

    Certificate certificate;
    TemporaryFolder folder;
    NGHTTPServer server{certificate, folder.path()};
    std::mutex mutex;
    std::vector<TransferLog> log;
    std::shared_ptr<CurlTransport> transport = curlTransport(
        {.caBundleFile = certificate.certificateFile(), .log = [this](const TransferLog& each) {
             const std::scoped_lock lock(mutex);
             log.push_back(each);
         }});
};

TEST_F(HTTP2Test, ParallelRequestsShareOneConnection) {
    std::vector<Responses> all;
    for (int i = 0; i < 200; ++i)
        all.push_back(sent(request("/small"), transport));
    for (const auto& each : all)
        EXPECT_THAT(each, Answers(200, "small"));
    const auto records = logged();
    ASSERT_EQ(records.size(), 200U);
    EXPECT_THAT(records, testing::Each(testing::Field(&TransferLog::httpVersion, "2")));
    EXPECT_EQ(std::ranges::count(records, false, &TransferLog::reusedConnection), 1);
}

TEST_F(HTTP2Test, LargeAndSmallRepliesAreWhole) {
    std::vector<Responses> all;
    for (int i = 0; i < 6; ++i)
        all.push_back(sent(request(i % 2 == 0 ? "/large" : "/small"), transport));
    for (std::size_t i = 0; i < all.size(); ++i)
        EXPECT_THAT(all[i], Answers(200, i % 2 == 0 ? std::string(5'000'000, 'x') : "small"));
}

TEST_F(HTTP2Test, ErrorsAndCapsAreAsInHTTP1) {
    EXPECT_EQ(sent(request("/none"), transport).error<SlingError>()->statusCode(), 404);
    auto capped = request("/large");
    capped.maxBodyBytes = 1000;
    EXPECT_THAT(sent(capped, transport), FailsWith(SlingErrorKind::tooLarge));
    capped.maxHeaderBytes = 10;
    EXPECT_THAT(sent(capped, transport), FailsWith(SlingErrorKind::tooLarge));
    EXPECT_THAT(sent(request("/small"), transport), Answers(200, "small"));
}

TEST_F(HTTP2Test, UnsubscribingEndsTheStreamAndLeavesTheConnection) {
    ASSERT_THAT(sent(request("/small"), transport), Answers(200, "small"));
    for (int i = 0; i < 50; ++i) {
        Responses open = sent(request("/large"), transport);
        std::this_thread::sleep_for(1ms);
        open.unsubscribe();
    }
    EXPECT_THAT(sent(request("/small"), transport), Answers(200, "small"));
    const auto records = logged();
    EXPECT_EQ(std::ranges::count(records, "2", &TransferLog::httpVersion),
              std::ranges::count_if(records, [](const auto& each) {
                  return each.status || !each.httpVersion.empty();
              }));
    EXPECT_TRUE(records.back().reusedConnection);
}

TEST_F(HTTP2Test, ALostConnectionIsReported) {
    ASSERT_THAT(sent(request("/small"), transport), Answers(200, "small"));
    server.stop();
    EXPECT_THAT(sent(request("/small"), transport),
                testing::AnyOf(FailsWith(SlingErrorKind::cannotConnect),
                               FailsWith(SlingErrorKind::connectionLost)));
}

}  // namespace
