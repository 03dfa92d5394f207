#pragma once

#include <optional>
#include <string>
#include <vector>

#include <kestrin-profile-server/domain/Timestamp.hpp>
#include <kestrin-profile-server/state/Seed.hpp>
#include <kestrin-profile-server/storage/Database.hpp>

namespace KestrinProfileServer {

// States under a name, kept beside the one that they are copies of. What writes runs in a
// transaction of the caller's.

struct Snapshot {
    std::string name;
    Milliseconds takenAt = 0;
};

/// In alphabetical order.
[[nodiscard]] std::vector<Snapshot> snapshots(Connection& connection);

/// Keeps the state under the name, which may have had another one.
void takeSnapshot(Connection& connection, const Snapshot& snapshot, const Seed& state);

/// What a snapshot holds; absent if there is none of this name.
[[nodiscard]] std::optional<Seed> snapshotNamed(Connection& connection, const std::string& name);

/// @return false if there was none of this name
bool deleteSnapshot(Connection& connection, const std::string& name);

}  // namespace KestrinProfileServer
