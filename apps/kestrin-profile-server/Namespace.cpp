#include <algorithm>
#include <utility>

#include <SQLiteCpp/Transaction.h>
#include <boost/json.hpp>

#include <kestrin-profile-server/Namespace.hpp>
#include <kestrin-profile-server/state/Storage.hpp>

namespace KestrinProfileServer {
namespace {

std::string tokenKeyIn(const std::filesystem::path& database, Durability durability) {
    Connection connection(database, Connection::Mode::readWrite, durability);
    return tokenKey(connection);
}

/// The seed, if the database is new; then the household that it is about.
std::optional<Household> seededHousehold(Connection& connection,
                                         const NamespaceSettings& settings) {
    if (!settings.seed) return std::nullopt;
    if (allHouseholds(connection).empty()) addState(connection, *settings.seed);
    const auto households = allHouseholds(connection);
    if (households.empty()) return std::nullopt;
    const auto named = std::ranges::find(households, settings.household, &Household::name);
    return named == households.end() ? households.front() : *named;
}

Household preparedIn(Connection& connection, const NamespaceSettings& settings) {
    SQLite::Transaction transaction(connection.database(), SQLite::TransactionBehavior::IMMEDIATE);
    renewNameKeys(connection);
    // A seed may have longer lists than clients could make.
    trimLists(connection, settings.limits.maxListSize);
    const auto seeded = seededHousehold(connection, settings);
    Household household =
        seeded ? *seeded
               : ensureHousehold(connection, settings.household, settings.parentProfileID);
    for (const auto& profileID : settings.block)
        setBlocked(connection, household.row, profileID, true);
    for (const auto& profileID : settings.unblock)
        setBlocked(connection, household.row, profileID, false);
    transaction.commit();
    return household;
}

/// The settings with the place where the data is.
NamespaceSettings placed(NamespaceSettings settings, const std::filesystem::path& file) {
    settings.database = file;
    return settings;
}

}  // namespace

Namespace::Namespace(std::string name, const NamespaceSettings& settings, std::size_t threads)
    : name_(std::move(name)),
      isObserved_(settings.journalMemory != nullptr || settings.isStrict),
      observation_(settings.journalMemory, settings.isStrict),
      temporary_(settings.database.empty() ? std::make_optional<TemporaryDatabase>()
                                           : std::nullopt),
      file_(temporary_ ? temporary_->file() : settings.database),
      durability_(temporary_ ? Durability::none : Durability::full),
      limits_(settings.limits),
      clock_(settings.clock),
      household_(prepareHousehold(placed(settings, file_), durability_)),
      tokens_(tokenKeyIn(file_, durability_), settings.tokenLifetime, clockFunction()),
      writes_(file_, durability_),
      dispatcher_(tokens_, limits_, clockFunction(), writes_),
      readers_(threads) {
    if (settings.seed && settings.seed->maxSize) limits_.setMaxListSize(*settings.seed->maxSize);
    if (!settings.canBeReset) return;
    Connection connection(file_, Connection::Mode::readOnly, durability_);
    start_ = boost::json::serialize(seedJSON(state(connection), Secrets::told));
}

Namespace::AfterCommit Namespace::restoreStart(Connection& connection) {
    // It leaves nothing out.
    return replaceState(connection, seedIn(boost::json::parse(start_), SeedDefaults{}));
}

Namespace::AfterCommit Namespace::replaceState(Connection& connection, const Seed& seed) {
    KestrinProfileServer::replaceState(connection, seed);
    return [this, size = seed.maxSize.value_or(limits_.configured().maxListSize)] {
        limits_.setMaxListSize(size);
    };
}

Namespace::AfterCommit Namespace::addState(Connection& connection, const Seed& seed) {
    KestrinProfileServer::addState(connection, seed);
    return [this, size = seed.maxSize] {
        if (size) limits_.setMaxListSize(*size);
    };
}

Seed Namespace::state(Connection& connection) {
    Seed seed = storedState(connection);
    const std::size_t size = limits_.now().maxListSize;
    if (size != limits_.configured().maxListSize) seed.maxSize = size;
    return seed;
}

std::string Namespace::pathOf(const std::string& name) {
    return name.empty() ? "" : "/n/" + name;
}

Connection& Namespace::reader(std::size_t thread) {
    auto& reader = readers_.at(thread);
    if (!reader)
        reader = std::make_unique<Connection>(file_, Connection::Mode::readOnly, durability_);
    return *reader;
}

Household prepareHousehold(const NamespaceSettings& settings, Durability durability) {
    prepareDatabase(settings.database, currentSchemaVersion(), durability);
    try {
        Connection connection(settings.database, Connection::Mode::readWrite, durability);
        return preparedIn(connection, settings);
    } catch (const SQLite::Exception& failure) {
        throw cannotOpen(settings.database, failure.what());
    }
}

}  // namespace KestrinProfileServer
