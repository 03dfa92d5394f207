#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

#include <internal/Guarded.hpp>
#include <kestrin-profile-server/domain/Timestamp.hpp>
#include <kestrin-profile-server/http/Reply.hpp>

namespace KestrinProfileServer {

/// What a fault does to a request.
enum class FaultKind {
    status,        ///< answers with a status of its own
    delay,         ///< answers later
    throttle,      ///< answers slowly
    refuse,        ///< resets the connection before the body is read
    resetBefore,   ///< resets it once the request is read; nothing was done
    resetAfter,    ///< does what was asked, then resets it without an answer
    resetMiddle,   ///< resets it after half of the answer
    truncate,      ///< closes it in the middle of the answer, in good order
    malformed,     ///< answers with a body that is no JSON
    contentType,   ///< answers with another content type
    expiredToken,  ///< refuses the token as an expired one
    revokedToken,  ///< refuses the token as one of a deleted profile
    clockSkew,     ///< has another time
};

/// What a fault does, with what its kind needs.
struct FaultAction {
    FaultKind kind = FaultKind::status;
    unsigned status = 0;
    std::string retryAfter;
    std::string contentType;
    std::optional<std::string> body;
    std::chrono::milliseconds delay{0};
    std::chrono::milliseconds jitter{0};
    std::size_t bytes = 0;  ///< in a second, or of the reply's body
    std::chrono::seconds skew{0};
};

/// What is known of a request when the rules are asked.
struct FaultSubject {
    std::string_view operation;  ///< empty: none of the protocol
    std::string_view method;
    std::optional<std::string> profile;
    bool hasToken = false;                                  ///< the operation needs one
    std::function<std::optional<std::string>()> household;  ///< asked only if a rule names one
};

/// What the rules say about one request: the delays of all that act, the slowest rate, and the
/// first outcome.
struct FaultVerdict {
    std::optional<std::int64_t> fault;  ///< what decided the outcome, or else what acted first
    std::optional<FaultAction> outcome;
    std::chrono::milliseconds delay{0};
    std::optional<std::size_t> bytesPerSecond;
    std::chrono::seconds skew{0};
};

/// The faults of one namespace, asked in the order in which they were set. Used by all threads at
/// once.
class Faults {
  public:
    /// Costs one read of an atomic.
    [[nodiscard]] bool areSet() const { return areSet_.load(std::memory_order_relaxed); }

    /// What happens to a request; counts the faults that act.
    [[nodiscard]] FaultVerdict verdictOn(const FaultSubject& subject, Milliseconds now);

    /// Adds one fault, or those of {"faults": […]}: all or none.
    /// @return what was added
    /// @throws Problem that names the first fault of the body
    [[nodiscard]] boost::json::array add(const boost::json::value& body);

    [[nodiscard]] boost::json::array all() const;
    [[nodiscard]] std::size_t count() const;
    void clear();
    /// @return whether there was one of this id
    bool remove(std::int64_t id);

  private:
    struct Rule {
        explicit Rule(std::uint64_t begin) : chance(begin) {}

        std::int64_t id = 0;
        std::optional<std::string> name;
        std::optional<std::string> operation;
        std::optional<std::string> profile;
        std::optional<std::string> household;
        std::optional<std::string> method;
        double probability = 1;
        std::optional<std::int64_t> seed;
        std::optional<std::int64_t> count;
        std::optional<Milliseconds> until;
        std::int64_t used = 0;
        FaultAction action;
        std::mt19937_64 chance;

        [[nodiscard]] bool concerns(const FaultSubject& subject, Milliseconds now) const;
        [[nodiscard]] double draw();
        void act(FaultVerdict& verdict);
    };
    struct State {
        std::vector<Rule> rules;
        std::int64_t lastID = 0;
    };

    [[nodiscard]] Rule parsed(const boost::json::value& value, const std::string& place);
    [[nodiscard]] static boost::json::object json(const Rule& rule);

    KestrinInternal::Guarded<std::random_device> unseeded_;
    std::atomic<bool> areSet_ = false;
    mutable KestrinInternal::Guarded<State> state_;
};

/// The name of a kind in JSON.
[[nodiscard]] std::string_view faultName(FaultKind kind);

/// Whether the request is not handled, because its answer is the fault's.
[[nodiscard]] bool replacesHandling(const FaultAction& action);

/// The answer of a fault that replaces the handling.
/// @param instance  what a problem document names
[[nodiscard]] Reply replyOf(const FaultAction& action, std::string_view instance);

/// Does to the answer of the handling what the fault does to it. A failure stays one.
void spoil(Reply& reply, const FaultAction& action);

/// Faults that are ready to be set together, by name.
struct FaultScenario {
    std::string_view name;
    std::string_view description;
    std::string_view faults;  ///< the JSON that `Faults::add` takes
};
[[nodiscard]] std::span<const FaultScenario> faultScenarios();

}  // namespace KestrinProfileServer
