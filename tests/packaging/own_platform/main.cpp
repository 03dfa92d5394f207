#include <exception>
#include <string>

#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinProfile/service/Profile.hpp>

using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::ConfigurationManager;
using KestrinProfile::Profile;

int main() {
    std::string emitted;
    Profile().requestAnonymousBind().subscribe(
        [&](const AnonymousBind& bind) { emitted = bind.profileID + ", " + bind.token; },
        [](const std::exception_ptr&) {});
    const bool bound =
        emitted == "own parent, own token" && ConfigurationManager::profileBind(true);

    bool failed = false;
    Profile()
        .requestAnonymousBind("forbidden")
        .subscribe([](const AnonymousBind&) {}, [&](const std::exception_ptr&) { failed = true; });
    const bool reacted = ConfigurationManager::sharedInstance().reactions == 2;
    return bound && failed && reacted ? 0 : 1;
}
