// How long a viewer waits for the home screen of a freshly started application: the household's
// profiles and three lists, from a service that is a round trip of 100 ms away, over TLS 1.3 and
// HTTP/2. Counted in round trips, so that the figure holds for any distance. The peer is libcurl's
// easy interface, which does the same one after the other.

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>

#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include <HalvardSling/transport/Transport.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinHousehold/session/Household.hpp>

#include "household/HomeService.hpp"
#include "household/PlainRequests.hpp"
#include "http/InFlight.hpp"

namespace {

using Bench::Clock;
using Bench::HomeService;
using Bench::PlainRequests;
using benchmark::State;
using KestrinConfigManager::ConfigurationManager;
using KestrinHousehold::Household;
using KestrinHousehold::ProfileSession;

constexpr std::chrono::milliseconds roundTrip{100};
constexpr const char* profiles = "/v1/profiles?profile=parent&v=1";
constexpr std::array lists = {"/v1/history?brand=kestrin&profile=parent&v=1",
                              "/v1/favorites?brand=kestrin&profile=parent&v=1",
                              "/v1/watchlist?brand=kestrin&profile=parent&v=1"};

/// Observables that are subscribed to at once, and their ends.
class Screen {
  public:
    template <class T>
    void show(const HalvardSling::Observable<T>& source) {
        {
            const std::scoped_lock lock(mutex_);
            ++open_;
        }
        source.subscribe([](const T&) {}, [this](const std::exception_ptr&) { end(false); },
                         [this] { end(true); });
    }

    /// Waits for all of them.
    [[nodiscard]] bool isComplete() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return open_ == 0; });
        return isWhole_;
    }

  private:
    void end(bool ok) {
        // Under the lock: this is over once the one who waits has seen it.
        const std::scoped_lock lock(mutex_);
        isWhole_ = isWhole_ && ok;
        --open_;
        changed_.notify_one();
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::size_t open_ = 0;
    bool isWhole_ = true;
};

bool showHome(const ProfileSession& session) {
    Screen screen;
    screen.show(session.profiles());
    screen.show(session.history());
    screen.show(session.favorites());
    screen.show(session.watchList());
    return screen.isComplete();
}

template <class Prepare, class Show>
void measure(State& state, HomeService& service, Prepare prepare, Show show) {
    double waited = 0;
    std::size_t connections = 0;
    for ([[maybe_unused]] const auto iteration : state) {
        prepare();
        const auto begun = Clock::now();
        if (!show()) state.SkipWithError("the home screen is not complete");
        const std::chrono::duration<double> time = Clock::now() - begun;
        state.SetIterationTime(time.count());
        waited += time / roundTrip;
        connections += service.way().take().connections;
    }
    const auto each = 1 / static_cast<double>(state.iterations());
    state.counters["round_trips"] = waited * each;
    state.counters["connections"] = static_cast<double>(connections) * each;
}

void withoutBind(State& state, HomeService& service) {
    std::unique_ptr<Household> household;
    measure(
        state, service,
        [&] {
            ConfigurationManager::sharedInstance().dropBinds();
            service.startApplication();
            household = std::make_unique<Household>();
        },
        [&] { return showHome(household->session()); });
}

void warm(State& state, HomeService& service) {
    std::unique_ptr<Household> household;
    measure(
        state, service,
        [&] {
            service.startApplication();
            household = std::make_unique<Household>();
            Screen start;
            start.show(household->session().bind());
            start.show(household->warmUp());
            if (!start.isComplete()) throw std::runtime_error("no bind can be had");
        },
        [&] { return showHome(household->session()); });
}

void plainCurl(State& state, HomeService& service, bool hasBind) {
    std::unique_ptr<PlainRequests> requests;
    measure(
        state, service,
        [&] {
            requests = std::make_unique<PlainRequests>(service);
            if (!hasBind) return;
            requests->bind();
            requests->disconnect();
        },
        [&] {
            if (!hasBind) requests->bind();
            bool isWhole = requests->get(profiles);
            for (const char* list : lists)
                isWhole = requests->get(list) && isWhole;
            return isWhole;
        });
}

void add(const char* name, const std::function<void(State&)>& run) {
    benchmark::RegisterBenchmark(name, run)->UseManualTime()->Iterations(5)->Unit(
        benchmark::kMillisecond);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    HomeService service{roundTrip};
    add("home_screen/KestrinHousehold", [&](State& state) { withoutBind(state, service); });
    add("home_screen/libcurl, easy", [&](State& state) { plainCurl(state, service, false); });
    add("home_screen_held_bind/KestrinHousehold", [&](State& state) { warm(state, service); });
    add("home_screen_held_bind/libcurl, easy",
        [&](State& state) { plainCurl(state, service, true); });
    benchmark::RunSpecifiedBenchmarks();
    HalvardSling::setDefaultTransport(nullptr);
    return 0;
}
