// How many bytes cross the network to record how far a video was watched, once the connection is
// there: both directions, with the framing of HTTP/2 and TLS. The peer is libcurl's easy interface,
// told to send the same fields. What TCP and IP add depends on the network, and is left out.

#include <chrono>
#include <cstddef>
#include <exception>
#include <stdexcept>
#include <string>
#include <utility>

#include <benchmark/benchmark.h>

#include <HalvardSling/transport/Transport.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinProfile/service/Error.hpp>
#include <KestrinProfile/service/Profile.hpp>

#include "household/HomeService.hpp"
#include "household/PlainRequests.hpp"
#include "http/InFlight.hpp"

namespace {

using Bench::DelayProxy;
using Bench::Handover;
using Bench::HomeService;
using Bench::PlainRequests;
using benchmark::State;
using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::ConfigurationManager;
using KestrinProfile::Profile;
using KestrinProfile::ProfileParams;

/// A record of TLS 1.3 has a head of 5 bytes, a tag of 16 and a byte that says its type (RFC 8446,
/// section 5.2); a frame of HTTP/2 has a head of 9 (RFC 9113, section 4.1).
constexpr std::size_t tlsHeadBytes = 5;
constexpr std::size_t tlsBytes = tlsHeadBytes + 16 + 1;
constexpr std::size_t frameHeadBytes = 9;

constexpr std::size_t writes = 100;

/// The text that the service takes as the body of such a write.
constexpr const char* body = R"({"isCompleted":"false","type":"VIDEO","progress":"1234567"})";

std::size_t byteAt(const std::string& bytes, std::size_t at) {
    return static_cast<unsigned char>(bytes.at(at));
}

std::size_t recordsIn(const std::string& bytes) {
    std::size_t count = 0;
    for (std::size_t at = 0; at < bytes.size(); ++count)
        at += tlsHeadBytes + byteAt(bytes, at + 3) * 256 + byteAt(bytes, at + 4);
    return count;
}

/// Runs a write so many times, and tells of the bytes of one.
template <class Write>
void measure(State& state, HomeService& service, Write write) {
    for (int i = 0; i < 2; ++i)
        write();  // connects, and fills the tables of both sides
    static_cast<void>(service.way().take());
    for ([[maybe_unused]] const auto iteration : state)
        for (std::size_t i = 0; i < writes; ++i)
            write();
    const DelayProxy::Traffic traffic = service.way().take();

    const auto each = [&](std::size_t bytes) {
        return static_cast<double>(bytes) / static_cast<double>(writes * state.iterations());
    };
    const auto tls = [&](const std::string& bytes) { return recordsIn(bytes) * tlsBytes; };
    state.counters["bytes"] = each(traffic.sent.size() + traffic.received.size());
    state.counters["sent"] = each(traffic.sent.size());
    state.counters["sent_tls"] = each(tls(traffic.sent));
    state.counters["sent_body"] = static_cast<double>(frameHeadBytes + std::string(body).size());
    state.counters["received"] = each(traffic.received.size());
    state.counters["received_tls"] = each(tls(traffic.received));
    state.counters["connections"] = static_cast<double>(traffic.connections);
}

AnonymousBind bound() {
    Handover<std::string> token;
    Profile().requestAnonymousBind().subscribe(
        [&](const AnonymousBind& bind) { token.put(bind.token); },
        [&](const std::exception_ptr& error) {
            token.put({});
            throw std::runtime_error(KestrinProfile::describe(error).message);
        },
        [] {});
    return {ConfigurationManager::parentProfileID(), token.take()};
}

void ours(State& state, HomeService& service) {
    service.startApplication();
    ProfileParams params(bound());
    params.videoID = "v1";
    params.progress = 1234567;
    params.isComplete = false;
    Handover<bool> outcome;
    measure(state, service, [&] {
        Profile().addHistoryVideo(params).subscribe(
            [&](const HalvardSling::Response&) { outcome.put(true); },
            [&](const std::exception_ptr&) { outcome.put(false); }, [] {});
        if (!outcome.take()) state.SkipWithError("a write failed");
    });
    HalvardSling::setDefaultTransport(nullptr);
}

void plainCurl(State& state, HomeService& service) {
    PlainRequests requests(service);
    requests.bind();
    measure(state, service, [&] {
        if (!requests.put("/v1/history/video?video=v1&brand=kestrin&profile=parent&v=1", body))
            state.SkipWithError("a write failed");
    });
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    HomeService service{std::chrono::nanoseconds(0)};
    benchmark::RegisterBenchmark("write_bytes/KestrinProfile", [&](State& state) {
        ours(state, service);
    })->Iterations(1);
    benchmark::RegisterBenchmark("write_bytes/libcurl, easy", [&](State& state) {
        plainCurl(state, service);
    })->Iterations(1);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
