#pragma once

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
    /// @param isRecording  whether there is a journal
    Observation(bool isRecording, bool isStrict) : isRecording_(isRecording) {
        if (isStrict) strict_.emplace();
    }

    [[nodiscard]] Journal& journal() { return journal_; }
    [[nodiscard]] Faults& faults() { return faults_; }
    [[nodiscard]] Events& events() { return events_; }
    [[nodiscard]] bool isStrict() const { return strict_.has_value(); }

    [[nodiscard]] std::vector<Finding> findings(const Exchange& exchange,
                                                std::string_view requestBody) override;
    void record(Exchange exchange, std::string requestBody, SharedBody replyBody) override;

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
