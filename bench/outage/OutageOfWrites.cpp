// A hundred thousand viewers through an outage of ten minutes: how many requests a second reach the
// service if their positions are written once and lost, if they are kept in two ways that many
// applications use, and with the outbox, whose code says here, as it does there, when it tries
// again.
//
// Each viewer writes a position every ten seconds, and leaves after forty minutes on average;
// another one begins then. The device of who has left goes on with what it kept.

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <numeric>
#include <optional>
#include <random>
#include <utility>
#include <vector>

#include <KestrinHousehold/outbox/OutboxOptions.hpp>
#include <KestrinHousehold/outbox/internal/Backoff.hpp>

#include "Outage.hpp"

namespace {

using KestrinHousehold::OutboxOptions;
using Outage::step;
using Outage::stepsPerSecond;
using std::chrono::nanoseconds;
using std::chrono::seconds;

constexpr std::uint32_t viewerCount = 100'000;
constexpr std::size_t stepsPerWrite = 10 * stepsPerSecond;
constexpr double writesPerSecond = viewerCount / 10.0;
constexpr double writesPerViewing = 240;  // forty minutes

const OutboxOptions options;
const std::size_t compareAfter = static_cast<std::size_t>(options.compareAfter / step);

struct Device {
    std::uint32_t waiting = 0;  ///< how many positions it has kept
    std::size_t newest = 0;     ///< the step in which the last of them came
    int failures = 0;
    bool isTrying = false;     ///< a request of it is on its way, or has its time
    bool hasCompared = false;  ///< it knows what the service has
};

struct Policy {
    const char* name;
    bool supersedes;  ///< a position replaces the one that waits
    bool compares;    ///< what is late is compared first with what the service has
    /// When a device tries again; absent: what it has kept is lost.
    std::function<std::optional<nanoseconds>(int failures, std::size_t now)> wait;
};

/// The devices, and who of them does something in each step.
class Simulation {
  public:
    Simulation(const Policy& policy, std::mt19937_64& random)
        : policy_(policy), random_(random), devices_(viewerCount), viewers_(viewerCount) {
        std::iota(viewers_.begin(), viewers_.end(), 0);
    }

    /// @return the requests of each second
    [[nodiscard]] std::vector<std::uint32_t> run() {
        for (std::size_t now = 0; now < Outage::end; ++now) {
            for (auto viewer = now % stepsPerWrite; viewer < viewerCount; viewer += stepsPerWrite)
                watch(viewers_[viewer], now);
            auto trying = std::exchange(due_[now], {});
            std::ranges::shuffle(trying, random_);
            load_[now / stepsPerSecond] += static_cast<std::uint32_t>(trying.size());
            double room = Outage::room(now, writesPerSecond);
            for (const auto device : trying) {
                if (room-- >= 1)
                    succeed(device, now);
                else
                    fail(device, now);
            }
        }
        return load_;
    }

  private:
    /// A position of a viewer, who may be another one from now on.
    void watch(std::uint32_t& viewer, std::size_t now) {
        if (std::bernoulli_distribution(1 / writesPerViewing)(random_)) {
            viewer = static_cast<std::uint32_t>(devices_.size());
            devices_.emplace_back();
        }
        auto& device = devices_[viewer];
        device.waiting = policy_.supersedes ? 1 : device.waiting + 1;
        device.newest = now;
        device.hasCompared = false;
        if (!std::exchange(device.isTrying, true)) due_[now].push_back(viewer);
    }

    void succeed(std::uint32_t number, std::size_t now) {
        auto& device = devices_[number];
        device.failures = 0;
        const bool isLate = policy_.compares && now - device.newest > compareAfter;
        if (isLate && !device.hasCompared)
            device.hasCompared = true;
        else
            --device.waiting;
        device.isTrying = device.waiting > 0;
        if (device.isTrying) tryAt(now + 1, number);
    }

    void fail(std::uint32_t number, std::size_t now) {
        auto& device = devices_[number];
        const auto wait = policy_.wait(++device.failures, now);
        // Not within the step: a request and its failure take a moment.
        if (wait) return tryAt(now + 1 + static_cast<std::size_t>(*wait / step), number);
        device = {};
    }

    void tryAt(std::size_t then, std::uint32_t number) {
        if (then < Outage::end) due_[then].push_back(number);
    }

    const Policy& policy_;
    std::mt19937_64& random_;
    std::vector<Device> devices_;
    std::vector<std::uint32_t> viewers_;  ///< the device of each
    std::vector<std::vector<std::uint32_t>> due_{Outage::end};
    std::vector<std::uint32_t> load_ = std::vector<std::uint32_t>(Outage::end / stepsPerSecond);
};

}  // namespace

int main() {
    std::mt19937_64 random(1);
    const auto fraction = [&random] {
        return std::uniform_real_distribution<double>(0, 1)(random);
    };
    const auto never = [](int, std::size_t) { return std::optional<nanoseconds>(); };
    const auto everyFiveSeconds = [](int, std::size_t) {
        return std::optional<nanoseconds>(seconds(5));
    };
    const auto own = [&](int failures, std::size_t) {
        return std::optional(
            KestrinHousehold::internal::backoff(options, failures, std::nullopt, fraction()));
    };
    // All devices are told the same second.
    const auto ownAsAsked = [&](int failures, std::size_t now) {
        const auto left =
            std::chrono::ceil<seconds>(step * (Outage::ends - std::min(now, Outage::ends)));
        return std::optional(
            KestrinHousehold::internal::backoff(options, failures, left, fraction()));
    };
    const Policy policies[] = {
        {"written once, or lost", true, false, never},
        {"all kept, every 5 s", false, false, everyFiveSeconds},
        {"the last one kept, every 5 s", true, false, everyFiveSeconds},
        {"outbox", true, true, own},
        {"outbox, told by Retry-After", true, true, ownAsAsked},
    };
    for (const auto& policy : policies)
        Outage::print(policy.name, Simulation(policy, random).run());
    return EXIT_SUCCESS;
}
