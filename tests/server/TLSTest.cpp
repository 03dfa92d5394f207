// The service over HTTPS, and the certificate for development.
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <vector>

#include <boost/asio.hpp>
#include <boost/asio/ssl.hpp>
#include <gtest/gtest.h>

#include <kestrin-profile-server/tls/DevelopmentCertificate.hpp>

#include "Support.hpp"

namespace KestrinProfileServer::Testing {
namespace {

namespace asio = boost::asio;

constexpr Milliseconds day = Milliseconds{24} * 3600 * 1000;

class CertificateTest : public testing::Test {
  protected:
    DevelopmentCertificate made(const std::vector<std::string>& names,
                                Milliseconds now = systemTime()) const {
        return developmentCertificate(folder.path() / "tls", names, now);
    }

    TestSupport::TemporaryDirectory folder;
};

TEST_F(CertificateTest, isMadeOnceAndKeptForItsOwnerAlone) {
    const auto first = made({"phone.test", "192.168.1.20"});
    EXPECT_TRUE(first.isNewAuthority);
    EXPECT_EQ(first.authorityFile, folder.path() / "tls/authority.pem");
    EXPECT_EQ(TestSupport::contentOf(first.authorityFile), first.authority);
    for (const char* key : {"authority.key", "certificate.key"}) {
        struct stat status{};
        ASSERT_EQ(::stat((folder.path() / "tls" / key).c_str(), &status), 0) << key;
        EXPECT_EQ(status.st_mode & 0777U, 0600U) << key;
    }
    const auto second = made({"192.168.1.20", "phone.test"});
    EXPECT_FALSE(second.isNewAuthority);
    EXPECT_EQ(second.identity.certificate, first.identity.certificate);
    EXPECT_EQ(second.identity.key, first.identity.key);
}

TEST_F(CertificateTest, isMadeAgainForOtherNamesByTheSameAuthorityIfThatMaySignForThem) {
    const auto first = made({"phone.test", "192.168.1.20"});
    const auto moved = made({"phone.test", "192.168.1.21"});
    EXPECT_FALSE(moved.isNewAuthority);
    EXPECT_EQ(moved.authority, first.authority) << "another address of a private network";
    EXPECT_NE(moved.identity.certificate, first.identity.certificate);
    const auto fewer = made({"phone.test"});
    EXPECT_EQ(fewer.authority, first.authority);
    EXPECT_NE(fewer.identity.certificate, moved.identity.certificate);
    for (const char* name : {"other.test", "203.0.113.7", "2001:db8::7"}) {
        const std::string before = TestSupport::contentOf(first.authorityFile);
        const auto other = made({name});
        EXPECT_TRUE(other.isNewAuthority) << name;
        EXPECT_NE(other.authority, before) << name;
    }
}

TEST_F(CertificateTest, isRenewedBeforeItEnds) {
    const Milliseconds now = systemTime();
    const auto first = made({}, now);
    EXPECT_EQ(made({}, now + 366 * day).identity.certificate, first.identity.certificate);
    const auto renewed = made({}, now + 368 * day);
    EXPECT_NE(renewed.identity.certificate, first.identity.certificate);
    EXPECT_EQ(renewed.authority, first.authority);
    const auto late = made({}, now + 3651 * day);
    EXPECT_NE(late.authority, first.authority) << "the authority has ended";
}

TEST_F(CertificateTest, isMadeAgainIfItsFilesAreOthers) {
    for (const char* name :
         {"authority.pem", "authority.key", "certificate.pem", "certificate.key"}) {
        const auto before = made({});
        TestSupport::write(folder.path() / "tls" / name, "something else");
        const auto after = made({});
        EXPECT_NE(after.identity.certificate, before.identity.certificate) << name;
        EXPECT_EQ(made({}).identity.certificate, after.identity.certificate) << name;
    }
}

TEST_F(CertificateTest, whatCannotBeAHostIsAClearError) {
    for (const char* name : {"", "a b", "x,DNS:evil.test", "*", "fe80::1%1", "\xC3\xA9"}) {
        try {
            made({name});
            FAIL() << name;
        } catch (const StartError& error) {
            EXPECT_NE(std::string(error.what()).find("cannot be in a certificate"),
                      std::string::npos)
                << name;
        }
    }
    TestSupport::write(folder.path() / "file", "");
    EXPECT_THROW(static_cast<void>(developmentCertificate(folder.path() / "file", {})), StartError);
}

class TLSTest : public testing::Test {
  protected:
    std::string port() const { return std::to_string(portIn(service.baseURL())); }
    HttpClient client(const std::string& host) const {
        return HttpClient("https://" + host + ":" + port(), certificate.authorityFile.string());
    }

