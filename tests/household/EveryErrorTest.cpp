// Every kind of every error, raised by the real parts: HTTP over the loopback interface, SQLite
// files, allocations that fail. One is reserved, and one needs a record of the test's own. A kind
// that is missing in a switch does not compile.

#include <chrono>
#include <csignal>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <sys/resource.h>
#include <utility>
#include <variant>

#include <gmock/gmock.h>

#include <HalvardSling/curl/CurlTransport.hpp>
#include <HalvardSling/json/JSONDictionary.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinConfigManager/ConfigurationManagerError.hpp>
#include <KestrinConfigManager/WebService.hpp>
#include <KestrinHousehold/outbox/SQLiteOutboxStore.hpp>
#include <KestrinProfile/model/ProfileError.hpp>
#include <KestrinProfile/service/Profile.hpp>
#include <KestrinProfile/service/internal/Decoding.hpp>

#include "OutboxSupport.hpp"
#include "service/CreateProfileRequest.hpp"
#include "support/Allocations.hpp"
#include "support/Program.hpp"
#include "support/RawServer.hpp"

namespace {

using namespace std::chrono_literals;
using HalvardSling::CurlTransport;
using HalvardSling::JSONDictionary;
using HalvardSling::JSONFailure;
using HouseholdTest::FakeDelivery;
using HouseholdTest::Observed;
using HouseholdTest::Op;
using HouseholdTest::Outbox;
using HouseholdTest::OutboxError;
using HouseholdTest::SlingError;
using HouseholdTest::SlingErrorKind;
using HouseholdTest::write;
using KestrinConfigManager::ConfigurationManager;
using KestrinConfigManager::ConfigurationManagerError;
using KestrinConfigManager::ServiceTable;
using KestrinConfigManager::WebService;
using KestrinProfile::Profile;
using KestrinProfile::ProfileError;
using KestrinProfile::ProfileParams;
using KestrinProfile::User;
using KestrinProfile::UserParams;
using TestSupport::httpReply;
using TestSupport::RawConnection;
using TestSupport::RawServer;

/// The error of this type that a sequence ends with.
template <class Error, class T>
std::optional<Error> errorOf(const rxcpp::observable<T>& source) {
    return Observed<T>(source).template error<Error>();
}

/// A household that is bound, whose services a test configures, over libcurl.
class EveryError : public testing::Test {
  protected:
    using Change = std::function<void(WebService&)>;

    EveryError() { HalvardSling::setDefaultTransport(std::make_shared<CurlTransport>()); }
    ~EveryError() override {
        manager.dropBinds();
        manager.removeConfiguration();
        HalvardSling::setDefaultTransport(nullptr);
    }

    /// Configures one service, whose requests no time limit ends.
    void configure(Op operation, const std::string& url, const Change& change = {}) {
        WebService service;
        service.operation = rawValue(operation);
        service.url = KestrinConfigManager::URLTemplate(url);
        service.policy.allowsCleartext = true;
        service.policy.connectTimeout = service.policy.totalTimeout = 10h;
        if (change) change(service);
        ServiceTable table;
        table.add(std::move(service));
        manager.configure({.parentProfileID = "parent",
                           .brand = KestrinConfigManager::Brand{"brand"},
                           .services = std::make_shared<const ServiceTable>(std::move(table))});
        manager.setBindProfileID("parent");
        manager.setBindToken("token");
    }

    ConfigurationManager& manager = ConfigurationManager::sharedInstance();
    Profile profile;
};

class EveryNetworkError : public EveryError {
  protected:
    using Raised = std::optional<SlingErrorKind>;

    Raised whereHistoryIsAt(const std::string& url, const Change& change = {}) {
        configure(Op::getHistory, url, change);
        const auto error = errorOf<SlingError>(profile.requestHistory(ProfileParams()));
        return error ? Raised(error->kind()) : std::nullopt;
    }

    Raised whereHistoryIs(const std::string& reply, const Change& change = {}) {
        const RawServer server(RawServer::answering(reply));
        return whereHistoryIsAt(server.url(), change);
    }

    /// Nobody answers, also not to the beginning of a handshake.
    Raised whereNobodyAnswers(const std::string& scheme, const Change& change) {
        const RawServer server([](RawConnection& connection) { connection.awaitClose(); });
        return whereHistoryIsAt(scheme + "://127.0.0.1:" + std::to_string(server.port()) + "/",
                                change);
    }

