#include <algorithm>
#include <array>
#include <chrono>
#include <fstream>
#include <mutex>
#include <thread>

#include <gmock/gmock.h>

#include "Transfers.hpp"
#include "support/Certificates.hpp"
#include "support/Ports.hpp"
#include "support/Program.hpp"

using namespace HalvardSling;
using namespace TestSupport;
using namespace std::chrono_literals;

namespace {

/// nghttp2's server on the loopback interface, serving a folder over TLS.
class NGHTTPServer {
  public:
    NGHTTPServer(const Certificate& certificate, const std::filesystem::path& folder) {
        for (int attempt = 0; attempt < 5 && !running(); ++attempt)
            start(certificate, folder);
    }

    [[nodiscard]] bool running() const { return program_.has_value(); }

    [[nodiscard]] std::string url(const std::string& path) const {
        return "https://localhost:" + std::to_string(port_) + path;
    }

    void stop() { program_.reset(); }

  private:
    void start(const Certificate& certificate, const std::filesystem::path& folder) {
        port_ = freePort();
        program_.emplace(std::vector<std::string>{
            "nghttpd", "--address=127.0.0.1", "--htdocs=" + folder.string(), std::to_string(port_),
            certificate.keyFile(), certificate.certificateFile()});
        if (!waitUntilListening(port_)) stop();
    }

    std::uint16_t port_ = 0;
    std::optional<Program> program_;
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
    TemporaryDirectory folder;
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
