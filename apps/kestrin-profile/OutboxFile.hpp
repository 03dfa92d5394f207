#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <HalvardSling/json/JSONDictionary.hpp>
#include <KestrinHousehold/outbox/LaterSession.hpp>
#include <KestrinHousehold/outbox/Outbox.hpp>

#include "Session.hpp"

namespace KestrinProfileCLI {

/// The file in which the writes of --later are kept. Its folders are made.
/// @throws CommandError if they cannot be
[[nodiscard]] std::filesystem::path outboxFile(const Session& session);

/// How long a process waits for another one to let go of the file.
inline constexpr std::chrono::seconds outboxPatience{20};

/// The outbox of a configuration, while this process has it. It sends what waits.
class OpenOutbox {
  public:
    using Number = std::int64_t;
    using Event = KestrinHousehold::OutboxEvent;

    /// Opens it; prints what was damaged.
    /// @throws OutboxError  if it cannot be used, e.g. since another process has it
    explicit OpenOutbox(Session& session);
    OpenOutbox(const OpenOutbox&) = delete;
    OpenOutbox& operator=(const OpenOutbox&) = delete;

    /// What a profile does later.
    [[nodiscard]] KestrinHousehold::LaterSession later(
        const KestrinHousehold::ProfileSession& profile) const {
        return {profile, outbox_};
    }

    /// The entries that wait.
    [[nodiscard]] std::vector<KestrinHousehold::OutboxEntry> waiting() const {
        return outbox_->entries();
    }

    /// Waits until nothing is being sent: all is sent, or waits for something. A signal ends it,
    /// and a disk that takes nothing.
    /// @param time  for so long at most; absent: as long as it takes
    void settle(std::optional<std::chrono::duration<double>> time) const;

    /// Waits until nothing waits any more but for a bind, for so long at most. A signal ends it.
    void drain(std::chrono::duration<double> time) const;

    /// Ends it. Whatever was handed over is on the disk then.
    void close();

    /// The last that happened to each entry; not that one refused before was forgotten.
    [[nodiscard]] std::map<Number, Event> fates() const;

  private:
    struct Log;

    Session& session_;
    std::shared_ptr<Log> log_;
    std::shared_ptr<KestrinHousehold::Outbox> outbox_;
};

/// What became of entries, counted.
struct Tally {
    std::size_t sent = 0;
    std::size_t superseded = 0;
    std::size_t stale = 0;
    std::size_t expired = 0;
    std::size_t refused = 0;
    std::size_t waiting = 0;
    std::string reason;         ///< why the first one waits; may be empty
    bool waitsForBind = false;  ///< whether that is for a bind

    /// @param fate  null: nothing has happened to it
    void add(const OpenOutbox::Event* fate);

    /// Counts that are not zero, e.g. "2 sent, 1 superseded"; "nothing" if all are.
    [[nodiscard]] std::string text() const;

    /// Adds the counts to a document.
    void addTo(HalvardSling::JSONDictionary& document) const;
};

/// What `outbox` commands are told to send what waits with.
inline constexpr const char* willBeSent = "will be sent by 'kestrin-profile outbox send'";

/// A write in words of the command line, as a shell takes them, e.g. "search add 'a fox'".
[[nodiscard]] std::string wordsOf(const KestrinHousehold::OutboxWrite& write);

/// An entry as it is shown to programs.
[[nodiscard]] HalvardSling::JSONDictionary documentOf(const KestrinHousehold::OutboxEntry& entry);

/// Why the service refuses an entry, e.g. "status 400, Bad Request: …".
[[nodiscard]] std::string textOf(const KestrinHousehold::OutboxRefusal& refusal);

}  // namespace KestrinProfileCLI
