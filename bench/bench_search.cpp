// Searching the whole database from the vault window's search field.
#include "model/Document.h"
#include "model/History.h"
#include "model/RecycleBin.h"
#include "model/Search.h"
#include "model/SearchIndex.h"
#include "bench/support/BenchDatabase.h"

#include <benchmark/benchmark.h>

#include <map>
#include <memory>

namespace {

using namespace quillon;

pugi::xml_document& database(std::size_t entries)
{
    static std::map<std::size_t, std::unique_ptr<kdbx::KdbxFile>> cache;
    auto& slot = cache[entries];
    if (!slot) {
        bench::BenchDatabaseOptions options;
        options.entries = entries;
        slot = bench::openedBenchDatabase(options);
    }
    return slot->document;
}

// "zebra" sits in one entry in a thousand, so every searchable entry is read and lower-cased.
void searchLiveTree(benchmark::State& state)
{
    model::Document doc(database(static_cast<std::size_t>(state.range(0))));
    for (auto _ : state) {
        auto hits = model::entriesToList(doc, std::nullopt, "Zebra", model::SearchScope::everywhere);
        benchmark::DoNotOptimize(hits.data());
    }
}
BENCHMARK(searchLiveTree)->Arg(10'000)->Arg(50'000)->Unit(benchmark::kMillisecond)->Repetitions(7)
    ->DisplayAggregatesOnly(true);

// The window's first keystroke after opening or a change of scope: a fresh index gathers every text.
void searchFirstKeystroke(benchmark::State& state)
{
    model::Document doc(database(static_cast<std::size_t>(state.range(0))));
    for (auto _ : state) {
        model::SearchIndex index(doc);
        auto hits = index.entriesToList(std::nullopt, "Zebra", model::SearchScope::everywhere);
        benchmark::DoNotOptimize(hits.data());
    }
}
BENCHMARK(searchFirstKeystroke)->Arg(10'000)->Arg(50'000)->Unit(benchmark::kMillisecond)->Repetitions(7)
    ->DisplayAggregatesOnly(true);

// What the search field does while the user types: the texts were gathered by an earlier keystroke.
void searchAsYouType(benchmark::State& state)
{
    model::Document doc(database(static_cast<std::size_t>(state.range(0))));
    model::SearchIndex index(doc);
    index.entriesToList(std::nullopt, "z", model::SearchScope::everywhere);
    for (auto _ : state) {
        auto hits = index.entriesToList(std::nullopt, "Zebra", model::SearchScope::everywhere);
        benchmark::DoNotOptimize(hits.data());
    }
}
BENCHMARK(searchAsYouType)->Arg(10'000)->Arg(50'000)->Unit(benchmark::kMillisecond)->Repetitions(7)
    ->DisplayAggregatesOnly(true);

void searchAsYouTypeTwoTermsInPasswords(benchmark::State& state)
{
    model::Document doc(database(static_cast<std::size_t>(state.range(0))));
    model::SearchIndex index(doc);
    index.entriesToList(std::nullopt, "q", model::SearchScope::password);
    for (auto _ : state) {
        auto hits = index.entriesToList(std::nullopt, "q 7", model::SearchScope::password);
        benchmark::DoNotOptimize(hits.data());
    }
}
BENCHMARK(searchAsYouTypeTwoTermsInPasswords)->Arg(10'000)->Arg(50'000)->Unit(benchmark::kMillisecond)
    ->Repetitions(7)->DisplayAggregatesOnly(true);

// The first keystroke after an edit gathers the texts again.
void searchAfterAnEdit(benchmark::State& state)
{
    model::Document doc(database(static_cast<std::size_t>(state.range(0))));
    model::SearchIndex index(doc);
    const auto entry = doc.topGroup()->groups().front().entries().front();
    std::size_t i = 0;
    for (auto _ : state) {
        state.PauseTiming();
        entry.setField("URL", i++ % 2 ? "https://a.example" : "https://b.example", false);
        state.ResumeTiming();
        auto hits = index.entriesToList(std::nullopt, "Zebra", model::SearchScope::everywhere);
        benchmark::DoNotOptimize(hits.data());
    }
}
BENCHMARK(searchAfterAnEdit)->Arg(10'000)->Arg(50'000)->Unit(benchmark::kMillisecond)->Repetitions(7)
    ->DisplayAggregatesOnly(true);

// The first keystroke after a change wider than one entry: a group of 50 entries goes to the bin and
// comes back, so the searchable entries are listed again but no entry's texts are gathered again.
void searchAfterAMove(benchmark::State& state)
{
    model::Document doc(database(static_cast<std::size_t>(state.range(0))));
    model::SearchIndex index(doc);
    const auto group = doc.topGroup()->groups().front();
    model::deleteGroup(group); // makes the bin, once
    model::restore(group);
    index.entriesToList(std::nullopt, "z", model::SearchScope::everywhere);
    for (auto _ : state) {
        state.PauseTiming();
        model::deleteGroup(group);
        model::restore(group);
        state.ResumeTiming();
        auto hits = index.entriesToList(std::nullopt, "Zebra", model::SearchScope::everywhere);
        benchmark::DoNotOptimize(hits.data());
    }
}
BENCHMARK(searchAfterAMove)->Arg(10'000)->Arg(50'000)->Unit(benchmark::kMillisecond)->Repetitions(7)
    ->DisplayAggregatesOnly(true);

} // namespace
