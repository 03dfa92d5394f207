// kestrin-profile-server from outside, over kept connections: reads of a history of 50 entries, and
// writes that are on the disk before they are answered, one after the other and from several
// connections at once. A single write stands beside the same row written by SQLite itself, into a
// file in the same directory, which is a temporary one: TMPDIR says on which disk; and beside an
// exchange that asks for nothing, which is the least that any request over HTTP takes. The same
// stands beside a service with the admin interface, which keeps every request in its journal, and
// beside one that also has a fault rule, for requests that do not come.

#include <array>
#include <cstdint>
#include <memory>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "http/InFlight.hpp"
#include "server/ReferenceDatabase.hpp"
#include "server/RunningServer.hpp"
#include "server/WireConnection.hpp"
#include "support/Program.hpp"

namespace {

using Bench::Clock;
using Bench::Latencies;
using Bench::ReferenceDatabase;
using Bench::RunningServer;
using Bench::WireConnection;
using benchmark::State;

constexpr std::size_t entries = 50;
constexpr std::size_t batch = 256;
constexpr std::size_t fillingWrites = 1000;

/// Video identifiers in turn, so that the history keeps its length.
class Videos {
  public:
    Videos() {
        for (std::size_t i = 0; i < ids_.size(); ++i)
            ids_[i] = "5f0c1a77-video-" + std::to_string(1'000'000'000 + i);
    }
    [[nodiscard]] const std::string& next() { return ids_[next_++ % ids_.size()]; }

  private:
    std::array<std::string, entries> ids_;
    std::size_t next_ = 0;
};

/// Connections that each have one request on its way all the time.
class Clients {
  public:
    Clients(std::uint16_t port, std::size_t count, std::vector<std::string> requests)
        : requests_(std::move(requests)), begun_(count) {
        for (std::size_t i = 0; i < count; ++i) {
            connections_.push_back(std::make_unique<WireConnection>(port));
            polled_.push_back({connections_.back()->descriptor(), POLLIN, 0});
        }
        replySize_ = connections_.front()->exchange(requests_.front()).size();
    }

    /// Sends so many requests, and waits for all replies.
    void run(std::size_t total, Latencies& latencies) {
        std::size_t ended = 0;
        left_ = total;
        for (std::size_t i = 0; i < connections_.size(); ++i)
            sendNext(i);
        while (ended < total) {
            ::poll(polled_.data(), polled_.size(), -1);
            for (std::size_t i = 0; i < connections_.size(); ++i)
                if (polled_[i].revents != 0 && take(i, latencies)) ++ended;
        }
    }

  private:
    void sendNext(std::size_t client) {
        if (left_ == 0) return;
        --left_;
        begun_[client] = Clock::now();
        connections_[client]->send(requests_[next_++ % requests_.size()]);
    }

    [[nodiscard]] bool take(std::size_t client, Latencies& latencies) {
        if (!connections_[client]->receive(replySize_)) return false;
        latencies.add(Clock::now() - begun_[client]);
        if (!connections_[client]->succeeded()) latencies.addFailure();
        sendNext(client);
        return true;
    }

    std::vector<std::string> requests_;
    std::vector<Clock::time_point> begun_;
    std::vector<std::unique_ptr<WireConnection>> connections_;
    std::vector<pollfd> polled_;
    std::size_t replySize_ = 0;
    std::size_t left_ = 0;
    std::size_t next_ = 0;
};

std::vector<std::string> writeRequests(const RunningServer& server) {
    Videos videos;
    std::vector<std::string> requests;
    for (std::size_t i = 0; i < entries; ++i)
        requests.push_back(server.writeRequest(videos.next()));
    return requests;
}

/// Writes until SQLite's log has its full length, a thousand pages: while it grows, the disk has
/// more to do for each commit.
void fill(const RunningServer& server) {
    WireConnection connection(server.port());
    const auto requests = writeRequests(server);
    for (std::size_t i = 0; i < fillingWrites; ++i) {
        static_cast<void>(connection.exchange(requests[i % requests.size()]));
        if (!connection.succeeded()) throw std::runtime_error("the server refuses a write");
    }
}

void fill(ReferenceDatabase& database) {
    Videos videos;
    for (std::size_t i = 0; i < fillingWrites; ++i)
        if (!database.write(videos.next())) throw std::runtime_error("SQLite refuses a write");
}

void measure(State& state, std::uint16_t port, std::vector<std::string> requests,
             std::size_t total) {
    Clients clients(port, static_cast<std::size_t>(state.range()), std::move(requests));
    Bench::manyInFlight(state, [&](Latencies& latencies) { clients.run(total, latencies); });
}

/// One request after the other on one connection; the replies have one size.
void measureOneAtATime(State& state, std::uint16_t port, const std::vector<std::string>& requests) {
    WireConnection connection(port);
    const std::size_t replySize = connection.exchange(requests.front()).size();
    std::size_t next = 0;
    Bench::oneAtATime(state, [&] {
        connection.send(requests[next++ % requests.size()]);
        connection.await(replySize);
        return connection.succeeded();
    });
}

void sqliteWrite(State& state, ReferenceDatabase& database) {
    Videos videos;
    Bench::oneAtATime(state, [&] { return database.write(videos.next()); });
}

void registerOneAtATime(const std::string& name, const RunningServer& server,
                        std::vector<std::string> requests) {
    benchmark::RegisterBenchmark(name.c_str(), [&server,
                                                requests = std::move(requests)](State& state) {
        measureOneAtATime(state, server.port(), requests);
    })->UseRealTime();
}

/// What stands side by side with and without a journal.
void registerPeer(const std::string& subject, const RunningServer& server) {
    registerOneAtATime("server_exchange/" + subject + "/1", server, {server.healthRequest()});
    registerOneAtATime("server_write/" + subject + "/1", server, writeRequests(server));
    benchmark::RegisterBenchmark(
        ("server_read/" + subject).c_str(),
        [&](State& state) { measure(state, server.port(), {server.readRequest()}, batch); })
        ->Arg(1)
        ->Arg(4)
        ->UseRealTime();
}

void registerAll(const RunningServer& server, ReferenceDatabase& reference) {
    benchmark::RegisterBenchmark("server_write/SQLite/1", [&](State& state) {
        sqliteWrite(state, reference);
    })->UseRealTime();
    benchmark::RegisterBenchmark(
        "server_write_concurrent/KestrinProfile",
        [&](State& state) { measure(state, server.port(), writeRequests(server), batch); })
        ->Arg(1)
        ->Arg(8)
        ->Arg(32)
        ->UseRealTime();
}

}  // namespace

int main(int count, char** arguments) {
    benchmark::Initialize(&count, arguments);
    if (benchmark::ReportUnrecognizedArguments(count, arguments)) return 2;
    const TestSupport::TemporaryDirectory directory;
    Bench::makeDatabase(directory / "reference.sqlite");
    ReferenceDatabase reference(directory / "reference.sqlite");
    const RunningServer server(directory / "served.sqlite");
    const RunningServer journalling(directory / "journalled.sqlite", {"--admin"});
    const RunningServer faulty(directory / "faulty.sqlite", {"--admin"});
    faulty.administer("POST /admin/v1/faults",
                      R"({"when":{"profile":"nobody"},"action":{"kind":"status","status":503}})");
    for (const RunningServer* each : {&server, &journalling, &faulty})
        fill(*each);
    fill(reference);
    registerPeer("KestrinProfile", server);
    registerPeer("with the journal", journalling);
    registerPeer("with the journal and a fault rule", faulty);
    registerAll(server, reference);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
