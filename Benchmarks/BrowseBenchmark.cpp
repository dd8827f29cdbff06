// Browsing at scale. Each figure comes with a baseline measured side by side
// in the same run, reported as a ratio counter:
//   BM_LoadFolderTree      a scenario of 100,000 nested folders loaded;
//                          baseline: parsing its text into a plain document.
//   BM_CollectPartialTree  a partial tree whose queried folder has 100,000
//                          sub-folders collected into result objects;
//                          baseline: the same folder objects built from a
//                          prepared list, the least any reader does.
//   BM_TasksInFlight       1,000 data query tasks run and delivered, half of
//                          whose observers changed their task id and half
//                          went before delivery; baseline: the same 1,000
//                          queries collected directly, without the frame.
//
//   KRC_BENCH=BrowseBenchmark scripts/bench.sh

#include <benchmark/benchmark.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "BenchSupport.h"
#include "Emulator/Service.h"
#include "KRCB/AuthenticatedClientConnection.h"
#include "KRCB/DataQuery.h"
#include "KRClient/UserInterface/DataQueryTask.h"
#include "ZR/MessageLoop.h"

namespace {

using KRCB::Management::Entities::ProjectFolder;
const char* const kUrl = "https://portal.example";

// count folders: 100 at the top, the rest spread 10 deep below them, or
// (flat) all under /Big.
std::string FolderScenario(int count, bool flat) {
    std::string text = std::string(R"({"servers": [{"url": ")") + kUrl +
                       R"(", "users": [{"login": "anna", "password": "pw"}], "folders": [)";
    for (int i = 0; i < count; ++i) {
        if (i > 0) text += ", ";
        std::string path;
        if (flat) {
            path = "/Big/F" + std::to_string(i);
        } else {
            path = "/T" + std::to_string(i % 100);
            for (int n = i / 100, level = 0; n > 0 && level < 10; n /= 4, ++level)
                path += "/L" + std::to_string(n % 4);
            path += "/F" + std::to_string(i);
        }
        text += "\"" + path + "\"";
    }
    return text + "]}]}";
}

void BM_LoadFolderTree(benchmark::State& state) {
    const std::string text = FolderScenario(static_cast<int>(state.range(0)), false);
    for (auto _ : state) benchmark::DoNotOptimize(Emulator::Service::FromScenarioText(text));
    bench::ReportRatio(
        state, "parse",
        [&](std::int64_t) { benchmark::DoNotOptimize(Emulator::Service::FromScenarioText(text)); },
        [&](std::int64_t) { benchmark::DoNotOptimize(nlohmann::json::parse(text)); }, 1, 2);
}

struct Installed {
    explicit Installed(const std::string& text)
        : service(Emulator::Service::FromScenarioText(text)) {
        service->Install();
        connection = KRCB::Management::AuthenticatedClientConnectionFactory::Create(
            kUrl, "anna", "pw", false, false, 0);
    }
    ~Installed() { service->Uninstall(); }
    std::unique_ptr<Emulator::Service> service;
    ZR::Ref<KRCB::Management::AuthenticatedClientConnection> connection;
};

ZR::Ref<KRCB::DataQuery::PartialFolderTreeResult> BigTree() {
    return ZR::Ref<KRCB::DataQuery::PartialFolderTreeResult>::Make(
        "/Big", true, false, false, KRCB::Management::QueriedFolderResources, false, false, false,
        true, false);
}

void BM_CollectPartialTree(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    Installed server(FolderScenario(count, true));
    std::vector<ProjectFolder::Fields> prepared;
    for (int i = 0; i < count; ++i) {
        ProjectFolder::Fields fields;
        fields.id = ZR::UniString("folder-" + std::to_string(i));
        fields.path = ZR::UniString("/Big/F" + std::to_string(i));
        fields.parentFolderId = "big";
        prepared.push_back(fields);
    }
    auto build = [&] {
        ProjectFolder::Fields top;
        top.id = "big";
        top.path = "/Big";
        auto folder = ZR::Ref<ProjectFolder>::Make(top);
        for (const auto& fields : prepared)
            folder->AppendSubFolder(ZR::Ref<ProjectFolder>::Make(fields));
        return folder;
    };
    for (auto _ : state) {
        auto tree = BigTree();
        tree->Collect(server.connection);
        benchmark::DoNotOptimize(tree->GetFolderCount());
    }
    bench::ReportRatio(
        state, "build",
        [&](std::int64_t) {
            auto tree = BigTree();
            tree->Collect(server.connection);
        },
        [&](std::int64_t) { benchmark::DoNotOptimize(build()); }, 1, 2);
    state.counters["folders"] = static_cast<double>(count + 2);
}

class Observer : public KRC::UI::DataQuery::IDataQueryEventObserver {
public:
    void OnDataQuerySucceeded(ZR::Ref<KRCB::DataQuery::DataQueryResult>&) override { ++heard; }
    void OnDataQueryFailed() override {}
    void OnDataQueryInterrupted() override {}
    unsigned int GetTaskId() override { return id; }
    unsigned int id = 0;
    int heard = 0;
};

ZR::Ref<KRCB::DataQuery::DataQueryResult> SmallQuery() {
    return ZR::Ref<KRCB::DataQuery::FolderWithChildFoldersResult>::Make("projectRoot");
}

// Runs count tasks on two workers; a quarter keep their id, a quarter change
// it, half of the observers go before the loop delivers.
int RunTasks(const Installed& server, int count) {
    std::vector<std::unique_ptr<Observer>> observers;
    std::vector<std::unique_ptr<KRC::UI::DataQuery::DataQueryTask>> tasks;
    for (int i = 0; i < count; ++i) {
        observers.push_back(std::make_unique<Observer>());
        observers.back()->id = static_cast<unsigned int>(i);
        auto connection = server.connection;
        tasks.push_back(std::make_unique<KRC::UI::DataQuery::DataQueryTask>(
            connection, static_cast<unsigned int>(i), observers.back().get(), SmallQuery()));
    }
    auto work = [&](int from) {
        for (int i = from; i < count; i += 2) tasks[i]->Run();
    };
    std::thread a(work, 0), b(work, 1);
    a.join();
    b.join();
    for (int i = 0; i < count; ++i) {
        if (i % 2 == 1)
            observers[i].reset();
        else if (i % 4 == 2)
            observers[i]->id += 100000;
    }
    ZR::MessageLoop::RunPending();
    int heard = 0;
    for (const auto& o : observers)
        if (o) heard += o->heard;
    return heard;
}

void BM_TasksInFlight(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    Installed server(FolderScenario(10, true));
    ZR::MessageLoop::Scope loop;
    for (auto _ : state) benchmark::DoNotOptimize(RunTasks(server, count));
    bench::ReportRatio(
        state, "direct", [&](std::int64_t) { benchmark::DoNotOptimize(RunTasks(server, count)); },
        [&](std::int64_t) {
            for (int i = 0; i < count; ++i) SmallQuery()->Collect(server.connection);
        },
        1, 2);
    state.counters["delivered"] = RunTasks(server, count);
}

BENCHMARK(BM_LoadFolderTree)->Arg(100000)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_CollectPartialTree)->Arg(100000)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_TasksInFlight)->Arg(1000)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
