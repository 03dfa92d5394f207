// The C++ REST SDK on the work of HTTPBench.cpp, and decoding a list with it. In a program of its
// own, because it needs another Boost than the rest. KestrinProfile is measured here once more, so
// that the two can be compared within one run; --benchmark_filter=cpprestsdk leaves it out.

#include <cpprest/http_client.h>
#include <cpprest/json.h>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include <benchmark/benchmark.h>

#include <KestrinProfile/model/DateFormatter.hpp>
#include <KestrinProfile/model/UserProfile.hpp>

#include "http/HistoryService.hpp"
#include "http/InFlight.hpp"
#include "http/Nginx.hpp"
#include "support/Allocations.hpp"
#include "support/ListText.hpp"

namespace {

using Bench::HistoryHeaders;
using Bench::HistoryService;
using Bench::InFlight;
using Bench::KeyOrder;
using Bench::Latencies;
using Bench::Nginx;
using Bench::oneAtATime;
using benchmark::State;
using KestrinProfile::DateFormatter;
using KestrinProfile::UserProfile;
using KestrinProfile::UserProfileElement;

constexpr const char* path = "/v1/history";
constexpr std::size_t batch = 1024;
constexpr std::size_t places = 64;

/// A client that receives the history as a text, over kept connections.
class CpprestClient {
  public:
    explicit CpprestClient(const Nginx& nginx) : client_(nginx.url({})) {}

    [[nodiscard]] pplx::task<bool> request() {
        web::http::http_request request(web::http::methods::GET);
        request.set_request_uri(std::string(path) + HistoryHeaders::query);
        request.headers().add("Authorization", std::string("JWT ") + HistoryHeaders::token);
        request.headers().add("PXRO-PROFILE-ID", HistoryHeaders::profileID);
        request.headers().add("Accept", "application/json");
        request.headers().add("User-Agent", HistoryHeaders::userAgent);
        return client_.request(request)
            .then([](const web::http::http_response& reply) {
                return reply.extract_utf8string(true);
            })
            .then([](const std::string& text) { return !text.empty(); });
    }

  private:
    web::http::client::http_client client_;
};

void manyInFlight(State& state, const InFlight::Start& start) {
    Bench::manyInFlight(
        state, [&](Latencies& latencies) { InFlight(batch, places, start).run(latencies); });
}

void registerRequests(const Nginx& nginx) {
    const auto add = [](const char* name, auto run) {
        benchmark::RegisterBenchmark(name, run)->UseRealTime();
    };
    add("http_one_at_a_time/cpprestsdk/1", [&nginx](State& state) {
        CpprestClient client(nginx);
        oneAtATime(state, [&] { return client.request().get(); });
    });
    add("http_one_at_a_time/KestrinProfile/1", [&nginx](State& state) {
        HistoryService service(nginx.url(path));
        oneAtATime(state, [&] { return service.requestAndWait(); });
    });
    add("http_64_in_flight/cpprestsdk/64", [&nginx](State& state) {
        CpprestClient client(nginx);
        manyInFlight(state, [&](const InFlight::Done& done) { client.request().then(done); });
    });
    add("http_64_in_flight/KestrinProfile/64", [&nginx](State& state) {
        const HistoryService service(nginx.url(path));
        manyInFlight(state, [&](InFlight::Done done) { service.request(std::move(done)); });
    });
}

UserProfileElement decodedEntry(web::json::object& entry) {
    UserProfileElement element;
    element.id = entry["id"].as_string();
    element.type = entry["type"].as_string();
    element.progress = entry["progress"].as_number().to_int64();
    element.isCompleted = entry["isCompleted"].as_bool();
    element.autoAddTimestamp = DateFormatter::iso8601().date(entry["autoAddTimestamp"].as_string());
    return element;
}

UserProfile decoded(const std::string& text) {
    web::json::value value = web::json::value::parse(text);
    auto list = *UserProfile::fromJSON({});
    list.id = value["id"].as_string();
    list.maxSize = value["maxSize"].as_number().to_int64();
    auto& entries = value["elements"].as_array();
    list.elements.emplace().reserve(entries.size());
    for (auto& entry : entries)
        list.elements->push_back(decodedEntry(entry.as_object()));
    return list;
}

void decode(State& state, KeyOrder order) {
    const auto count = static_cast<std::size_t>(state.range());
    const std::string text = Bench::listText(count, order);
    for (auto _ : state)
        benchmark::DoNotOptimize(decoded(text));
    state.SetItemsProcessed(state.iterations() * state.range());
    const auto use = Bench::heapUseOf([&] { benchmark::DoNotOptimize(decoded(text)); });
    const auto perEntry = [&](std::size_t figure) {
        return static_cast<double>(figure) / static_cast<double>(count);
    };
    state.counters["peak_bytes_per_entry"] = perEntry(use.peakBytes);
    state.counters["allocations_per_entry"] = perEntry(use.allocations);
}

void registerDecoding() {
    const auto add = [](const char* name, KeyOrder order) {
        benchmark::RegisterBenchmark(name, [order](State& state) { decode(state, order); })
            ->Arg(50)
            ->Arg(1'000)
            ->Arg(100'000)
            ->UseRealTime();
    };
    add("decode/cpprestsdk", KeyOrder::asWritten);
    add("decode_shuffled/cpprestsdk", KeyOrder::shuffled);
}

}  // namespace

int main(int count, char** arguments) {
    benchmark::Initialize(&count, arguments);
    if (benchmark::ReportUnrecognizedArguments(count, arguments)) return 2;
    const Nginx nginx;
    registerRequests(nginx);
    registerDecoding();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