    Raised whereNoTLSIsSpoken() {
        const RawServer server([](RawConnection& connection) {
            connection.send("no handshake\r\n");
            connection.awaitClose();
        });
        return whereHistoryIsAt("https://127.0.0.1:" + std::to_string(server.port()) + "/");
    }

    Raised whereTheConnectionEnds() {
        const RawServer server([](RawConnection& connection) {
            if (connection.readRequest())
                connection.send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n");
        });
        return whereHistoryIsAt(server.url());
    }

    Raised whereTheTransportEnds() {
        const RawServer server([](RawConnection& connection) {
            if (connection.readRequest()) connection.awaitClose();
        });
        configure(Op::getHistory, server.url());
        const Observed history(profile.requestHistory(ProfileParams()));
        EXPECT_TRUE(server.awaitRequests(1));
        HalvardSling::setDefaultTransport(nullptr);
        const auto error = history.error<SlingError>();
        return error ? Raised(error->kind()) : std::nullopt;
    }

    /// One allocation of the transport's fails, each in its turn, until that is the error.
    Raised whereMemoryLacks() {
        const RawServer server(RawServer::answering(httpReply(200, "{}")));
        configure(Op::getHistory, server.url());
        for (long at = 1;; ++at) {
            HalvardSling::setDefaultTransport(std::make_shared<CurlTransport>());
            const TestSupport::FailingAllocations failing(TestSupport::Failing::one, at,
                                                          &HalvardSling::isTransportThread);
            const auto error = errorOf<SlingError>(profile.requestHistory(ProfileParams()));
            failing.end();
            if (error) return error->kind();
            if (!failing.hasFailed()) return std::nullopt;
        }
    }

    Raised whereATextIsNotUTF8() {
        configure(Op::createProfile, "http://127.0.0.1:9/", [](WebService& service) {
            service.method = "POST";
            service.body = KestrinConfigManager::BodyForm::json;
        });
        User user("child", "\xFF");
        const auto error = errorOf<SlingError>(
            profile.createProfile(UserParams(manager.bind(true), std::move(user))));
        return error ? Raised(error->kind()) : std::nullopt;
    }

    Raised raised(SlingErrorKind kind) {
        switch (kind) {
            case SlingErrorKind::httpStatus:
                return whereHistoryIs(httpReply(500, ""));
            case SlingErrorKind::cannotConnect:
                return whereHistoryIsAt("http://127.0.0.1:1/");
            case SlingErrorKind::nameNotResolved:
                return whereHistoryIsAt("http://name.invalid/");
            case SlingErrorKind::tls:
                return whereNoTLSIsSpoken();
            case SlingErrorKind::connectTimeout:
                return whereNobodyAnswers(
                    "https", [](WebService& service) { service.policy.connectTimeout = 100ms; });
            case SlingErrorKind::totalTimeout:
                return whereNobodyAnswers(
                    "http", [](WebService& service) { service.policy.totalTimeout = 100ms; });
            case SlingErrorKind::connectionLost:
                return whereTheConnectionEnds();
            case SlingErrorKind::tooLarge:
                return whereHistoryIs(httpReply(200, "{  }"),
                                      [](WebService& service) { service.policy.maxBodyBytes = 3; });
            case SlingErrorKind::malformedURL:
                return whereHistoryIsAt("http://user@127.0.0.1/");
            case SlingErrorKind::forbiddenHeader:
                return whereHistoryIsAt("http://127.0.0.1:9/", [](WebService& service) {
                    service.headers = {{"X-Test", "one\r\nX-Another: two"}};
                });
            case SlingErrorKind::malformedReply:
                return whereHistoryIs(httpReply(200, "[]"));
            case SlingErrorKind::redirect:
                return whereHistoryIs(httpReply(302, "", "Location: /again\r\n"),
                                      [](WebService& service) { service.policy.maxRedirects = 1; });
            case SlingErrorKind::cancelled:
                return whereTheTransportEnds();
            case SlingErrorKind::outOfMemory:
                return whereMemoryLacks();
            case SlingErrorKind::malformedBody:
                return whereATextIsNotUTF8();
        }
        return std::nullopt;
    }
};

TEST_F(EveryNetworkError, IsRaised) {
    const auto last = static_cast<int>(SlingErrorKind::malformedBody);
    for (int code = 0; code <= last; ++code) {
        const auto kind = static_cast<SlingErrorKind>(code);
        EXPECT_EQ(raised(kind), kind) << name(kind);
    }
}

class EveryConfigurationError : public EveryError {
  protected:
    using Case = ConfigurationManagerError::Case;

