// What an outbox adds to the disk and to the network. An entry that is accepted stands beside the
// same bytes stored by SQLite itself, in a file of the same directory, which is a temporary one:
// TMPDIR says on which disk. Sending 1,000 entries that an earlier process has left, opening their
// file included, stands beside the same writes made by the session, one after the other.

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <HalvardSling/curl/CurlTransport.hpp>
#include <HalvardSling/transport/Transport.hpp>
#include <KestrinHousehold/outbox/HouseholdDelivery.hpp>
#include <KestrinHousehold/outbox/LaterSession.hpp>
#include <KestrinHousehold/outbox/Outbox.hpp>
#include <KestrinHousehold/outbox/SQLiteOutboxStore.hpp>
#include <KestrinHousehold/session/Household.hpp>

#include "household/DevelopmentService.hpp"
#include "household/ReferenceStore.hpp"
#include "http/InFlight.hpp"
#include "support/Program.hpp"

namespace {

using Bench::Clock;
using Bench::Handover;
using Bench::ReferenceStore;
using benchmark::State;
using HalvardSling::Observable;
using HalvardSling::Response;
using TestSupport::TemporaryDirectory;
using namespace KestrinHousehold;

constexpr std::size_t drained = 1000;
constexpr std::size_t fillingWrites = 1000;  // until SQLite's log has its full length

std::string videoOf(std::size_t number) {
    return "5f0c1a77-video-" + std::to_string(1'000'000'000 + number);
}

/// A network that answers nothing.
class NoAnswer final : public OutboxDelivery {
  public:
    [[nodiscard]] Observable<Response> send(const OutboxWrite& /*write*/) override {
        return rxcpp::observable<>::create<Response>([](const rxcpp::subscriber<Response>&) {});
    }
    [[nodiscard]] Observable<Response> lookUp(const OutboxWrite& write) override {
        return send(write);
    }
};

/// Subscribes, and waits for the end on the calling thread.
class Waiting {
  public:
    template <class T>
    [[nodiscard]] bool completes(const Observable<T>& source) {
        source.subscribe([](const T&) {}, [this](const std::exception_ptr&) { end_.put(false); },
                         [this] { end_.put(true); });
        return end_.take();
    }

  private:
    Handover<bool> end_;
};

OutboxWrite writeOf(std::size_t number) {
    OutboxWrite write{"parent", "kestrin", KestrinProfile::ProfileOperation::addVideoToHistory,
                      videoOf(number)};
    write.progress = 1234567;
    write.isComplete = false;
    return write;
}

OutboxOptions withoutBound() {
    OutboxOptions options;
    options.maxEntries = 100'000'000;
    return options;
}

/// The text of such an entry in the outbox's file.
std::string textInFile(const std::filesystem::path& file) {
    sqlite3* database = nullptr;
    sqlite3_stmt* statement = nullptr;
    std::string text;
    sqlite3_open(file.c_str(), &database);
    if (sqlite3_prepare_v2(database, "SELECT entry FROM kestrin_outbox LIMIT 1", -1, &statement,
                           nullptr) == SQLITE_OK &&
        sqlite3_step(statement) == SQLITE_ROW)
        text =
            static_cast<const char*>(static_cast<const void*>(sqlite3_column_text(statement, 0)));
    sqlite3_finalize(statement);
    sqlite3_close(database);
    return text;
}

void appendToOutbox(State& state) {
    const TemporaryDirectory directory;
    const auto waiting = std::make_unique<Waiting>();
    const Outbox outbox(std::make_shared<SQLiteOutboxStore>(directory / "outbox.db"),
                        std::make_shared<NoAnswer>(), {}, withoutBound());
    std::size_t number = 0;
    const auto append = [&] { return waiting->completes(outbox.add(writeOf(number++))); };
    while (number < fillingWrites)
        if (!append()) return state.SkipWithError("an entry is not kept");
    Bench::oneAtATime(state, append);
}

/// Writes of which each is made where the one before is known to be kept.
void appendInTurn(State& state) {
    constexpr std::size_t inARow = 200;
    const TemporaryDirectory directory;
    const Outbox outbox(std::make_shared<SQLiteOutboxStore>(directory / "outbox.db"),
                        std::make_shared<NoAnswer>(), {}, withoutBound());
    std::atomic<std::size_t> number = 0;
    const auto append = [&](const Bench::InFlight::Done& done) {
        outbox.add(writeOf(number++))
            .subscribe([](const OutboxEntry&) {},
                       [done](const std::exception_ptr&) { done(false); }, [done] { done(true); });
    };
    Bench::Latencies filling;
    Bench::InFlight(fillingWrites, 1, append).run(filling);
    Bench::manyInFlight(state, [&](Bench::Latencies& latencies) {
        Bench::InFlight(inARow, 1, append).run(latencies);
    });
}

void appendToSQLite(State& state) {
    const TemporaryDirectory directory;
    {
        const auto waiting = std::make_unique<Waiting>();
        const Outbox outbox(std::make_shared<SQLiteOutboxStore>(directory / "outbox.db"),
                            std::make_shared<NoAnswer>());
        if (!waiting->completes(outbox.add(writeOf(0))))
            return state.SkipWithError("an entry is not kept");
    }
    const std::string text = textInFile(directory / "outbox.db");
    if (text.empty()) return state.SkipWithError("the outbox's file cannot be read");
    ReferenceStore store(directory / "reference.db");
    std::int64_t number = 0;
    const auto append = [&] { return store.append(++number, text); };
    while (number < static_cast<std::int64_t>(fillingWrites))
        if (!append()) return state.SkipWithError("SQLite keeps no entry");
    Bench::oneAtATime(state, append);
}

/// A household with a bind, over HTTP, and a fresh history.
class Home {
  public:
    Home() : household_(std::make_unique<Household>()) {
        if (!waiting->completes(session().clearHistory()))
            throw std::runtime_error("the service does not answer");
    }

    [[nodiscard]] const Household& household() const { return *household_; }
    [[nodiscard]] ProfileSession session() const { return household_->session(); }

    std::unique_ptr<Waiting> waiting = std::make_unique<Waiting>();

  private:
    std::unique_ptr<Household> household_;
};

void drainOutbox(State& state) {
    for ([[maybe_unused]] const auto iteration : state) {
        const Home home;
        const TemporaryDirectory directory;
        const auto file = directory / "outbox.db";
        {
            const Outbox earlier(std::make_shared<SQLiteOutboxStore>(file),
                                 std::make_shared<NoAnswer>());
            for (std::size_t number = 0; number < drained; ++number)
                if (!home.waiting->completes(earlier.add(writeOf(number))))
                    return state.SkipWithError("an entry is not kept");
        }
        const auto begun = Clock::now();
        const Outbox outbox(std::make_shared<SQLiteOutboxStore>(file),
                            std::make_shared<HouseholdDelivery>(home.household()),
                            home.household().scheduler());
        const bool isSettled = home.waiting->completes(outbox.settled());
        const std::chrono::duration<double> time = Clock::now() - begun;
        state.SetIterationTime(time.count());
        if (!isSettled || !outbox.entries().empty() || !outbox.refused().empty())
            return state.SkipWithError("not all was sent");
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(drained));
}

void writeDirectly(State& state) {
    for ([[maybe_unused]] const auto iteration : state) {
        const Home home;
        const auto session = home.session();
        const auto begun = Clock::now();
        for (std::size_t number = 0; number < drained; ++number)
            if (!home.waiting->completes(
                    session.addHistoryVideo(videoOf(number), std::chrono::seconds(1234567), false)))
                return state.SkipWithError("a write failed");
        const std::chrono::duration<double> time = Clock::now() - begun;
        state.SetIterationTime(time.count());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(drained));
}

/// Writes until the log of the service's database has its full length: while it grows, the disk has
/// more to do for each commit.
void fillService() {
    const Home home;
    for (std::size_t number = 0; number < fillingWrites; ++number)
        if (!home.waiting->completes(home.session().addWatchListVideo(videoOf(number % 100))))
            throw std::runtime_error("the service refuses a write");
}

}  // namespace

int main(int count, char** arguments) {
    benchmark::Initialize(&count, arguments);
    if (benchmark::ReportUnrecognizedArguments(count, arguments)) return 2;
    const Bench::DevelopmentService service;
    Bench::configure(service.configuration());
    HalvardSling::setDefaultTransport(std::make_shared<HalvardSling::CurlTransport>());
    fillService();
    benchmark::RegisterBenchmark("outbox_append/KestrinHousehold/1", &appendToOutbox)
        ->UseRealTime();
    benchmark::RegisterBenchmark("outbox_append/SQLite/1", &appendToSQLite)->UseRealTime();
    benchmark::RegisterBenchmark("outbox_append_in_turn/KestrinHousehold/1", &appendInTurn)
        ->UseRealTime();
    benchmark::RegisterBenchmark("outbox_append_in_turn/SQLite/1", &appendToSQLite)->UseRealTime();
    benchmark::RegisterBenchmark("outbox_drain/KestrinHousehold/1000", &drainOutbox)
        ->UseManualTime();
    benchmark::RegisterBenchmark("outbox_drain/one after the other/1000", &writeDirectly)
        ->UseManualTime();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    HalvardSling::setDefaultTransport(nullptr);
}
