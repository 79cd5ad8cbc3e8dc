// What a folder listing costs between its reply and its records, beside what the JSON library alone takes to parse the same text.
//
// `Listing` alternates the two in one loop and reports the listing step's rate, `ratio` (its time to the bare parse's), `peakRatio` (the
// most memory allocated meanwhile, the reply's text included, to the bare parse's) and `bytesPerItem` (what the records keep allocated).
// `BareParse` is the library alone, for its absolute rate.

#include "AllocationCounter.h"
#include "Replies/ItemParsing.h"
#include "Replies/JsonLibrary.h"

#include "QuendraHttp/QuendraHttp.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <ctime>
#include <string>
#include <tuple>

namespace
{

std::string MakeItem(std::int64_t number)
{
    const std::string text = std::to_string(number);
    return R"({"name":"Quarterly report )" + text + R"(.docx","revision":"4f9c2e7a-)" + text +
           R"(","directory":false,"creation_time":"2015-03-02T10:20:30.1234567Z","modification_time":"2016-02-29T23:59:59.7654321Z","size":)" +
           text + R"(,"attributes":32,"permissions":"WRITE","folder_permissions":"WRITE"})";
}

std::string MakeReply(std::int64_t items)
{
    std::string reply = R"({"name":"folder","revision":"1","directory":true,"creation_time":"2015-03-02T10:20:30.1Z",)"
                        R"("modification_time":"2015-03-02T10:20:30.1Z","size":0,"attributes":16,"permissions":"WRITE","contents":[)";
    for (std::int64_t number = 0; number < items; ++number)
        reply += (number == 0 ? "" : ",") + MakeItem(number);
    return reply + "]}";
}

// Processor time: what else runs on the machine does not count.
double Now()
{
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

double TimeBareParse(const std::string& reply)
{
    const double start = Now();
    {
        Json::Value root;
        benchmark::DoNotOptimize(ReadJson(reply, Comments::Skip, root));
    }
    return Now() - start;
}

void BareParse(benchmark::State& state)
{
    const std::string reply = MakeReply(state.range(0));
    for ([[maybe_unused]] auto _ : state)
        state.SetIterationTime(TimeBareParse(reply));
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(reply.size()));
}

void Listing(benchmark::State& state)
{
    const std::string text = MakeReply(state.range(0));
    double listing = 0;
    double bareParse = 0;
    std::int64_t kept = 0;
    double bareParsePeak = 0;
    double listingPeak = 0;
    for ([[maybe_unused]] auto _ : state)
    {
        std::string reply = text;
        std::ignore = TakePeakBytes();
        bareParse += TimeBareParse(reply);
        bareParsePeak = static_cast<double>(TakePeakBytes());
        ServerItemList children;
        ServerItemList self;
        const std::int64_t before = AllocatedBytes() - static_cast<std::int64_t>(reply.capacity() + 1);
        const double start = Now();
        const std::uint32_t count = ExtractAttributes({reply.data(), reply.size()}, children, self, [&] { std::string().swap(reply); });
        const double seconds = Now() - start;
        kept = AllocatedBytes() - before;
        listingPeak = static_cast<double>(TakePeakBytes());
        listing += seconds;
        state.SetIterationTime(seconds);
        if (count != state.range(0) + 1)
            state.SkipWithError("The reply was not read in full");
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
    state.counters["ratio"] = listing / bareParse;
    // The text that the next round copies belongs to neither.
    const auto keptText = static_cast<double>(text.capacity() + 1);
    state.counters["peakRatio"] = (listingPeak - keptText) / (bareParsePeak - keptText);
    state.counters["bytesPerItem"] = static_cast<double>(kept) / static_cast<double>(state.range(0));
}

} // namespace

BENCHMARK(BareParse)->Arg(1000)->Arg(10000)->Arg(100000)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(Listing)->Arg(1000)->Arg(10000)->Arg(100000)->Arg(1000000)->UseManualTime()->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
