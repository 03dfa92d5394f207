#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/asio.hpp>
#include <boost/json.hpp>

#include <kestrin-profile-server/Service.hpp>
#include <kestrin-profile-server/http/Routes.hpp>

#include "support/Program.hpp"

namespace KestrinProfileServer::Testing {

struct HttpReply {
    long status = 0;
    std::string body;
    /// With lower-case names.
    std::map<std::string, std::string> headers;

    boost::json::value json() const { return boost::json::parse(body); }
};

/// What came of a request, for comparing: "204", or "422 invalid-name" with the name of the
/// problem. A failure without a proper problem document is neither.
std::string outcomeOf(const HttpReply& reply);

/// The detail of a problem document.
std::string detailOf(const HttpReply& reply);

/// One keep-alive connection to a service. Sends request targets byte for byte as given.
class HttpClient {
  public:
    /// @param authority  the file of the certificates that it trusts, if it speaks HTTPS; then all
    ///                   names lead to 127.0.0.1
    explicit HttpClient(std::string baseURL, std::string authority = "");
    ~HttpClient();
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    /// Throws std::runtime_error when no reply comes.
    HttpReply send(const std::string& method, const std::string& target,
                   const HeaderLines& headers = {}, const std::string& body = "");

    /// How many connections were opened so far.
    long connectionCount() const { return connectionCount_; }

  private:
    std::string baseURL_;
    std::string authority_;
    void* handle_;
    long connectionCount_ = 0;
};

/// The port of an address like http://127.0.0.1:8480.
std::uint16_t portIn(const std::string& baseURL);

/// Sends bytes as they are to a service on this computer and returns everything until it closes.
std::string sendRaw(const std::string& baseURL, const std::string& bytes);

/// A connection to a service on this computer that sends bytes as they are.
class RawClient {
  public:
    enum class Reading { all, little };

    /// @param reading  how much the system takes for a client that does not read
    explicit RawClient(const std::string& baseURL, Reading reading = Reading::all);

    /// False if the service has closed.
    bool send(std::string_view bytes);

    /// The next reply with a length, or without content; what has come before the service closed if
    /// it does so.
    std::string reply();

    /// Everything up to a mark, or until the service closes.
    std::string until(std::string_view mark);

    /// Everything until the service closes.
    std::string rest();

    void close() { socket_.close(); }

  private:
    boost::asio::io_context context_;
    boost::asio::ip::tcp::socket socket_{context_};
    std::string unread_;
};

/// The status and the type of the first reply in what a service has sent: "200", or "400
/// malformed-request".
std::string outcomeOfRaw(const std::string& answer);

/// A profile with its token.
struct Caller {
    std::string profileID;
    std::string token;

    HeaderLines headers() const;
};

/// Calls a service for a household.
class HouseholdClient {
  public:
    HouseholdClient(const std::string& baseURL, std::string secret)
        : http(baseURL), secret_(std::move(secret)) {}

    HttpReply tryBind(const std::string& profileID);
    Caller bind(const std::string& profileID);

    /// A JSON body is sent with its content type; an empty one is not sent.
    HttpReply call(const Caller& caller, const std::string& method, const std::string& target,
                   const std::string& body = "");

    /// Creates a profile and binds it.
    Caller create(const Caller& parent, const std::string& username);

    /// The identifiers of the elements of a list, front first, separated by blanks.
    std::string idsOf(const Caller& caller, const std::string& target);

    HttpClient http;

  private:
    std::string secret_;
};

/// The service inside the test, with a clock that the test moves.
class TestService {
  public:
    using Change = std::function<void(ServiceSettings&)>;

    explicit TestService(const Change& change = [](ServiceSettings&) {});

    const Household& household() const { return service_->household(); }
    const std::string& secret() const { return household().secret; }
    std::string baseURL() const { return service_->baseURL(); }
    const std::filesystem::path& database() const { return settings_.database; }
    HouseholdClient client() const { return {baseURL(), secret()}; }

    /// Another household in the same database.
    Household addHousehold(const std::string& name, const std::string& parentProfileID) const;

    void advance(std::chrono::milliseconds time) { *now_ += time.count(); }

    void stop() { service_->stop(); }

    /// Stops it and starts it again on the same database.
    void restart(const Change& change = [](ServiceSettings&) {});

  private:
    TestSupport::TemporaryDirectory folder_;
    std::shared_ptr<std::atomic<Milliseconds>> now_;
    ServiceSettings settings_;
    std::unique_ptr<Service> service_;
};

/// Calls the admin interface, of this computer and without a secret.
class AdminClient {
  public:
    /// @param baseURL  the namespace's
    explicit AdminClient(const std::string& baseURL);

    /// Sends JSON, unless the body is empty.
    HttpReply call(const std::string& method, const std::string& path,
                   const std::string& body = "");

    /// What a GET answers; throws std::runtime_error unless it is 200.
    boost::json::value get(const std::string& path);

  private:
    std::string path_;
    HttpClient http_;
};

/// A change of the settings with which a service has its admin interface.
void withAdmin(ServiceSettings& settings);

/// The time at which a TestService starts: 2017-03-09T18:25:43.511Z.
constexpr Milliseconds startTime = 1489083943511;

/// The service as a process of its own.
[[nodiscard]] TestSupport::Program startServer(std::vector<std::string> arguments);

/// Waits for the ready line; returns the address in it.
std::string waitUntilReady(const TestSupport::Program& server);

/// The household's secret in a configuration that the program wrote.
std::string secretIn(const std::filesystem::path& configuration);

/// Waits until the program is ready and calls it for the household of its configuration.
HouseholdClient householdClient(const TestSupport::Program& server,
                                const std::filesystem::path& configuration);

/// `text` with every `from` replaced.
std::string replaced(std::string text, std::string_view from, std::string_view to);

}  // namespace KestrinProfileServer::Testing
