// Browsing and editing a 10,000-entry database: the work behind one click in the vault window.
#include "model/Document.h"
#include "model/Group.h"
#include "model/History.h"
#include "bench/support/BenchDatabase.h"

#include <benchmark/benchmark.h>

namespace {

using namespace quillon;

pugi::xml_document& database()
{
    static const auto file = bench::openedBenchDatabase();
    return file->document;
}

void listGroupTitles(benchmark::State& state)
{
    model::Document doc(database());
    const auto groups = doc.topGroup()->groups();
    std::size_t g = 0;
    for (auto _ : state) {
        std::size_t bytes = 0;
        for (const auto& entry : groups[g % groups.size()].entries())
            bytes += entry.title().size();
        benchmark::DoNotOptimize(bytes);
        ++g;
    }
}
BENCHMARK(listGroupTitles)->Unit(benchmark::kMicrosecond)->Repetitions(9)->DisplayAggregatesOnly(true);

void editWithHistory(benchmark::State& state)
{
    model::Document doc(database());
    const auto entries = doc.topGroup()->allEntries();
    std::size_t i = 0;
    for (auto _ : state) {
        const auto& entry = entries[(i * 7919) % entries.size()];
        // A changed title every time, so every edit snapshots and, past the limit, prunes.
        benchmark::DoNotOptimize(model::editField(entry, "Title", i % 2 ? "Edited title A" : "Edited title B"));
        ++i;
    }
}
BENCHMARK(editWithHistory)->Unit(benchmark::kMicrosecond)->Repetitions(9)->DisplayAggregatesOnly(true);

} // namespace
