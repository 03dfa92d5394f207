// What the session layer and the interface for C add to a call with a held bind, and what calls
// cost that wait for one.

#include <cstddef>
#include <exception>
#include <memory>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include <HalvardSling/transport/Transport.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinHousehold/session/Household.hpp>

#include "household/SessionCalls.hpp"
#include "support/Allocations.hpp"
#include "support/AnswersAtOnce.hpp"

namespace {

using benchmark::State;
using HalvardSling::CheckedRequest;
using HalvardSling::TransferID;
using HalvardSling::TransportCompletion;
using KestrinConfigManager::ConfigurationManager;

void heldBind(State& state, const char* layer) {
    Bench::SessionCalls calls(CONFIGURATION);
    if (!calls.call(layer)) return state.SkipWithError("no list has come");
    bool hasCome = true;
    const auto once = [&] { hasCome = calls.call(layer) && hasCome; };
    const auto heap = Bench::heapUseOf(once);
    for ([[maybe_unused]] const auto iteration : state)
        once();
    if (!hasCome) state.SkipWithError("no list has come");
    state.SetItemsProcessed(state.iterations());
    state.counters["allocations"] = static_cast<double>(heap.allocations);
}

/// Answers a request for a bind when it is told to, and any other at once.
class HoldsBindsBack final : public HalvardSling::Transport {
  public:
    TransferID send(CheckedRequest request, TransportCompletion completion) override {
        if (request->operation == "personalization-bind-anonymous")
            waiting_.push_back(std::move(completion));
        else
            completion(Bench::replyOf("{}"));
        return ++last_;
    }
    void cancel(TransferID /*transfer*/) noexcept override {}

    /// @return how many there were
    std::size_t answerBinds() {
        const auto waiting = std::exchange(waiting_, {});
        for (const auto& completion : waiting)
            completion(Bench::replyOf(R"({"profileId":"parent","token":"a-token"})"));
        return waiting.size();
    }

  private:
    std::vector<TransportCompletion> waiting_;
    TransferID last_ = 0;
};

void waiters(State& state) {
    const auto transport = std::make_shared<HoldsBindsBack>();
    HalvardSling::setDefaultTransport(transport);
    auto& manager = ConfigurationManager::sharedInstance();
    if (!manager.load(CONFIGURATION).empty()) return state.SkipWithError("no configuration");
    for ([[maybe_unused]] const auto iteration : state) {
        manager.dropBinds();
        const KestrinHousehold::Household household;
        const auto session = household.session();
        int ended = 0;
        for (int i = 0; i < state.range(0); ++i)
            session.clearHistory().subscribe([](const HalvardSling::Response&) {},
                                             [](const std::exception_ptr&) {}, [&] { ++ended; });
        if (transport->answerBinds() != 1 || ended != state.range(0))
            state.SkipWithError("not one bind for all");
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    HalvardSling::setDefaultTransport(nullptr);
}

}  // namespace

BENCHMARK_CAPTURE(heldBind, plain, "KestrinProfile")->Name("session_history/KestrinProfile/1");
BENCHMARK_CAPTURE(heldBind, session, "KestrinHousehold")
    ->Name("session_history/KestrinHousehold/1");
BENCHMARK_CAPTURE(heldBind, c, "KestrinC")->Name("session_history/KestrinC/1");
BENCHMARK(waiters)->Name("session_waiters/KestrinHousehold")->Arg(1000)->Arg(10000);

BENCHMARK_MAIN();
