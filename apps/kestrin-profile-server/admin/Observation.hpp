#pragma once

#include <memory>
#include <optional>

#include <kestrin-profile-server/admin/Events.hpp>
#include <kestrin-profile-server/admin/Faults.hpp>
#include <kestrin-profile-server/admin/Journal.hpp>
#include <kestrin-profile-server/admin/StrictChecks.hpp>
#include <kestrin-profile-server/http/ExchangeObserver.hpp>

namespace KestrinProfileServer {

/// What the admin interface sees of the requests of one namespace, and does to them. Used by all
/// threads at once.
class Observation final : public ExchangeObserver {
  public:
    /// @param memory  what the journal shares with others; null: nothing is recorded
    Observation(const std::shared_ptr<JournalMemory>& memory, bool isStrict)
        : isRecording_(memory != nullptr),
          journal_(memory != nullptr ? memory : std::make_shared<JournalMemory>()) {
        if (isStrict) strict_.emplace();
    }

    [[nodiscard]] Journal& journal() { return journal_; }
    [[nodiscard]] Faults& faults() { return faults_; }
    [[nodiscard]] Events& events() { return events_; }
    [[nodiscard]] bool isStrict() const { return strict_.has_value(); }

    [[nodiscard]] std::vector<Finding> findings(const Exchange& exchange,
                                                std::string_view requestBody) override;
    void record(Exchange exchange, std::string_view requestBody,
                std::string_view replyBody) override;

    /// As at the start: no entries, no faults.
    void reset();

  private:
    bool isRecording_;
    std::optional<StrictChecks> strict_;
    Journal journal_;
    Faults faults_;
    Events events_;
};

}  // namespace KestrinProfileServer
