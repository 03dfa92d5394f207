#include "server/RunningServer.hpp"

#include <algorithm>
#include <csignal>
#include <iterator>
#include <stdexcept>
#include <utility>
#include <vector>

#include "server/WireConnection.hpp"

namespace Bench {

namespace {

using TestSupport::Program;

/// setpriv: where this program is killed, the server ends with it.
std::vector<std::string> words(const std::filesystem::path& database,
                               const std::filesystem::path& configuration,
                               std::vector<std::string> options = {}) {
    std::vector<std::string> all{SETPRIV,      "--pdeathsig",    "KILL",       SERVER,
                                 "--database", database,         "--port",     "0",
                                 "--quiet",    "--write-config", configuration};
    std::ranges::move(options, std::back_inserter(all));
    return all;
}

std::uint16_t portOf(const Program& program) {
    const std::string line = program.firstLine();
    const std::size_t colon = line.rfind(':');
    if (line.empty() || colon == std::string::npos)
        throw std::runtime_error("the server did not start: " + program.errors());
    return static_cast<std::uint16_t>(std::stoul(line.substr(colon + 1)));
}

/// The text that stands in quotes after a key.
std::string textAfter(const std::string& text, std::string_view key) {
    const std::size_t at = text.find(key);
    const std::size_t begin = text.find('"', at + key.size()) + 1;
    if (at == std::string::npos || begin == 0) throw std::runtime_error("no " + std::string(key));
    return text.substr(begin, text.find('"', begin) - begin);
}

std::string request(std::uint16_t port, std::string_view line, std::string_view fields,
                    std::string_view body) {
    std::string text(line);
    text += " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) + "\r\n";
    text += fields;
    if (!body.empty())
        text += "Content-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) +
                "\r\n";
    return (text += "\r\n") += body;
}

}  // namespace

RunningServer::RunningServer(const std::filesystem::path& database,
                             std::vector<std::string> options)
    : program_(words(database, directory_ / "configuration", std::move(options))),
      port_(portOf(program_)),
      token_(boundToken(textAfter(TestSupport::contentOf(directory_ / "configuration"),
                                  R"("X-Household-Secret":)"))) {}

std::string RunningServer::boundToken(std::string_view secret) const {
    const std::string field = "X-Household-Secret: " + std::string(secret) + "\r\n";
    return textAfter(
        WireConnection(port_).exchange(request(port_, "POST /v1/binds?profile=parent&v=1", field,
                                               R"({"profileId":"parent"})")),
        R"("token":)");
}

void RunningServer::administer(std::string_view line, std::string_view body) const {
    WireConnection connection(port_);
    const std::string reply(connection.exchange(request(port_, line, {}, body)));
    if (!connection.succeeded())
        throw std::runtime_error("the server refuses " + std::string(line) + ": " + reply);
}

std::string RunningServer::authorised() const {
    return "Authorization: JWT " + token_ + "\r\nPXRO-PROFILE-ID: parent\r\n";
}

std::string RunningServer::readRequest() const {
    return request(port_, "GET /v1/history?brand=kestrin&profile=parent&v=1", authorised(), {});
}

std::string RunningServer::healthRequest() const {
    return request(port_, "GET /healthz", {}, {});
}

std::string RunningServer::writeRequest(std::string_view videoID) const {
    return request(
        port_,
        "PUT /v1/history/video?video=" + std::string(videoID) + "&brand=kestrin&profile=parent&v=1",
        authorised(), R"({"isCompleted":"false","type":"VIDEO","progress":"1234567"})");
}

void makeDatabase(const std::filesystem::path& database) {
    const TestSupport::TemporaryDirectory directory;
    Program program(words(database, directory / "configuration"));
    static_cast<void>(portOf(program));
    program.signal(SIGTERM);
    if (program.wait() != 0) throw std::runtime_error("the server did not stop");
}

}  // namespace Bench
