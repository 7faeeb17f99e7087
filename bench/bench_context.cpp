//===- bench/bench_context.cpp - A context item looked up through a chain ===//
//
// What a message pays to find an item: a lookup by ID from a context whose
// item lies two chained contexts down (the way a message context reaches the
// process items through the application context), beside a
// std::unordered_map find of the same key, and an own item as the floor.
// The IDs are those of real items, so the hash spreads them as it will in a
// process.
//
//===----------------------------------------------------------------------===//
#include "qzmsg/CContext.h"

#include <benchmark/benchmark.h>

#include <unordered_map>

namespace {

using namespace qzs::qzlib;

char const* const kNames[] = {"AppInstance", "AppStartTime", "BuildApplication", "BuildDBMS",
                              "ProcessID", "ProcessExecutable", "ProcessExecutableBase",
                              "DirProcessLog", "DirProcessDmp", "ThreadID"};

// Three contexts, each with its own items, chained top -> middle -> bottom;
// the item asked for lies in the bottom one.
struct Chain {
    CContext top, middle, bottom;
    ContextItemID wanted;
    Chain() {
        int i = 0;
        for (char const* name : kNames) {
            CContext& owner = i < 4 ? top : i < 7 ? middle : bottom;
            owner.AddItem(new CContextItem(CContext::GetContextItemID(name), static_cast<unsigned int>(i)));
            ++i;
        }
        middle.deleteWithParent = bottom.deleteWithParent = false;
        top.AddContext(&middle);
        middle.AddContext(&bottom);
        wanted = CContext::GetContextItemID("DirProcessLog");
    }
};

void BM_ContextLookup_ThreeDeep(benchmark::State& state) {
    Chain chain;
    for (auto _ : state) {
        CContextItem* item = chain.top.GetItem(chain.wanted);
        benchmark::DoNotOptimize(item);
    }
}
BENCHMARK(BM_ContextLookup_ThreeDeep);

void BM_ContextLookup_Own(benchmark::State& state) {
    Chain chain;
    const ContextItemID own = CContext::GetContextItemID("AppInstance");
    for (auto _ : state) {
        CContextItem* item = chain.top.GetItem(own);
        benchmark::DoNotOptimize(item);
    }
}
BENCHMARK(BM_ContextLookup_Own);

void BM_ContextLookup_UnorderedMap(benchmark::State& state) {
    std::unordered_map<ContextItemID, unsigned int> map;
    unsigned int i = 0;
    for (char const* name : kNames)
        map.emplace(CContext::GetContextItemID(name), i++);
    const ContextItemID wanted = CContext::GetContextItemID("DirProcessLog");
    for (auto _ : state) {
        auto found = map.find(wanted);
        benchmark::DoNotOptimize(found);
    }
}
BENCHMARK(BM_ContextLookup_UnorderedMap);

} // namespace

BENCHMARK_MAIN();
