#include <cstdlib>
#include <fstream>
#include <map>
#include <optional>
#include <string>

#include <gmock/gmock.h>

#include "CurlTransfers.hpp"
#include "support/Certificates.hpp"

using namespace HalvardSling;
using namespace TestSupport;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

/// Sets variables of the environment and puts back what was there.
class EnvironmentTest : public testing::Test {
  protected:
    ~EnvironmentTest() override {
        for (const auto& [name, value] : before_) {
            if (value)
                ::setenv(name.c_str(), value->c_str(), 1);
            else
                ::unsetenv(name.c_str());
        }
    }

    void set(const std::string& name, const std::string& value) {
        const char* const old = std::getenv(name.c_str());
        before_.emplace(name, old != nullptr ? std::optional<std::string>(old) : std::nullopt);
        ::setenv(name.c_str(), value.c_str(), 1);
    }

    RawServer server{RawServer::answering(httpReply(200, "direct"))};
    RawServer proxy{RawServer::answering(httpReply(200, "proxy"))};

  private:
    std::map<std::string, std::optional<std::string>> before_;
};

TEST_F(EnvironmentTest, ProxiesAreIgnored) {
    for (const char* const name :
         {"http_proxy", "HTTP_PROXY", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"})
        set(name, proxy.url());
    EXPECT_THAT(sent(requestTo(server.url()), curlTransport()), Answers(200, "direct"));

    const Certificate certificate;
    const RawServer secure(RawServer::answering(httpReply(200, "direct")),
                           ServerTLS{.certificateFile = certificate.certificateFile(),
                                     .keyFile = certificate.keyFile()});
    EXPECT_THAT(sent(requestTo(secure.url()),
                     curlTransport({.caBundleFile = certificate.certificateFile()})),
                Answers(200, "direct"));
    EXPECT_EQ(proxy.connections(), 0U);
}

TEST_F(EnvironmentTest, TheConfiguredProxyIsUsedWhateverTheEnvironmentSays) {
    set("no_proxy", "*");
    set("NO_PROXY", "*");
    set("http_proxy", server.url());
    const auto transport = curlTransport({.proxy = proxy.url()});
    for (const std::string path : {"/path", "/path?query", "/path"}) {
        auto request = requestTo(server.url(path + "#fragment"));
        request.headers = {{"Authorization", "for the server"}};
        EXPECT_THAT(sent(request, transport), Answers(200, "proxy"));
        EXPECT_THAT(proxy.requests().back(), StartsWith("GET " + server.url(path) + " HTTP/1.1"));
    }
    EXPECT_EQ(server.connections(), 0U);
}

TEST_F(EnvironmentTest, AProxyDoesNotSeeTheHeadersOfASecureRequest) {
    const RawServer refusing(RawServer::answering(httpReply(403, "", "X-Proxy: yes\r\n")));
    auto request = requestTo("https://service.example/path?query");
    request.headers = {{"Authorization", "secret"}};
    EXPECT_THAT(sent(request, curlTransport({.proxy = refusing.url()})),
                FailsWith(SlingErrorKind::cannotConnect));
    ASSERT_EQ(refusing.requests().size(), 1U);
    EXPECT_THAT(refusing.requests().front(), StartsWith("CONNECT service.example:443 HTTP/1.1"));
    EXPECT_THAT(refusing.requests().front(), Not(HasSubstr("secret")));
}

TEST_F(EnvironmentTest, PasswordsOfNetrcAreNotSent) {
    const TemporaryDirectory home;
    std::ofstream(home.path() / ".netrc") << "machine 127.0.0.1 login me password secret\n"
                                          << "default login me password secret\n";
    set("HOME", home.path());
    set("NETRC", home.path() / ".netrc");
    EXPECT_THAT(sent(requestTo(server.url()), curlTransport()), Answers(200, "direct"));
    EXPECT_THAT(server.requests().at(0), Not(HasSubstr("Authorization")));
}

}  // namespace
