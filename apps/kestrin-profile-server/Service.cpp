#include <SQLiteCpp/Transaction.h>

#include <kestrin-profile-server/Service.hpp>

namespace KestrinProfileServer {
namespace {

std::string tokenKeyIn(const std::filesystem::path& database) {
    Connection connection(database, Connection::Mode::readWrite);
    return tokenKey(connection);
}

Household preparedIn(Connection& connection, const ServiceSettings& settings) {
    SQLite::Transaction transaction(connection.database(), SQLite::TransactionBehavior::IMMEDIATE);
    Household household = ensureHousehold(connection, settings.household, settings.parentProfileID);
    for (const auto& profileID : settings.block)
        setBlocked(connection, household.row, profileID, true);
    for (const auto& profileID : settings.unblock)
        setBlocked(connection, household.row, profileID, false);
    transaction.commit();
    return household;
}

}  // namespace

Service::Service(const ServiceSettings& settings)
    : household_(prepareHousehold(settings)),
      tokens_(tokenKeyIn(settings.database), settings.tokenLifetime, settings.clock),
      writes_(settings.database),
      dispatcher_(tokens_, settings.limits, settings.clock, writes_),
      http_(settings.http, settings.database, dispatcher_) {}

Household prepareHousehold(const ServiceSettings& settings) {
    prepareDatabase(settings.database);
    try {
        Connection connection(settings.database, Connection::Mode::readWrite);
        return preparedIn(connection, settings);
    } catch (const SQLite::Exception& failure) {
        throw cannotOpen(settings.database, failure.what());
    }
}

}  // namespace KestrinProfileServer
