#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <kestrin-profile-server/admin/Observation.hpp>
#include <kestrin-profile-server/domain/DevelopmentClock.hpp>
#include <kestrin-profile-server/domain/Households.hpp>
#include <kestrin-profile-server/domain/Tokens.hpp>
#include <kestrin-profile-server/http/Dispatcher.hpp>
#include <kestrin-profile-server/http/WriteQueue.hpp>
#include <kestrin-profile-server/state/Seed.hpp>
#include <kestrin-profile-server/storage/TemporaryDatabase.hpp>

namespace KestrinProfileServer {

struct NamespaceSettings {
    /// Where the data is kept; empty if nobody keeps it.
    std::filesystem::path database;
    Limits limits;
    std::chrono::seconds tokenLifetime{3600};
    std::string household = "household";
    std::optional<std::string> parentProfileID;
    std::vector<std::string> block;
    std::vector<std::string> unblock;
    Clock clock = systemTime;
    /// What a new database holds; then the household is the one of the settings' name, or else the
    /// first one.
    std::optional<Seed> seed;
    /// Whether it remembers what it holds at the start.
    bool canBeReset = false;
    /// What the journals of all namespaces share; null: there is no journal.
    std::shared_ptr<JournalMemory> journalMemory;
    /// Whether what is legal but suspicious is told.
    bool isStrict = false;
};

/// A world of its own: households with their database, the tokens' key, the queue of writes, and a
/// clock. It shares nothing with others. Its functions may be called from any thread.
class Namespace {
  public:
    /// Opens or creates its database; throws StartError when it cannot.
    /// @param name     empty for the one at the root of the service
    /// @param threads  how many threads read
    Namespace(std::string name, const NamespaceSettings& settings, std::size_t threads);

    [[nodiscard]] const std::string& name() const { return name_; }
    /// What stands before the path of each of its URLs: nothing, or "/n/NAME".
    [[nodiscard]] std::string path() const { return pathOf(name_); }
    [[nodiscard]] static std::string pathOf(const std::string& name);

    /// The household that it was made with, which may be gone.
    [[nodiscard]] const Household& household() const { return household_; }
    [[nodiscard]] LiveLimits& limits() { return limits_; }
    [[nodiscard]] const Tokens& tokens() const { return tokens_; }
    [[nodiscard]] const Dispatcher& dispatcher() const { return dispatcher_; }
    [[nodiscard]] DevelopmentClock& clock() { return clock_; }
    [[nodiscard]] WriteQueue& writes() { return writes_; }
    [[nodiscard]] Observation& observation() { return observation_; }
    /// Whether somebody is to be told of its requests.
    [[nodiscard]] bool isObserved() const { return isObserved_; }

    /// What changes beside the database, to be done once that is committed.
    using AfterCommit = std::function<void()>;

    /// Replaces all that there is by what there was at the start. Runs in the queue of writes.
    [[nodiscard]] AfterCommit restoreStart(Connection& connection);

    /// Replaces all that there is. Runs in the queue of writes.
    [[nodiscard]] AfterCommit replaceState(Connection& connection, const Seed& seed);
    /// Adds to it. Runs in the queue of writes.
    [[nodiscard]] AfterCommit addState(Connection& connection, const Seed& seed);
    /// What there is.
    [[nodiscard]] Seed state(Connection& connection);

    /// The connection with which a thread reads, opened on first use. It belongs to that thread.
    [[nodiscard]] Connection& reader(std::size_t thread);

  private:
    [[nodiscard]] Clock clockFunction() {
        return [this] { return clock_.now(); };
    }

    std::string name_;
    bool isObserved_;
    Observation observation_;
    std::optional<TemporaryDatabase> temporary_;
    std::filesystem::path file_;
    Durability durability_;
    LiveLimits limits_;
    DevelopmentClock clock_;
    Household household_;
    Tokens tokens_;
    WriteQueue writes_;
    Dispatcher dispatcher_;
    std::vector<std::unique_ptr<Connection>> readers_;
    /// What there was at the start, as a document; empty if nobody asks.
    std::string start_;
};

/// Prepares the database and returns the household, created when it is missing.
[[nodiscard]] Household prepareHousehold(const NamespaceSettings& settings,
                                         Durability durability = Durability::full);

}  // namespace KestrinProfileServer