    std::optional<ConfigurationManagerError> historyOf(const std::string& url, const Change& change,
                                                       const std::string& videoID = "video") {
        configure(Op::getVideoProgress, url, change);
        ProfileParams params;
        params.videoID = videoID;
        return errorOf<ConfigurationManagerError>(profile.requestVideoHistory(params));
    }

    std::optional<ConfigurationManagerError> raised(Case value) {
        const std::string url = "http://127.0.0.1:9/?video=%VIDEO%";
        switch (value) {
            case Case::invalidParameters:
                configure(Op::getVideoProgress, url);
                return errorOf<ConfigurationManagerError>(
                    profile.requestVideoHistory(ProfileParams()));
            case Case::serviceDisabled:
                return historyOf(url, [](WebService& service) { service.enabled = false; });
            case Case::placeholderUnfilled:
                return historyOf(url + "&show=%SHOWID%", {});
            case Case::serviceNotConfigured:
                return historyOf(url, [](WebService& service) { service.operation = "another"; });
            case Case::identifierRefused:
                return historyOf(
                    url, [](WebService& service) { service.strictIdentifiers = true; }, "a?b");
        }
        return std::nullopt;
    }
};

TEST_F(EveryConfigurationError, IsRaised) {
    for (int code = 0; code <= static_cast<int>(Case::identifierRefused); ++code) {
        const auto error = raised(static_cast<Case>(code));
        ASSERT_TRUE(error) << code;
        EXPECT_EQ(error->code(), code) << error->what();
    }
}

/// A record whose reader finds nothing. Those of the library always make a record.
struct Unreadable {
    static std::optional<Unreadable> fromJSON(const JSONDictionary& /*reply*/) { return {}; }
};

class EveryProfileError : public EveryError {
  protected:
    using Case = ProfileError::Case;
    using Raised = std::optional<ProfileError>;

    [[nodiscard]] Raised withoutAnOperation() const {
        const auto request = opened(TestSupport::CreateProfileRequest());
        return errorOf<ProfileError>((profile.*request)(ProfileParams(), std::nullopt, true));
    }

    Raised ofABindReply(const std::string& reply) {
        const RawServer server(RawServer::answering(httpReply(200, reply)));
        configure(Op::anonymousBind, server.url());
        return errorOf<ProfileError>(profile.requestAnonymousBind("another"));
    }

    Raised ofProfilesReply(const std::string& reply) {
        const RawServer server(RawServer::answering(httpReply(200, reply)));
        configure(Op::getProfiles, server.url());
        return errorOf<ProfileError>(profile.getProfiles());
    }

    Raised ofDeleting(User user) {
        configure(Op::deleteProfile, "http://127.0.0.1:9/");
        return errorOf<ProfileError>(
            profile.deleteProfile(UserParams(manager.bind(true), std::move(user))));
    }

    Raised raised(Case value) {
        switch (value) {
            case Case::parameterOperationMismatch:
                return withoutAnOperation();
            case Case::anonymousBindUninitialized:
                return std::nullopt;
            case Case::profileIDValdationFailure:
                return errorOf<ProfileError>(profile.requestAnonymousBind(std::nullopt));
            case Case::userInvalidForOperation:
                return ofDeleting(User(""));
            case Case::parentInvalidForOperation:
                return ofDeleting(User("parent"));
            case Case::anonymousBindSerializationError:
                return ofABindReply(R"({"profileId":"another"})");
            case Case::userProfileSerializationError:
                try {
                    KestrinProfile::internal::decoded<Unreadable,
                                                      Case::userProfileSerializationError>(
                        JSONDictionary());
                } catch (const ProfileError& error) {
                    return error;
                }
                return std::nullopt;
            case Case::userSerializationError:
                return ofProfilesReply(R"({"data":1})");
        }
        return std::nullopt;
    }
};

TEST_F(EveryProfileError, IsRaisedButTheOneThatIsReserved) {
    for (int code = 0; code < ProfileError::caseCount; ++code) {
        const auto value = static_cast<Case>(code);
        const auto error = raised(value);
        ASSERT_EQ(error.has_value(), value != Case::anonymousBindUninitialized) << code;
        if (error) {
            EXPECT_EQ(error->value(), value) << error->what();
        }
    }
}

/// As long as it lives, no file of this process grows: writing is an error.
class NoSpace {
  public:
    NoSpace() {
        was_ = std::signal(SIGXFSZ, SIG_IGN);
        EXPECT_EQ(::getrlimit(RLIMIT_FSIZE, &limit_), 0);
        rlimit none = limit_;
        none.rlim_cur = 0;
        EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &none), 0);
    }
    NoSpace(const NoSpace&) = delete;
    NoSpace& operator=(const NoSpace&) = delete;
    ~NoSpace() {
        EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &limit_), 0);
        static_cast<void>(std::signal(SIGXFSZ, was_));
    }

  private:
    rlimit limit_{};
    void (*was_)(int) = nullptr;
};

