// What tracing costs a function: its entry, one message with a text, and its exit.

#include "Tracing.h"

#include "Eventing/EventSink.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

namespace
{

void Ignore(void*, const Eventing::Event* event)
{
    benchmark::DoNotOptimize(event);
}

// With a listener for events up to a level; 0 for none.
void TracedFunction(benchmark::State& state, std::uint8_t level, const char* label)
{
    EventProviderHandle = level != 0 ? OpenEventSink(level, Eventing::kAnyKeyword, &Ignore, nullptr) : 0;
    const std::string path = "/Documents/Quarterly report.docx";
    for ([[maybe_unused]] auto _ : state)
    {
        const FunctionTraceScope trace("CNativeHttp::GetPathAttributes", Unit::NativeHttp);
        trace.Info("The path is [%s]", path);
    }
    state.SetLabel(label);
    CloseEventSink(EventProviderHandle);
    EventProviderHandle = 0;
}

} // namespace

BENCHMARK_CAPTURE(TracedFunction, none, 0, "none");
BENCHMARK_CAPTURE(TracedFunction, errors, 2, "of errors alone");
BENCHMARK_CAPTURE(TracedFunction, all, 4, "of all events");

BENCHMARK_MAIN();
