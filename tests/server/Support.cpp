#include "Support.hpp"

#include <algorithm>
#include <cctype>
#include <stdexcept>

#include <curl/curl.h>
#include <gtest/gtest.h>

namespace KestrinProfileServer::Testing {
namespace {

/// What has to come from the service does not come in this time instead.
constexpr long noTimeout = 24L * 60 * 60 * 1000;

std::size_t appendBody(char* data, std::size_t size, std::size_t count, void* reply) {
    static_cast<HttpReply*>(reply)->body.append(data, size * count);
    return size * count;
}

std::size_t appendHeader(char* data, std::size_t size, std::size_t count, void* reply) {
    const std::string line(data, size * count);
    const std::size_t colon = line.find(": ");
    if (colon != std::string::npos) {
        std::string name = line.substr(0, colon);
        std::ranges::transform(name, name.begin(),
                               [](unsigned char each) { return std::tolower(each); });
        static_cast<HttpReply*>(reply)->headers[name] =
            line.substr(colon + 2, line.find_last_not_of("\r\n") - colon - 1);
    }
    return size * count;
}

struct HeaderList {
    ~HeaderList() { curl_slist_free_all(list); }
    void add(const std::string& line) { list = curl_slist_append(list, line.c_str()); }

    curl_slist* list = nullptr;
};

}  // namespace

std::string outcomeOf(const HttpReply& reply) {
    const std::string status = std::to_string(reply.status);
    if (reply.status < 400) return status;
    const auto type = reply.headers.find("content-type");
    if (type == reply.headers.end() || type->second != "application/problem+json")
        return status + " without a problem document";
    const auto document = reply.json();
    if (document.at("status").as_int64() != reply.status ||
        document.at("title").as_string().empty() || document.at("detail").as_string().empty() ||
        !document.as_object().contains("instance")) {
        return status + " with an incomplete problem document";
    }
    const std::string name(document.at("type").as_string());
    return status + " " + replaced(name, "urn:kestrin-profile:problem:", "");
}

std::string detailOf(const HttpReply& reply) {
    return std::string(reply.json().at("detail").as_string());
}

HttpClient::HttpClient(std::string baseURL, std::string authority)
    : baseURL_(std::move(baseURL)), authority_(std::move(authority)), handle_(curl_easy_init()) {}

HttpClient::~HttpClient() {
    curl_easy_cleanup(handle_);
}

HttpReply HttpClient::send(const std::string& method, const std::string& target,
                           const HeaderLines& headers, const std::string& body) {
    HttpReply reply;
    HeaderList lines;
    HeaderList places;
    for (const auto& [name, value] : headers)
        lines.add(name + ": " + value);
    curl_easy_reset(handle_);
    curl_easy_setopt(handle_, CURLOPT_URL, baseURL_.c_str());
    curl_easy_setopt(handle_, CURLOPT_REQUEST_TARGET, target.c_str());
    curl_easy_setopt(handle_, CURLOPT_CUSTOMREQUEST, method.c_str());
    curl_easy_setopt(handle_, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle_, CURLOPT_NOPROXY, "*");
    if (!authority_.empty()) {
        places.add("::127.0.0.1:");
        curl_easy_setopt(handle_, CURLOPT_CAINFO, authority_.c_str());
        curl_easy_setopt(handle_, CURLOPT_CONNECT_TO, places.list);
    }
    curl_easy_setopt(handle_, CURLOPT_EXPECT_100_TIMEOUT_MS, noTimeout);
    curl_easy_setopt(handle_, CURLOPT_WRITEFUNCTION, appendBody);
    curl_easy_setopt(handle_, CURLOPT_WRITEDATA, &reply);
    curl_easy_setopt(handle_, CURLOPT_HEADERFUNCTION, appendHeader);
    curl_easy_setopt(handle_, CURLOPT_HEADERDATA, &reply);
    if (method == "HEAD") curl_easy_setopt(handle_, CURLOPT_NOBODY, 1L);
    if (!body.empty()) {
        curl_easy_setopt(handle_, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
        curl_easy_setopt(handle_, CURLOPT_POSTFIELDS, body.c_str());
    }
    // Without this libcurl would call every body a form.
    if (std::ranges::none_of(headers,
                             [](const auto& each) { return each.first == "Content-Type"; })) {
        lines.add("Content-Type:");
    }
    curl_easy_setopt(handle_, CURLOPT_HTTPHEADER, lines.list);
    const CURLcode result = curl_easy_perform(handle_);
    if (result != CURLE_OK) throw std::runtime_error(curl_easy_strerror(result));
    curl_easy_getinfo(handle_, CURLINFO_RESPONSE_CODE, &reply.status);
    long opened = 0;
    curl_easy_getinfo(handle_, CURLINFO_NUM_CONNECTS, &opened);
    connectionCount_ += opened;
    return reply;
}

std::uint16_t portIn(const std::string& baseURL) {
    return static_cast<std::uint16_t>(std::stoi(baseURL.substr(baseURL.rfind(':') + 1)));
}

std::string sendRaw(const std::string& baseURL, const std::string& bytes) {
    RawClient client(baseURL);
    client.send(bytes);
    return client.rest();
}

RawClient::RawClient(const std::string& baseURL, Reading reading) {
    socket_.open(boost::asio::ip::tcp::v4());
    if (reading == Reading::little)
        socket_.set_option(boost::asio::socket_base::receive_buffer_size(4096));
    socket_.connect({boost::asio::ip::address_v4::loopback(), portIn(baseURL)});
    socket_.set_option(boost::asio::ip::tcp::no_delay(true));
}

bool RawClient::send(std::string_view bytes) {
    boost::system::error_code error;
    boost::asio::write(socket_, boost::asio::buffer(bytes), error);
    return !error;
}

std::string RawClient::reply() {
    boost::system::error_code error;
    const auto buffer = boost::asio::dynamic_buffer(unread_);
    std::size_t size = boost::asio::read_until(socket_, buffer, "\r\n\r\n", error);
    if (error) return std::exchange(unread_, {});
    constexpr std::string_view name = "\r\nContent-Length: ";
    const std::size_t length = unread_.substr(0, size).find(name);
    if (length != std::string::npos) size += std::stoul(unread_.substr(length + name.size()));
    while (!error && unread_.size() < size)
        boost::asio::read(socket_, buffer, boost::asio::transfer_exactly(size - unread_.size()),
                          error);
    std::string reply = unread_.substr(0, size);
    unread_.erase(0, size);
    return reply;
}

std::string RawClient::until(std::string_view mark) {
    boost::system::error_code error;
    const auto buffer = boost::asio::dynamic_buffer(unread_);
    const std::size_t size = boost::asio::read_until(socket_, buffer, mark, error);
    if (error) return std::exchange(unread_, {});
    std::string text = unread_.substr(0, size);
    unread_.erase(0, size);
    return text;
}

std::string RawClient::rest() {
    boost::system::error_code error;
    boost::asio::read(socket_, boost::asio::dynamic_buffer(unread_), error);
    return std::exchange(unread_, {});
}

std::string outcomeOfRaw(const std::string& answer) {
    constexpr std::string_view start = "HTTP/1.";
    if (!answer.starts_with(start)) return "no reply";
    std::string outcome = answer.substr(start.size() + 2, 3);
    constexpr std::string_view problem = "urn:kestrin-profile:problem:";
    const std::size_t type = answer.find(problem);
    if (type == std::string::npos) return outcome;
    const std::size_t begin = type + problem.size();
    return outcome + " " + answer.substr(begin, answer.find('"', begin) - begin);
}

HeaderLines Caller::headers() const {
    return {{"Authorization", "JWT " + token}, {"PXRO-PROFILE-ID", profileID}};
}

HttpReply HouseholdClient::tryBind(const std::string& profileID) {
    return http.send("POST", "/v1/binds?profile=" + profileID + "&v=1",
                     {{"X-Household-Secret", secret_}, {"Content-Type", "application/json"}},
                     boost::json::serialize(boost::json::object{{"profileId", profileID}}));
}

Caller HouseholdClient::bind(const std::string& profileID) {
    const auto reply = tryBind(profileID);
    if (reply.status != 200) throw std::runtime_error("no bind: " + reply.body);
    return {profileID, std::string(reply.json().at("token").as_string())};
}

HttpReply HouseholdClient::call(const Caller& caller, const std::string& method,
                                const std::string& target, const std::string& body) {
    auto headers = caller.headers();
    if (!body.empty()) headers.emplace_back("Content-Type", "application/json");
    return http.send(method, target, headers, body);
}

Caller HouseholdClient::create(const Caller& parent, const std::string& username) {
    const auto reply = call(
        parent, "POST", "/v1/profiles?profile=" + parent.profileID + "&v=1",
        boost::json::serialize(boost::json::object{{"username", username}, {"default", false}}));
    if (reply.status != 201) throw std::runtime_error("no profile: " + reply.body);
    return bind(std::string(reply.json().at("profileId").as_string()));
}

std::string HouseholdClient::idsOf(const Caller& caller, const std::string& target) {
    const auto reply = call(caller, "GET", target);
    if (reply.status != 200) return outcomeOf(reply);
    std::string ids;
    const auto list = reply.json();
    for (const auto& element : list.at("elements").as_array())
        ids += (ids.empty() ? "" : " ") + std::string(element.at("id").as_string());
    return ids;
}

AdminClient::AdminClient(const std::string& baseURL)
    : path_(baseURL.substr(std::min(baseURL.find('/', 8), baseURL.size()))),
      http_(baseURL.substr(0, baseURL.size() - path_.size())) {}

HttpReply AdminClient::call(const std::string& method, const std::string& path,
                            const std::string& body) {
    HeaderLines headers;
    if (!body.empty()) headers.emplace_back("Content-Type", "application/json");
    return http_.send(method, path_ + "/admin/v1/" + path, headers, body);
}

boost::json::value AdminClient::get(const std::string& path) {
    const auto reply = call("GET", path);
    if (reply.status != 200) throw std::runtime_error(path + ": " + reply.body);
    return reply.json();
}

void withAdmin(ServiceSettings& settings) {
    settings.admin.isOn = true;
}

TestService::TestService(const Change& change)
    : now_(std::make_shared<std::atomic<Milliseconds>>(startTime)) {
    settings_.database = folder_ / "profiles.sqlite";
    settings_.http.port = 0;
    settings_.http.threads = 2;
    settings_.http.transferTimeout = std::chrono::milliseconds(noTimeout);
    settings_.http.isQuiet = true;
    settings_.clock = [now = now_] { return now->load(); };
    restart(change);
}

Household TestService::addHousehold(const std::string& name,
                                    const std::string& parentProfileID) const {
    ServiceSettings settings = settings_;
    settings.household = name;
    settings.parentProfileID = parentProfileID;
    return prepareHousehold(settings);
}

void TestService::restart(const Change& change) {
    service_.reset();
    change(settings_);
    service_ = std::make_unique<Service>(settings_);
}

TestSupport::Program startServer(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), KESTRIN_PROFILE_SERVER_PROGRAM);
    return TestSupport::Program(std::move(arguments));
}

std::string waitUntilReady(const TestSupport::Program& server) {
    const std::string start = "kestrin-profile-server ready on ";
    const std::string line = server.firstLine();
    if (!line.starts_with(start))
        throw std::runtime_error("no ready line; errors: " + server.errors());
    return line.substr(start.size());
}

std::string secretIn(const std::filesystem::path& configuration) {
    const auto bind = boost::json::parse(TestSupport::contentOf(configuration))
                          .at("services")
                          .at("personalization-bind-anonymous");
    return std::string(bind.at("headers").at("X-Household-Secret").as_string());
}

HouseholdClient householdClient(const TestSupport::Program& server,
                                const std::filesystem::path& configuration) {
    const std::string url = waitUntilReady(server);
    return {url, secretIn(configuration)};
}

std::string replaced(std::string text, std::string_view from, std::string_view to) {
    for (std::size_t at = text.find(from); at != std::string::npos;
         at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

}  // namespace KestrinProfileServer::Testing
