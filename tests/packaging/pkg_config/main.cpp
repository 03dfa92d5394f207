#include <cstdio>
#include <exception>
#include <string>

#include <HalvardSling/curl/CurlTransport.hpp>
#include <KestrinHousehold/error/Error.hpp>
#include <KestrinHousehold/outbox/SQLiteOutboxStore.hpp>

/// Uses what needs libcurl and SQLite: an outbox cannot be opened in a folder that is not there.
int main() {
    const HalvardSling::CurlTransport transport;
    std::string domain;
    try {
        (void)KestrinHousehold::SQLiteOutboxStore("nowhere/outbox").load();
    } catch (const std::exception&) {
        domain = KestrinHousehold::describe(std::current_exception()).domain;
    }
    std::printf("%s\n", domain.c_str());
    return domain == "KestrinHousehold.OutboxError" ? 0 : 1;
}
