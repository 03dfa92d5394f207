// Calls every operation without subscribing to what it returns, and writes a line before and after:
// what the process asks of the system in between is what a call costs. With a second argument it
// subscribes, too.
// Usage: CallsProgram CONFIGURATION [subscribe]

#include <exception>
#include <string_view>
#include <unistd.h>

#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinProfile/service/Profile.hpp>

#include "Operations.hpp"

namespace {

using KestrinConfigManager::ConfigurationManager;

bool write(std::string_view line) {
    return ::write(STDOUT_FILENO, line.data(), line.size()) == static_cast<ssize_t>(line.size());
}

bool configure(const char* file) {
    auto& manager = ConfigurationManager::sharedInstance();
    if (!manager.load(file).empty()) return false;
    for (const char* const profileID : {"parent", "kid"}) {
        manager.setBindProfileID(profileID);
        manager.setBindToken("token");
    }
    manager.selectProfile("kid");
    return true;
}

}  // namespace

int main(int count, char** arguments) {
    if (count < 2 || !configure(arguments[1])) return 1;
    const auto all = TestSupport::usesOfAllOperations([count](const auto& call) {
        const auto result = call();
        if (count > 2) result.subscribe([](const auto&) {}, [](const std::exception_ptr&) {});
    });
    if (all.size() != 22) return 1;
    const KestrinProfile::Profile profile;
    if (!write("calls from here\n")) return 1;
    for (const auto& call : all)
        call(profile);
    if (!write("calls to here\n")) return 1;
    return 0;
}
