// From the text of a reply to the finished record: ours and the parsers that could have stood
// behind the dictionary. Counts the heap, too.

#include <string>

#include <benchmark/benchmark.h>

#include "decode/Decoders.hpp"
#include "support/Allocations.hpp"
#include "support/ListText.hpp"

namespace {

using Bench::Decoder;
using Bench::KeyOrder;

/// The peak holds the text, what stands between, and the record; the allocations are those of
/// decoding alone.
void countHeap(benchmark::State& state, const Decoder& decoder, const std::string& text) {
    const auto entries = static_cast<double>(state.range(0));
    Bench::forgetSimdjsonParsers();
    const auto whole = Bench::heapUseOf([&] {
        const auto reply = Bench::replyOf(text);
        benchmark::DoNotOptimize(decoder.decode(reply));
    });
    const auto reply = Bench::replyOf(text);
    const auto decoding =
        Bench::heapUseOf([&] { benchmark::DoNotOptimize(decoder.decode(reply)); });
    state.counters["peak_bytes_per_entry"] = static_cast<double>(whole.peakBytes) / entries;
    state.counters["allocations_per_entry"] = static_cast<double>(decoding.allocations) / entries;
}

void decode(benchmark::State& state, const Decoder& decoder, KeyOrder order) {
    const std::string text = Bench::listText(static_cast<std::size_t>(state.range(0)), order);
    const auto reply = Bench::replyOf(text);
    if (decoder.decode(reply).elements->size() != static_cast<std::size_t>(state.range(0)))
        return state.SkipWithError("the record lacks entries");
    for (auto _ : state)
        benchmark::DoNotOptimize(decoder.decode(reply));
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
    if (decoder.decode != &Bench::copyRecord) countHeap(state, decoder, text);
}

void registerTopic(const std::string& topic, KeyOrder order) {
    for (const Decoder& decoder : Bench::decoders())
        benchmark::RegisterBenchmark(
            (topic + "/" + decoder.name).c_str(),
            [&decoder, order](benchmark::State& state) { decode(state, decoder, order); })
            ->Arg(50)
            ->Arg(1000)
            ->Arg(10000)
            ->Arg(100000);
}

}  // namespace

int main(int argc, char** argv) {
    registerTopic("decode", KeyOrder::asWritten);
    registerTopic("decode_shuffled", KeyOrder::shuffled);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    benchmark::RunSpecifiedBenchmarks();
}