    TestSupport::TemporaryDirectory folder;
    DevelopmentCertificate certificate =
        developmentCertificate(folder.path(), {"phone.test", "192.168.1.20"});
    TestService service{[this](ServiceSettings& settings) {
        settings.http.tls = certificate.identity;
        settings.authority = certificate.authority;
        settings.admin.isOn = true;
    }};
};

TEST_F(TLSTest, whoTrustsTheAuthorityReachesTheServiceByItsNames) {
    EXPECT_TRUE(service.baseURL().starts_with("https://127.0.0.1:"));
    for (const char* host : {"localhost", "127.0.0.1", "phone.test", "192.168.1.20"})
        EXPECT_EQ(outcomeOf(client(host).send("GET", "/healthz")), "200") << host;
    HttpClient other = client("other.test");
    EXPECT_THROW(other.send("GET", "/healthz"), std::runtime_error) << "it is for other names";
    HttpClient distrustful("https://localhost:" + port());
    EXPECT_THROW(distrustful.send("GET", "/healthz"), std::runtime_error);
}

TEST_F(TLSTest, aConnectionIsKeptAndCarriesLargeBodies) {
    HttpClient http = client("localhost");
    const std::string seed =
        R"({"households":[{"id":"h","parent":{"username":"P","history":[)" +
        [] {
            std::string entries;
            for (int video = 0; video < 5000; ++video)
                entries +=
                    (video == 0 ? "" : ",") + (R"({"videoId":"v)" + std::to_string(video)) + "\"}";
            return entries;
        }() +
        "]}}]}";
    EXPECT_EQ(outcomeOf(http.send("PUT", "/admin/v1/state", {{"Content-Type", "application/json"}},
                                  seed)),
              "204");
    const auto profile = http.send("GET", "/admin/v1/profiles/parent").json();
    EXPECT_EQ(profile.at("history").as_array().size(), 5000U);
    EXPECT_EQ(http.connectionCount(), 1);
}

TEST_F(TLSTest, theAdminInterfaceIsForItsOwnPagesOverHTTPS) {
    HttpClient http = client("localhost");
    const auto outcome = [&](const std::string& origin) {
        return outcomeOf(http.send("GET", "/admin/v1/status", {{"Origin", origin}}));
    };
    EXPECT_EQ(outcome("https://localhost:" + port()), "200");
    EXPECT_EQ(outcome("http://localhost:" + port()), "403 origin-refused");
}

TEST_F(TLSTest, clearTextIsAnsweredByWhatToDo) {
    const std::string answer =
        sendRaw(service.baseURL(), "GET /v1/history HTTP/1.1\r\nHost: x\r\n\r\n");
    EXPECT_EQ(outcomeOfRaw(answer), "400 https-required");
    EXPECT_NE(answer.find("https://"), std::string::npos);
    // The head of a TLS handshake (RFC 8446, 4.1.2), and nothing that fits it.
    const std::string garbage =
        std::string("\x16\x03\x01\x00\x28\x01\x00\x00\x24", 9) + std::string(36, 'x');
    EXPECT_EQ(sendRaw(service.baseURL(), garbage).find("HTTP"), std::string::npos);
    EXPECT_EQ(outcomeOf(client("localhost").send("GET", "/healthz")), "200");
}

TEST_F(TLSTest, theAuthorityIsThereForAPhone) {
    const auto reply = client("phone.test").send("GET", "/development-authority.pem");
    EXPECT_EQ(outcomeOf(reply), "200");
    EXPECT_EQ(reply.headers.at("content-type"), "application/x-x509-ca-cert");
    EXPECT_EQ(reply.body, certificate.authority);
    TestService plain;
    EXPECT_EQ(outcomeOf(HttpClient(plain.baseURL()).send("GET", "/development-authority.pem")),
              "404 unknown-path");
}

TEST_F(TLSTest, theEndOfAConnectionIsNoCut) {
    asio::io_context context;
    asio::ssl::context tls(asio::ssl::context::tls_client);
    tls.load_verify_file(certificate.authorityFile.string());
    tls.set_verify_mode(asio::ssl::verify_peer);
    asio::ssl::stream<asio::ip::tcp::socket> stream(context, tls);
    stream.next_layer().connect({asio::ip::address_v4::loopback(), portIn(service.baseURL())});
    stream.handshake(asio::ssl::stream_base::client);
    asio::write(stream, asio::buffer(std::string("GET /healthz HTTP/1.0\r\n\r\n")));
    std::string answer;
    boost::system::error_code error;
    asio::read(stream, asio::dynamic_buffer(answer), error);
    EXPECT_EQ(error, asio::error::eof) << error.message();
    EXPECT_EQ(outcomeOfRaw(answer), "200");
}

TEST_F(TLSTest, aServiceStopsWhileClientsAreConnected) {
    HttpClient idle = client("localhost");
    idle.send("GET", "/healthz");
    RawClient silent(service.baseURL());
    service.stop();
    EXPECT_EQ(silent.rest(), "");
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
