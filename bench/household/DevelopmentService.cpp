#include "household/DevelopmentService.hpp"

#include <stdexcept>
#include <utility>
#include <variant>
#include <vector>

#include <KestrinConfigManager/Configuration.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>

namespace Bench {

namespace {

using KestrinConfigManager::Configuration;

/// setpriv: where this program is killed, the service ends with it.
std::vector<std::string> serviceWords(const TestSupport::TemporaryDirectory& directory) {
    return {SETPRIV,
            "--pdeathsig",
            "KILL",
            SERVER,
            "--database",
            directory / "database",
            "--port",
            "0",
            "--quiet",
            "--write-config",
            directory / "configuration"};
}

/// "http://127.0.0.1:port", of the line that the service prints.
std::string originIn(const TestSupport::Program& service) {
    const std::string line = service.firstLine();
    const std::size_t begin = line.find("http://");
    if (begin == std::string::npos)
        throw std::runtime_error("the service did not start: " + service.errors());
    return line.substr(begin, line.find_first_of(" /", begin + 7) - begin);
}

}  // namespace

DevelopmentService::DevelopmentService()
    : service_(serviceWords(directory_)),
      origin_(originIn(service_)),
      configuration_(TestSupport::contentOf(directory_ / "configuration")) {}

void configure(const std::string& configuration) {
    auto parsed = KestrinConfigManager::parseConfiguration(configuration);
    auto* const known = std::get_if<Configuration>(&parsed);
    if (!known) throw std::runtime_error("the configuration is refused");
    KestrinConfigManager::ConfigurationManager::sharedInstance().configure(std::move(*known));
}

}  // namespace Bench
