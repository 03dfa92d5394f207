#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <boost/json.hpp>

#include "KestrinProfileServer/Routes.hpp"
#include "KestrinProfileServer/Service.hpp"

namespace KestrinProfileServer::Testing {

/// A new empty folder that disappears with everything in it.
class TestFolder {
  public:
    TestFolder();
    ~TestFolder();
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;

    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

  private:
    std::filesystem::path path_;
};

std::string contentOf(const std::filesystem::path& file);

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
    explicit HttpClient(std::string baseURL);
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
    void* handle_;
    long connectionCount_ = 0;
};

/// The port of an address like http://127.0.0.1:8480.
std::uint16_t portIn(const std::string& baseURL);

/// Sends bytes as they are to a service on this computer and returns everything until it closes.
std::string sendRaw(const std::string& baseURL, const std::string& bytes);

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

    const std::string& secret() const { return service_->household().secret; }
    std::string baseURL() const { return service_->baseURL(); }
    const std::filesystem::path& database() const { return settings_.database; }
    HouseholdClient client() const { return {baseURL(), secret()}; }

    /// Another household in the same database.
    Household addHousehold(const std::string& name, const std::string& parentProfileID) const;

    void advance(std::chrono::milliseconds time) { *now_ += time.count(); }

    /// Stops it and starts it again on the same database.
    void restart(const Change& change = [](ServiceSettings&) {});

  private:
    TestFolder folder_;
    std::shared_ptr<std::atomic<Milliseconds>> now_;
    ServiceSettings settings_;
    std::unique_ptr<Service> service_;
};

/// The time at which a TestService starts: 2017-03-09T18:25:43.511Z.
constexpr Milliseconds startTime = 1489083943511;

/// The service as its own process.
class ServerProcess {
  public:
    /// Starts the program; its output goes into files of the folder.
    ServerProcess(const TestFolder& folder, const std::vector<std::string>& arguments);
    /// Kills it if it still runs.
    ~ServerProcess();
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    /// Waits for the ready line and returns the address in it.
    std::string waitUntilReady();
    void send(int signal) const;
    /// Waits for its end; the exit code, or minus the number of the signal that ended it.
    int waitForEnd();

    std::string output() const { return contentOf(output_); }
    std::string errors() const { return contentOf(errors_); }

  private:
    std::filesystem::path output_;
    std::filesystem::path errors_;
    int process_ = -1;
    std::optional<int> result_;
};

/// The household's secret in a configuration that the program wrote.
std::string secretIn(const std::filesystem::path& configuration);

/// Waits until the program is ready and calls it for the household of its configuration.
HouseholdClient householdClient(ServerProcess& process, const std::filesystem::path& configuration);

/// `text` with every `from` replaced.
std::string replaced(std::string text, std::string_view from, std::string_view to);

}  // namespace KestrinProfileServer::Testing
