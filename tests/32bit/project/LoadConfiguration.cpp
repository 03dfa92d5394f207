// Reading a configuration file needs the networking library's URL parser, and with it libcurl, of
// which there is no 32-bit one here. These tests configure in code.

#include <KestrinConfigManager/Configuration.hpp>

namespace KestrinConfigManager {

ConfigurationResult loadConfiguration(const std::filesystem::path& /*file*/) {
    return std::vector<ConfigurationProblem>{{"$", "this program reads no configuration files"}};
}

}  // namespace KestrinConfigManager
