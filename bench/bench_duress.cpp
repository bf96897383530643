// The duress check on the unlock path: a match, a near miss and a different password should cost the same,
// so that the time taken does not tell an observer how close a guess came.
#include "lock/DuressRecord.h"

#include <benchmark/benchmark.h>

#include <string_view>

namespace {

using namespace quillon;

kdbx::ByteView bytes(std::string_view text)
{
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

void duressCheck(benchmark::State& state, std::string_view typed)
{
    static const auto record = lock::DuressRecord::make(bytes("correct horse battery"));
    for (auto _ : state)
        benchmark::DoNotOptimize(lock::DuressRecord::check(record, bytes(typed)));
}
BENCHMARK_CAPTURE(duressCheck, match, "correct horse battery")
    ->Unit(benchmark::kMillisecond)->Iterations(10)->Repetitions(9)->DisplayAggregatesOnly(true);
BENCHMARK_CAPTURE(duressCheck, nearMiss, "correct horse batterx")
    ->Unit(benchmark::kMillisecond)->Iterations(10)->Repetitions(9)->DisplayAggregatesOnly(true);
BENCHMARK_CAPTURE(duressCheck, otherPassword, "hunter2")
    ->Unit(benchmark::kMillisecond)->Iterations(10)->Repetitions(9)->DisplayAggregatesOnly(true);

} // namespace
