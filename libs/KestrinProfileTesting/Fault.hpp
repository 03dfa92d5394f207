#pragma once

#include <chrono>
#include <cstdint>
#include <string_view>
#include <utility>

#include <HalvardSling/json/JSONDictionary.hpp>

namespace KestrinProfileTesting {

/// Something that goes wrong on purpose; docs/service.md lists the kinds. A value; the functions
/// that follow its making say when it acts. Without them it acts on every request, for good.
///
///     Fault::status(503).onMethod("PUT").times(2)
class Fault {
  public:
    /// Another answer. Below 300 the work is done; from there on nothing is done.
    [[nodiscard]] static Fault status(int status) {
        Fault fault("status");
        fault.action_.setInteger("status", status);
        return fault;
    }
    /// The answer comes later.
    [[nodiscard]] static Fault delay(std::chrono::milliseconds time) {
        Fault fault("delay");
        fault.action_.setInteger("milliseconds", time.count());
        return fault;
    }
    /// The answer comes slowly.
    [[nodiscard]] static Fault throttle(std::int64_t bytesPerSecond) {
        Fault fault("throttle");
        fault.action_.setInteger("bytesPerSecond", bytesPerSecond);
        return fault;
    }
    /// The connection is closed and nothing is done.
    [[nodiscard]] static Fault resetBefore() { return Fault("resetBefore"); }
    /// The work is done, and the connection is closed without an answer.
    [[nodiscard]] static Fault resetAfter() { return Fault("resetAfter"); }
    /// The work is done, and the connection is closed within the answer.
    [[nodiscard]] static Fault resetMiddle() { return Fault("resetMiddle"); }
    /// The answer is no JSON.
    [[nodiscard]] static Fault malformed() { return Fault("malformed"); }
    /// The token is refused as one that has expired.
    [[nodiscard]] static Fault expiredToken() { return Fault("expiredToken"); }
    /// The token is refused as that of a deleted profile.
    [[nodiscard]] static Fault revokedToken() { return Fault("revokedToken"); }

    /// Only on this operation, by its name in the configuration.
    [[nodiscard]] Fault onOperation(std::string_view name) && { return when("operation", name); }
    /// Only on requests with this method.
    [[nodiscard]] Fault onMethod(std::string_view name) && { return when("method", name); }
    /// Only on requests about this profile.
    [[nodiscard]] Fault onProfile(std::string_view profileID) && {
        return when("profile", profileID);
    }
    /// Only so many times.
    [[nodiscard]] Fault times(std::int64_t count) && {
        rule_.setInteger("count", count);
        return std::move(*this);
    }

    /// What the admin interface is told.
    [[nodiscard]] HalvardSling::JSONDictionary rule() const {
        HalvardSling::JSONDictionary rule = rule_;
        rule.setDictionary("action", action_);
        if (!when_.empty()) rule.setDictionary("when", when_);
        return rule;
    }

  private:
    explicit Fault(std::string_view kind) { action_.setText("kind", kind); }

    Fault when(std::string_view name, std::string_view value) {
        when_.setText(name, value);
        return std::move(*this);
    }

    HalvardSling::JSONDictionary rule_;
    HalvardSling::JSONDictionary action_;
    HalvardSling::JSONDictionary when_;
};

}  // namespace KestrinProfileTesting
