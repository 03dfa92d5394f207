#include <cstdio>
#include <exception>
#include <future>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinProfile/service/Profile.hpp>

int main(int argc, char** argv) {
    auto& manager = KestrinConfigManager::ConfigurationManager::sharedInstance();
    for (const auto& problem : manager.load(argc > 1 ? argv[1] : "config.json"))
        return std::fprintf(stderr, "%s: %s\n", problem.path.c_str(), problem.message.c_str()), 2;

    std::promise<int> done;
    KestrinProfile::Profile().requestAnonymousBind().subscribe(
        [](const auto& bind) { std::printf("bound as %s\n", bind.profileID.c_str()); },
        [&](const std::exception_ptr& error) {
            try { std::rethrow_exception(error); }
            catch (const std::exception& known) { std::puts(known.what()); }
            done.set_value(1);
        },
        [&] { done.set_value(0); });
    return done.get_future().get();
}