class EveryOutboxError : public testing::Test {
  protected:
    using Case = OutboxError::Case;
    using Raised = std::optional<OutboxError>;

    EveryOutboxError() { delivery->hold(); }

    [[nodiscard]] std::unique_ptr<Outbox> opened(
        KestrinHousehold::OutboxOptions options = {}) const {
        return std::make_unique<Outbox>(
            std::make_shared<KestrinHousehold::SQLiteOutboxStore>(folder / "outbox.db", 0ms),
            delivery, scheduler, std::move(options));
    }

    static Raised ofAdding(const Outbox& outbox, Op operation = Op::clearHistory) {
        return errorOf<OutboxError>(outbox.add(write(operation)));
    }

    [[nodiscard]] Raised beyondTheLimit() const {
        KestrinHousehold::OutboxOptions options;
        options.maxEntries = 0;
        return ofAdding(*opened(std::move(options)));
    }

    [[nodiscard]] Raised withoutSpace() const {
        const auto outbox = opened();
        EXPECT_TRUE(Observed(outbox->opening()).completed());
        const NoSpace none;
        return ofAdding(*outbox);
    }

    [[nodiscard]] Raised afterItsEnd() const {
        const auto adding = opened()->add(write(Op::clearHistory));
        return errorOf<OutboxError>(adding);
    }

    [[nodiscard]] Raised whereAnotherHasTheStore() const {
        const auto first = opened();
        EXPECT_TRUE(Observed(first->opening()).completed());
        return ofAdding(*opened());
    }

    [[nodiscard]] Raised raised(Case value) const {
        switch (value) {
            case Case::invalidWrite:
                return ofAdding(*opened(), Op::createProfile);
            case Case::full:
                return beyondTheLimit();
            case Case::storeUnavailable:
                return whereAnotherHasTheStore();
            case Case::notStored:
                return withoutSpace();
            case Case::closed:
                return afterItsEnd();
        }
        return std::nullopt;
    }

    TestSupport::TemporaryDirectory folder;
    std::shared_ptr<FakeDelivery> delivery = std::make_shared<FakeDelivery>();
    std::shared_ptr<HouseholdTest::FakeScheduler> scheduler =
        std::make_shared<HouseholdTest::FakeScheduler>();
};

TEST_F(EveryOutboxError, IsRaised) {
    for (int code = 0; code <= static_cast<int>(Case::closed); ++code) {
        const auto error = raised(static_cast<Case>(code));
        ASSERT_TRUE(error) << code;
        EXPECT_EQ(error->code(), code) << error->what();
    }
}

std::optional<JSONFailure::Kind> raisedFor(JSONFailure::Kind kind) {
    HalvardSling::JSONLimits limits;
    const auto parsed = [&](const std::string& text) {
        const auto result = JSONDictionary::parse(text, limits);
        const auto* const failure = std::get_if<JSONFailure>(&result);
        return failure != nullptr ? std::optional(failure->kind) : std::nullopt;
    };
    switch (kind) {
        case JSONFailure::Kind::malformed:
            return parsed("{");
        case JSONFailure::Kind::tooLarge:
            limits.maxMemory = 1;
            return parsed("{}");
    }
    return std::nullopt;
}

TEST(EveryJSONFailure, IsRaised) {
    for (const auto kind : {JSONFailure::Kind::malformed, JSONFailure::Kind::tooLarge})
        EXPECT_EQ(raisedFor(kind), kind);
}

}  // namespace
