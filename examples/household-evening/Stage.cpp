#include "Stage.hpp"

#include <mutex>
#include <semaphore>

#include <fmt/format.h>

#include <KestrinConfigManager/ConfigurationManager.hpp>

namespace HouseholdEvening {

HalvardSling::TransferID CountingTransport::send(HalvardSling::CheckedRequest request,
                                                 HalvardSling::TransportCompletion completion) {
    ++counts_->sent;
    const std::size_t open = ++counts_->open;
    for (std::size_t most = counts_->mostOpen;
         most < open && !counts_->mostOpen.compare_exchange_weak(most, open);) {
    }
    return inner_->send(std::move(request), [counts = counts_, completion = std::move(completion)](
                                                HalvardSling::TransportResult result) {
        --counts->open;
        completion(std::move(result));
    });
}

void require(bool holds, const std::string& claim) {
    if (!holds) throw std::runtime_error("expected: " + claim);
}

void awaitAll(std::size_t count, std::size_t atOnce,
              const std::function<Observable<Response>(std::size_t index)>& request) {
    struct State {
        explicit State(std::size_t places) : free(static_cast<std::ptrdiff_t>(places)) {}

        std::counting_semaphore<> free;
        std::mutex mutex;
        std::exception_ptr error;
    };
    const auto state = std::make_shared<State>(atOnce);
    for (std::size_t index = 0; index < count; ++index) {
        state->free.acquire();
        request(index).subscribe([](const Response&) {},
                                 [state](const std::exception_ptr& error) {
                                     {
                                         const std::scoped_lock lock(state->mutex);
                                         if (!state->error) state->error = error;
                                     }
                                     state->free.release();
                                 },
                                 [state] { state->free.release(); });
    }
    for (std::size_t place = 0; place < atOnce; ++place)
        state->free.acquire();
    const std::scoped_lock lock(state->mutex);
    if (state->error) std::rethrow_exception(state->error);
}

std::string reasonOf(const HalvardSling::SlingError& error) {
    const auto* const problem = error.problem();
    return problem != nullptr ? problem->detail : std::string();
}

Stage::Stage() : transport_(std::make_shared<CountingTransport>(HalvardSling::defaultTransport())) {
    HalvardSling::setDefaultTransport(transport_);
    auto& manager = KestrinConfigManager::ConfigurationManager::sharedInstance();
    manager.setForbiddenReplyReaction([&manager, reactions = reactions_] {
        ++*reactions;
        manager.dropBinds();
    });
}

void Stage::scene(const std::string& title) {
    fmt::print("\n{}\n", title);
}

void Stage::step(const std::string& what, const std::function<std::string()>& play) {
    ++steps_;
    try {
        fmt::print("ok {}. {}\n     {}\n", steps_, what, play());
    } catch (const std::exception& error) {
        throw std::runtime_error(fmt::format("step {}, {}: {}", steps_, what, error.what()));
    }
}

void Stage::close() const {
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin_;
    fmt::print("\n{} steps, {} requests, {:.1f} s\n", steps_, sent(), taken.count());
}

}  // namespace HouseholdEvening
