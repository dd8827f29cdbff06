// The local cache view at scale. Each figure comes with a baseline measured
// side by side in the same run, reported as a ratio counter:
//   BM_AddDataQueryResult   a partial tree of N folders (flat under /Big)
//                           folded into a fresh result cache; baseline: the
//                           same paths inserted into a hash map.
//   BM_CacheMerge           N local projects (100 per folder, or all in one
//                           folder) merged into a fresh result cache, once or
//                           twice (the second pass replaces every project);
//   BM_ProjectFolderMerge   the same into an empty folder tree; baseline of
//                           both: the project paths inserted into a hash map,
//                           once per pass.
//   BM_SortElements         10^6 elements sorted by name then size with the
//                           library's comparer; baseline: std::sort with a
//                           plain comparator of the same keys.
// Linear growth shows as a ratio that stays put from N to 10 N.
//
//   KRC_BENCH=LocalCacheBenchmark scripts/bench.sh

#include <benchmark/benchmark.h>
#include <strings.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "BenchSupport.h"
#include "Emulator/Service.h"
#include "KRCB/AuthenticatedClientConnection.h"
#include "KRCB/DataQuery.h"
#include "KRClient/UserInterface/DataQueryResultCache.h"
#include "KRClient/UserInterface/LocalCache/ProjectFolderMerge.h"
#include "KRClient/UserInterface/ResourceComparer.h"

