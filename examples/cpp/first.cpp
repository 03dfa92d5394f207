#include <cstdio>
#include <exception>
#include <future>

#include <HalvardSling/rx/Future.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinHousehold/error/Error.hpp>
#include <KestrinHousehold/session/Household.hpp>

/// Puts a video on the parent's watch list, and shows the list: first CONFIGURATION VIDEO
int main(int argc, char** argv) {
    if (argc != 3) return std::fprintf(stderr, "usage: first CONFIGURATION VIDEO\n"), 2;
    auto& manager = KestrinConfigManager::ConfigurationManager::sharedInstance();
    for (const auto& problem : manager.load(argv[1]))
        return std::fprintf(stderr, "%s: %s\n", problem.path.c_str(), problem.message.c_str()), 2;

    const KestrinHousehold::Household household;
    const auto parent = household.session();
    try {
        HalvardSling::toFuture(parent.addWatchListVideo(argv[2])).get();
        const auto list = HalvardSling::toFuture(parent.watchList()).get();
        if (!list.elements) return 1;
        for (const auto& each : *list.elements)
            std::printf("%s\n", each.id.value_or("?").c_str());
    } catch (const std::exception&) {
        const auto error = KestrinHousehold::describe(std::current_exception());
        return std::fprintf(stderr, "%s\n%s\n", error.message.c_str(), error.advice.c_str()), 1;
    }
    return 0;
}
