// Whole operations over HTTP, from subscribe to the decoded list, against nginx on the same
// machine.
//
// The peers are plain libcurl, used by hand in the same arrangement, and, on the calling thread,
// its easy interface and cpp-httplib. All receive the reply as a text and decode nothing;
// KestrinProfile decodes, except where `http_1MB` looks at its transport alone.

#include <cstdint>
#include <functional>
#include <httplib.h>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include <benchmark/benchmark.h>

#include <HalvardSling/rx/Sling.hpp>

#include "http/HistoryService.hpp"
#include "http/InFlight.hpp"
#include "http/Nginx.hpp"
#include "http/PlainCurl.hpp"

namespace {

using Bench::HistoryHeaders;
using Bench::HistoryService;
using Bench::InFlight;
using Bench::Latencies;
using Bench::manyInFlight;
using Bench::Nginx;
using Bench::oneAtATime;
using Bench::PlainCurl;
using Bench::PlainCurlThread;
using benchmark::State;

constexpr const char* small = "/v1/history";
constexpr const char* large = "/v1/large";
constexpr std::size_t batch = 1024;
constexpr std::size_t largeBatch = 16;

void oursOneAtATime(State& state, const Nginx& nginx) {
    HistoryService service(nginx.url(small));
    oneAtATime(state, [&] { return service.requestAndWait(); });
}

void curlOneAtATime(State& state, const Nginx& nginx) {
    PlainCurlThread curl({.url = nginx.url(small)});
    oneAtATime(state, [&] { return !curl.get().empty(); });
}

void easyCurlOneAtATime(State& state, const Nginx& nginx) {
    PlainCurl curl({.url = nginx.url(small)});
    oneAtATime(state, [&] { return !curl.getEasily().empty(); });
}

void httplibOneAtATime(State& state, const Nginx& nginx) {
    httplib::Client client(nginx.url({}));
    client.set_keep_alive(true);
    client.set_tcp_nodelay(true);
    const httplib::Headers headers{
        {"Authorization", std::string("JWT ") + HistoryHeaders::token},
        {"PXRO-PROFILE-ID", HistoryHeaders::profileID},
        {"Accept", "application/json"},
        {"User-Agent", HistoryHeaders::userAgent},
    };
    oneAtATime(state, [&] {
        const auto reply = client.Get(std::string(small) + HistoryHeaders::query, headers);
        return reply && reply->status == 200 && !reply->body.empty();
    });
}

struct Work {
    std::size_t total;
    std::size_t places;
};

constexpr Work inFlight64{batch, 64};

void ours(State& state, const std::string& url, const std::string& certificateFile, Work work) {
    const HistoryService service(url, {.caBundleFile = certificateFile});
    manyInFlight(state, [&](Latencies& latencies) {
        InFlight(work.total, work.places, [&](InFlight::Done done) {
            service.request(std::move(done));
        }).run(latencies);
    });
}

void curl(State& state, const std::string& url, const std::string& certificateFile, Work work) {
    PlainCurl plain({.url = url, .places = work.places, .certificateFile = certificateFile});
    // On a thread of its own, as ours: a process with two threads locks its heap.
    manyInFlight(state, [&](Latencies& latencies) {
        std::thread([&] { plain.run(work.total, latencies); }).join();
    });
}

/// The library's transport without the decoders.
void oursUndecoded(State& state, const std::string& url, Work work) {
    const HistoryService service(url);
    HalvardSling::TransportRequest request;
    request.url = url;
    request.policy.allowsCleartext = true;
    const auto responses = HalvardSling::Sling(request).responses();
    const auto start = [&](const InFlight::Done& done) {
        responses.subscribe(
            [done](const HalvardSling::Response& reply) { done(!reply.body().empty()); },
            [done](const std::exception_ptr&) { done(false); }, [] {});
    };
    manyInFlight(state, [&](Latencies& latencies) {
        InFlight(work.total, work.places, start).run(latencies);
    });
}

/// All requests are issued at once; the transport has 64 of them in flight, and so has libcurl. How
/// long one of them takes depends on how long it waits for its turn, so that only the rate counts.
void withoutLatencies(State& state) {
    state.counters.erase("p50_us");
    state.counters.erase("p99_us");
}

void registerRequests(const Nginx& nginx) {
    for (const std::size_t count : {100U, 1'000U, 10'000U, 50'000U}) {
        const auto end = "/" + std::to_string(count);
        const auto url = nginx.url(small);
        const auto add = [&](const std::string& subject, auto run) {
            benchmark::RegisterBenchmark(("http_requests/" + subject + end).c_str(), run)
                ->UseRealTime()
                ->Unit(benchmark::kMillisecond);
        };
        add("KestrinProfile", [=](State& state) {
            ours(state, url, {}, {count, count});
            withoutLatencies(state);
        });
        add("libcurl", [=](State& state) {
            curl(state, url, {}, {count, 64});
            withoutLatencies(state);
        });
    }
}

void registerLarge(const Nginx& nginx) {
    for (const std::size_t places : {1U, 4U}) {
        const auto end = "/" + std::to_string(places);
        const auto url = nginx.url(large);
        const Work work{largeBatch, places};
        const auto add = [&](const std::string& subject, auto run) {
            benchmark::RegisterBenchmark(("http_1MB/" + subject + end).c_str(), run)
                ->UseRealTime()
                ->Unit(benchmark::kMillisecond);
        };
        add("KestrinProfile", [=](State& state) { oursUndecoded(state, url, work); });
        add("KestrinProfile, decoded", [=](State& state) { ours(state, url, {}, work); });
        add("libcurl", [=](State& state) { curl(state, url, {}, work); });
    }
}

void registerSmall(const Nginx& nginx) {
    const auto add = [&](const std::string& name, auto run) {
        benchmark::RegisterBenchmark(name.c_str(), run)->UseRealTime();
    };
    add("http_one_at_a_time/KestrinProfile/1", [&](State& state) { oursOneAtATime(state, nginx); });
    add("http_one_at_a_time/libcurl/1", [&](State& state) { curlOneAtATime(state, nginx); });
    add("http_one_at_a_time/libcurl, easy/1",
        [&](State& state) { easyCurlOneAtATime(state, nginx); });
    add("http_one_at_a_time/cpp-httplib/1", [&](State& state) { httplibOneAtATime(state, nginx); });

    add("http_64_in_flight/KestrinProfile/64",
        [&](State& state) { ours(state, nginx.url(small), {}, inFlight64); });
    add("http_64_in_flight/libcurl/64",
        [&](State& state) { curl(state, nginx.url(small), {}, inFlight64); });
    add("https_http2_64_in_flight/KestrinProfile/64", [&](State& state) {
        ours(state, nginx.secureURL(small), nginx.certificateFile(), inFlight64);
    });
    add("https_http2_64_in_flight/libcurl/64", [&](State& state) {
        curl(state, nginx.secureURL(small), nginx.certificateFile(), inFlight64);
    });
}

}  // namespace

int main(int count, char** arguments) {
    benchmark::Initialize(&count, arguments);
    if (benchmark::ReportUnrecognizedArguments(count, arguments)) return 2;
    const Nginx nginx;
    registerSmall(nginx);
    registerLarge(nginx);
    registerRequests(nginx);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
