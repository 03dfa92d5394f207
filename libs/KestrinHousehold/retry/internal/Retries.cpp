#include <algorithm>
#include <mutex>
#include <random>
#include <utility>

#include <KestrinHousehold/retry/internal/Delay.hpp>
#include <KestrinHousehold/retry/internal/Retries.hpp>
#include <KestrinHousehold/retry/internal/RetryAfter.hpp>
#include <KestrinProfile/service/Error.hpp>

namespace KestrinHousehold::internal {

using HalvardSling::SlingError;
using std::chrono::nanoseconds;

namespace {

template <class List, class Value>
bool contains(const List& list, const Value& value) {
    return std::ranges::find(list, value) != std::ranges::end(list);
}

double randomFraction() {
    static std::mutex& mutex = *new std::mutex;
    static std::mt19937_64& engine = *new std::mt19937_64(std::random_device()());
    const std::scoped_lock lock(mutex);
    return std::uniform_real_distribution<double>(0, 1)(engine);
}

std::optional<SlingError> slingErrorOf(const std::exception_ptr& error) {
    return KestrinProfile::visitError(
        error, [](const SlingError& known) { return std::optional(known); },
        [](const std::exception&) { return std::optional<SlingError>(); });
}

std::string reasonOf(const SlingError& error) {
    const auto status = error.statusCode();
    return status ? std::to_string(*status) : std::string(name(error.kind()));
}

}  // namespace

Retries::Retries(RetryPolicy policy, std::function<double()> random)
    : policy_(std::move(policy)),
      budget_(policy_.budget),
      random_(random ? std::move(random) : randomFraction) {}

Retries::Decision Retries::decide(const FailedAttempt& failed) {
    const auto error = slingErrorOf(failed.error);
    if (policy_.maxAttempts <= 1 || !error || !isRepeatable(*error, failed.method)) return Stands{};
    std::string reason = reasonOf(*error);
    if (failed.attempt >= policy_.maxAttempts)
        return Stands{reason += ", and the attempts are used up"};
    const nanoseconds delay = delayOf(*error, failed);
    if (delay >= failed.deadline - failed.now)
        return Stands{reason += ", and the deadline is too near"};
    if (!budget_.take()) return Stands{reason += ", and the budget for repeats is used up"};
    return Repeat{delay, std::move(reason)};
}

bool Retries::isRepeatable(const SlingError& error, std::string_view method) const {
    const bool isIdempotent = contains(policy_.idempotentMethods, method);
    if (const auto status = error.statusCode())
        return contains(policy_.refusals, *status) ||
               (isIdempotent && contains(policy_.statuses, *status));
    return contains(policy_.unsentErrors, error.kind()) ||
           (isIdempotent && contains(policy_.errors, error.kind()));
}

nanoseconds Retries::delayOf(const SlingError& error, const FailedAttempt& failed) const {
    const auto limit = doubled(policy_.firstDelay, failed.attempt - 1, policy_.longestDelay);
    const auto jitter = part(limit, random_());
    const auto asked = error.reply() != nullptr
                           ? retryAfter(error.reply()->headers, failed.wallTime)
                           : std::nullopt;
    // The jitter comes on top: all clients of an overloaded service were told the same time.
    return jitter + asked.value_or(std::chrono::seconds(0));
}

}  // namespace KestrinHousehold::internal
