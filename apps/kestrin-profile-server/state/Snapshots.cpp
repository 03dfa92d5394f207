#include <boost/json.hpp>

#include <kestrin-profile-server/state/Snapshots.hpp>

namespace KestrinProfileServer {

std::vector<Snapshot> snapshots(Connection& connection) {
    std::vector<Snapshot> all;
    Query query(connection, "SELECT name, taken FROM snapshots ORDER BY name");
    while (query.next())
        all.push_back({query.text(0), query.integer(1)});
    return all;
}

void takeSnapshot(Connection& connection, const Snapshot& snapshot, const Seed& state) {
    Query(connection, "INSERT OR REPLACE INTO snapshots (name, taken, state) VALUES (?, ?, ?)",
          snapshot.name, snapshot.takenAt, boost::json::serialize(seedJSON(state, Secrets::told)))
        .run();
}

std::optional<Seed> snapshotNamed(Connection& connection, const std::string& name) {
    Query query(connection, "SELECT state FROM snapshots WHERE name = ?", name);
    if (!query.next()) return std::nullopt;
    // It leaves nothing out.
    return seedIn(boost::json::parse(query.text(0)), SeedDefaults{});
}

bool deleteSnapshot(Connection& connection, const std::string& name) {
    return Query(connection, "DELETE FROM snapshots WHERE name = ?", name).run() > 0;
}

}  // namespace KestrinProfileServer