namespace {

using KRC::UI::LocalCache::ProjectInfo;
using KRCB::Management::Entities::ProjectFolder;
const char* const kUrl = "https://portal.example";

std::string FlatScenario(int count) {
    std::string text = std::string(R"({"servers": [{"url": ")") + kUrl +
                       R"(", "users": [{"login": "anna", "password": "pw"}], "folders": [)";
    for (int i = 0; i < count; ++i)
        text += (i ? ", \"" : "\"") + ("/Big/F" + std::to_string(i)) + "\"";
    return text + "]}]}";
}

// A second pass replaces what the first put in.
template <typename Keys>
void InsertAll(const Keys& keys, std::int64_t passes = 1) {
    std::unordered_map<std::string, std::shared_ptr<int>> map;
    for (std::int64_t i = 0; i < passes; ++i)
        for (const auto& key : keys) map[key] = std::make_shared<int>(1);
    benchmark::DoNotOptimize(map.size());
}

void BM_AddDataQueryResult(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    auto service = Emulator::Service::FromScenarioText(FlatScenario(count));
    service->Install();
    auto connection = KRCB::Management::AuthenticatedClientConnectionFactory::Create(
        kUrl, "anna", "pw", false, false, 0);
    auto tree = ZR::Ref<KRCB::DataQuery::PartialFolderTreeResult>::Make(
        "/Big", true, false, false, KRCB::Management::QueriedFolderResources, false, false, false,
        true, false);
    tree->Collect(connection);
    service->Uninstall();
    std::vector<std::string> paths;
    for (int i = 0; i < count; ++i) paths.push_back("/Big/F" + std::to_string(i));
    const ZR::Ref<KRCB::DataQuery::DataQueryResult> result = tree;
    auto add = [&](std::int64_t) {
        KRC::UI::DataQueryResultCache cache(false, false);
        cache.AddDataQueryResult(result);
        benchmark::DoNotOptimize(cache.IsEmpty());
    };
    for (auto _ : state) add(0);
    bench::ReportRatio(
        state, "hashmap", add, [&](std::int64_t) { InsertAll(paths); }, 1, 2);
    state.counters["folders"] = static_cast<double>(count);
}

ZR::Array<ProjectInfo> Records(int count, bool oneFolder) {
    ZR::Array<ProjectInfo> records;
    for (int i = 0; i < count; ++i) {
        ProjectInfo info;
        info.id = ZR::UniString("id-" + std::to_string(i));
        info.path =
            ZR::UniString(oneFolder ? "/One/P" + std::to_string(i)
                                    : "/T" + std::to_string(i / 100) + "/P" + std::to_string(i));
        records.Add(info);
    }
    return records;
}

std::vector<std::string> Keys(const ZR::Array<ProjectInfo>& records) {
    std::vector<std::string> keys;
    for (const ProjectInfo& info : records.Std()) keys.push_back(info.path.Std());
    return keys;
}

const auto kAll = [](const ProjectInfo&) { return true; };

void BM_CacheMerge(benchmark::State& state) {
    const ZR::Array<ProjectInfo> records =
        Records(static_cast<int>(state.range(0)), state.range(1));
    const std::vector<std::string> keys = Keys(records);
    const std::int64_t passes = state.range(2);
    auto merge = [&](std::int64_t) {
        KRC::UI::DataQueryResultCache cache(false, false);
        for (std::int64_t i = 0; i < passes; ++i) cache.Merge(records, kAll);
    };
    for (auto _ : state) merge(0);
    bench::ReportRatio(
        state, "hashmap", merge, [&](std::int64_t) { InsertAll(keys, passes); }, 1, 2);
}

void BM_ProjectFolderMerge(benchmark::State& state) {
    const ZR::Array<ProjectInfo> records =
        Records(static_cast<int>(state.range(0)), state.range(1));
    const std::vector<std::string> keys = Keys(records);
    const std::int64_t passes = state.range(2);
    auto merge = [&](std::int64_t) {
        ZR::Ref<ProjectFolder> root;
        for (std::int64_t i = 0; i < passes; ++i)
            KRC::UI::LocalCache::ProjectFolderMerge::Merge(records, kAll, root);
    };
    for (auto _ : state) merge(0);
    bench::ReportRatio(
        state, "hashmap", merge, [&](std::int64_t) { InsertAll(keys, passes); }, 1, 2);
}

struct Element : KRC::UI::ISortableElement {
    ZR::UniString name;
    std::uint64_t size = 0;
    ZR::UniString GetSortName() const override { return name; }
    int GetSortModifiedTimeUtc() const override { return 0; }
    std::uint64_t GetSortSize() const override { return size; }
    const ZR::UniString GetSortModelServerPath() const override { return ZR::UniString(); }
    int GetSortResourceType() const override { return 1; }
    ZR::UniString GetSortPath() const override { return name; }
};

void BM_SortElements(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    std::mt19937 random(3);
    std::vector<Element> pool(static_cast<std::size_t>(count));
    for (Element& e : pool) {
        e.name = ZR::UniString("Project " + std::to_string(random() % 100000));
        e.size = random() % 1000;
    }
    const KRC::UI::ResourceComparer comparer(KRC::UI::ResourceComparer::Name, true,
                                             KRC::UI::ResourceComparer::Size, false);
    auto library = [&](std::int64_t) {
        std::vector<const Element*> order;
        for (const Element& e : pool) order.push_back(&e);
        std::sort(order.begin(), order.end(),
                  [&](const Element* a, const Element* b) { return comparer(*a, *b); });
    };
    auto plain = [&](std::int64_t) {
        std::vector<const Element*> order;
        for (const Element& e : pool) order.push_back(&e);
        std::sort(order.begin(), order.end(), [](const Element* a, const Element* b) {
            const int c = strcasecmp(a->name.ToCString(), b->name.ToCString());
            return c != 0 ? c < 0 : a->size > b->size;
        });
    };
    for (auto _ : state) library(0);
    bench::ReportRatio(state, "plain", library, plain, 1, 2);
}

}  // namespace

BENCHMARK(BM_AddDataQueryResult)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
// Arguments: records, all in one folder, passes.
BENCHMARK(BM_CacheMerge)
    ->Args({10000, 0, 1})
    ->Args({100000, 0, 1})
    ->Args({10000, 1, 1})
    ->Args({10000, 1, 2})
    ->Args({100000, 1, 2})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ProjectFolderMerge)
    ->Args({10000, 0, 1})
    ->Args({100000, 0, 1})
    ->Args({10000, 1, 1})
    ->Args({10000, 1, 2})
    ->Args({100000, 1, 2})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SortElements)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
