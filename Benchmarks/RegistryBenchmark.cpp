// The registry over 1,000, 10,000 and 50,000 cache folders. Each figure comes
// with a baseline measured side by side in the same run, reported as a
// counter "ratio_<baseline>" (subject time / baseline time, best of rounds):
//
//   floor      list the folder, open, fstat, read and parse each file with one
//              pugixml document, copy the values out (Floor.cpp)
//   keys       linear scan of precomputed case-folded (path, user, server) keys
//              with the registry's tests; without the lock plus the found
//              record's one stat
//   stat       one listing and one stat per info file
//
// Counters outside the timed loops: calls through the file layer's seam per
// record (sys_per_rec), allocations per record (allocs_per_rec), live heap
// per record (bytes_per_rec), and the same for the floor where it has them.
//
//   scripts/bench.sh        (builds the release preset and prints a table)

#include <benchmark/benchmark.h>

#include <memory>

#include "BenchSupport.h"
#include "Floor.h"
#include "IO/Internal/StampedFile.h"
#include "KRClient/RegisteredProjects.h"

namespace {

using bench::Corpus;
using bench::GetCorpus;
using bench::InitRegistry;

std::size_t Pick(std::int64_t i, std::size_t n) {
    // Spread over the list: a look-up is a walk, so its place matters.
    return static_cast<std::size_t>(i * 7919) % n;
}

void BM_LookUp(benchmark::State& state) {
    const Corpus& c = GetCorpus(static_cast<int>(state.range(0)));
    const bool locked = state.range(1) != 0;
    const std::size_t n = c.locations.size();
    InitRegistry(c);
    bench::FoldedKeys keys(c);
    std::unique_ptr<KRC::RegisteredProjects::Synchronizer> lock;
    if (locked) lock = std::make_unique<KRC::RegisteredProjects::Synchronizer>();
    auto lookUp = [&](std::int64_t i) {
        benchmark::DoNotOptimize(
            KRC::registeredProjects.GetCachedProjectInfo(c.locations[Pick(i, n)]));
    };
    std::int64_t i = 0;
    for (auto _ : state) lookUp(i++);

    // Every look-up finds its own record, as the scan does.
    for (std::int64_t k = 0; k < 50; ++k) {
        const KRC::CachedProjectInfo* info =
            KRC::registeredProjects.GetCachedProjectInfo(c.locations[Pick(k, n)]);
        if (!info || info->GetProjectPath().Std() != c.paths[Pick(k, n)] ||
            keys.Find(c.locations[Pick(k, n)], false) != static_cast<long>(Pick(k, n)))
            state.SkipWithError("look-up found another record");
    }
    const std::int64_t reps = std::max<std::int64_t>(20, 2000000 / static_cast<std::int64_t>(n));
    bench::ReportRatio(
        state, "keys", lookUp,
        [&](std::int64_t k) {
            benchmark::DoNotOptimize(keys.Find(c.locations[Pick(k, n)], !locked));
        },
        reps, 5);
    const bench::HeapCount before = bench::GetHeapCount();
    for (std::int64_t k = 0; k < reps; ++k) lookUp(k);
    const bench::HeapCount after = bench::GetHeapCount();
    state.counters["allocs_per_rec_walked"] =
        static_cast<double>(after.allocations - before.allocations) /
        static_cast<double>(reps * static_cast<std::int64_t>(n));
    {
        bench::CountingEnv counting;
        for (std::int64_t k = 0; k < reps; ++k) lookUp(k);
        state.counters["sys_per_lookup"] =
            static_cast<double>(counting.calls) / static_cast<double>(reps);
    }
    state.SetLabel(locked ? "lock held" : "no lock");
}

void BM_Init(benchmark::State& state) {
    const Corpus& c = GetCorpus(static_cast<int>(state.range(0)));
    const double n = static_cast<double>(c.files.size());
    for (auto _ : state) InitRegistry(c);
    if (KRC::registeredProjects.GetCacheDataFolderNum() != c.files.size())
        state.SkipWithError("Init registered another number of records");

    bench::ReportRatio(
        state, "floor", [&](std::int64_t) { InitRegistry(c); },
        [&](std::int64_t) { benchmark::DoNotOptimize(bench::FloorInit(c.projects)); }, 1, 3);

    KRC::RegisteredProjects::ResetForTesting();
    const bench::HeapCount empty = bench::GetHeapCount();
    {
        bench::CountingEnv counting;
        InitRegistry(c);
        state.counters["sys_per_rec"] = static_cast<double>(counting.calls) / n;
    }
    const bench::HeapCount loaded = bench::GetHeapCount();
    state.counters["allocs_per_rec"] =
        static_cast<double>(loaded.allocations - empty.allocations) / n;
    state.counters["bytes_per_rec"] = static_cast<double>(loaded.liveBytes - empty.liveBytes) / n;
    KRC::RegisteredProjects::ResetForTesting();

    const bench::HeapCount floorBefore = bench::GetHeapCount();
    {
        std::vector<bench::FloorRecord> floor = bench::FloorInit(c.projects);
        const bench::HeapCount floorLoaded = bench::GetHeapCount();
        state.counters["floor_allocs_per_rec"] =
            static_cast<double>(floorLoaded.allocations - floorBefore.allocations) / n;
        state.counters["floor_bytes_per_rec"] =
            static_cast<double>(floorLoaded.liveBytes - floorBefore.liveBytes) / n;
    }
    InitRegistry(c);
}

// Init with the files' pages dropped from the page cache before each run.
void BM_InitCold(benchmark::State& state) {
    const Corpus& c = GetCorpus(static_cast<int>(state.range(0)));
    using Policy = IO::StampedReader::ReadAhead;
    const Policy policy = state.range(1) == 0 ? Policy::kAdaptive : Policy::kNever;
    IO::StampedReader::SetReadAheadPolicy(policy);
    for (auto _ : state) {
        state.PauseTiming();
        bench::DropFromPageCache(c.files);
        state.ResumeTiming();
        InitRegistry(c);
    }
    if (KRC::registeredProjects.GetCacheDataFolderNum() != c.files.size())
        state.SkipWithError("Init registered another number of records");

    auto timeCold = [&](auto&& work) {
        double best = 1e300;
        for (int r = 0; r < 3; ++r) {
            bench::DropFromPageCache(c.files);
            auto start = bench::Clock::now();
            work();
            best =
                std::min(best, std::chrono::duration<double>(bench::Clock::now() - start).count());
        }
        return best;
    };
    const double cold = timeCold([&] { InitRegistry(c); });
    const double floorCold =
        timeCold([&] { benchmark::DoNotOptimize(bench::FloorInit(c.projects)); });
    const double warm = bench::BestSecondsPerCall([&](std::int64_t) { InitRegistry(c); }, 1, 3);
    state.counters["subject_us"] = cold * 1e6;
    state.counters["warm_us"] = warm * 1e6;
    state.counters["floor_cold_us"] = floorCold * 1e6;
    state.counters["ratio_warm"] = cold / warm;
    state.counters["ratio_floor_cold"] = cold / floorCold;
    IO::StampedReader::SetReadAheadPolicy(Policy::kAdaptive);
    state.SetLabel(policy == Policy::kAdaptive ? "read-ahead" : "no read-ahead");
}

// Warm Init with read-ahead forced on, off, and as it is by default (on only
// once reads are seen waiting for the disc): the price of read-ahead where
// the files are in the page cache.
void BM_InitReadAheadWarm(benchmark::State& state) {
    const Corpus& c = GetCorpus(static_cast<int>(state.range(0)));
    using Policy = IO::StampedReader::ReadAhead;
    for (auto _ : state) InitRegistry(c);
    auto with = [&](Policy policy) {
        return [&c, policy](std::int64_t) {
            IO::StampedReader::SetReadAheadPolicy(policy);
            InitRegistry(c);
            IO::StampedReader::SetReadAheadPolicy(Policy::kAdaptive);
        };
    };
    double always = 1e300, never = 1e300, adaptive = 1e300;
    for (int r = 0; r < 5; ++r) {
        always = std::min(always, bench::BestSecondsPerCall(with(Policy::kAlways), 1, 1));
        never = std::min(never, bench::BestSecondsPerCall(with(Policy::kNever), 1, 1));
        adaptive = std::min(adaptive, bench::BestSecondsPerCall(with(Policy::kAdaptive), 1, 1));
    }
    state.counters["subject_us"] = adaptive * 1e6;
    state.counters["always_us"] = always * 1e6;
    state.counters["never_us"] = never * 1e6;
    state.counters["ratio_default_vs_never"] = adaptive / never;
    state.counters["ratio_always_vs_never"] = always / never;
}

// A refresh of a known, unchanged folder: the walk of RefreshCaches.
void BM_Recheck(benchmark::State& state) {
    const Corpus& c = GetCorpus(static_cast<int>(state.range(0)));
    InitRegistry(c);
    auto recheck = [&](std::int64_t) { KRC::registeredProjects.RefreshData(true, nullptr); };
    for (auto _ : state) recheck(0);
    bench::ReportRatio(
        state, "stat", recheck,
        [&](std::int64_t) { benchmark::DoNotOptimize(bench::FloorRecheck(c.projects)); }, 1, 5);
    bench::CountingEnv counting;
    recheck(0);
    state.counters["sys_per_rec"] =
        static_cast<double>(counting.calls) / static_cast<double>(c.files.size());
}

// An iterator over the registry without the lock re-checks every folder.
void BM_IterateAll(benchmark::State& state) {
    const Corpus& c = GetCorpus(static_cast<int>(state.range(0)));
    InitRegistry(c);
    auto iterate = [&](std::int64_t) {
        std::size_t n = 0;
        for (KRC::RegisteredProjects::ProjectConstIterator it("", "", nullptr); it != nullptr; ++it)
            ++n;
        benchmark::DoNotOptimize(n);
    };
    for (auto _ : state) iterate(0);
    bench::ReportRatio(
        state, "stat", iterate,
        [&](std::int64_t) { benchmark::DoNotOptimize(bench::FloorRecheck(c.projects)); }, 1, 5);
}

constexpr int kSizes[] = {1000, 10000, 50000};

void LookUpArgs(benchmark::internal::Benchmark* b) {
    for (int n : kSizes) {
        b->Args({n, 1});
        b->Args({n, 0});
    }
}

void SizeArgs(benchmark::internal::Benchmark* b) {
    for (int n : kSizes) b->Arg(n);
}

BENCHMARK(BM_LookUp)->Apply(LookUpArgs)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Init)->Apply(SizeArgs)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_InitCold)
    ->Args({10000, 0})
    ->Args({10000, 1})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);
BENCHMARK(BM_InitReadAheadWarm)->Arg(10000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Recheck)->Apply(SizeArgs)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_IterateAll)->Apply(SizeArgs)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
