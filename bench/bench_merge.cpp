// Comparing and merging two 50,000-entry copies of one database, each edited on its own since they parted.
#include "bench/support/BenchDatabase.h"
#include "model/Diff.h"
#include "model/Document.h"
#include "model/Group.h"
#include "model/History.h"
#include "model/Merge.h"
#include "model/Moves.h"
#include "model/RecycleBin.h"

#include <benchmark/benchmark.h>

#include <memory>

namespace {

using namespace quillon;

const bench::BenchDatabaseOptions options{.entries = 50'000};

// One in a hundred entries edited, one in a thousand moved and one in a thousand deleted; the two copies touch
// different entries except every 700th, which both edit.
void editCopy(pugi::xml_document& xml, std::size_t offset)
{
    model::Document doc(xml);
    const auto top = *doc.topGroup();
    const auto groups = top.groups();
    const auto entries = top.allEntries();
    for (std::size_t i = offset; i < entries.size(); i += 100)
        model::editField(entries[i], "UserName", offset ? "theirs" : "mine");
    for (std::size_t i = 0; i < entries.size(); i += 700)
        model::editField(entries[i], "URL", offset ? "https://theirs.example" : "https://mine.example");
    for (std::size_t i = offset + 3; i < entries.size(); i += 1000)
        model::moveEntry(entries[i], groups[(i / 1000) % groups.size()]);
    for (std::size_t i = offset + 5; i < entries.size(); i += 1000)
        model::deletePermanently(entries[i]);
}

struct Copies {
    pugi::xml_document ancestor;
    pugi::xml_document mine;
    pugi::xml_document theirs;
    Copies()
    {
        bench::loadBenchDatabase(ancestor, options);
        mine.reset(ancestor);
        theirs.reset(ancestor);
        editCopy(mine, 0);
        editCopy(theirs, 1);
    }
};

Copies& copies()
{
    static Copies c;
    return c;
}

void diffTwoCopies(benchmark::State& state)
{
    auto& c = copies();
    model::Document before(c.mine);
    model::Document after(c.theirs);
    for (auto _ : state) {
        const auto d = model::diff({before}, {after});
        benchmark::DoNotOptimize(d.entries.size());
    }
}
BENCHMARK(diffTwoCopies)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime()->Repetitions(5)->DisplayAggregatesOnly(true);

void mergeThreeWays(benchmark::State& state)
{
    auto& c = copies();
    model::Document theirs(c.theirs);
    model::Document ancestor(c.ancestor);
    const model::DocumentSide theirSide{theirs};
    const model::DocumentSide ancestorSide{ancestor};
    for (auto _ : state) {
        state.PauseTiming();
        auto mineXml = std::make_unique<pugi::xml_document>();
        mineXml->reset(c.mine);
        model::Document mine(*mineXml);
        state.ResumeTiming();
        const auto summary = model::merge(mine, nullptr, theirSide, &ancestorSide);
        benchmark::DoNotOptimize(summary.lines.size());
        state.PauseTiming();
        mineXml.reset();
        state.ResumeTiming();
    }
}
BENCHMARK(mergeThreeWays)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime()->Repetitions(5)->DisplayAggregatesOnly(true);

} // namespace
