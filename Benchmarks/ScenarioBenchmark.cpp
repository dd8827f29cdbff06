// Loading scenario files of 1,000, 10,000 and 100,000 entries of one kind
// (servers, users, projects, folders, sessions). Each figure comes with a
// baseline measured side by side in the same run, reported as the counter
// "ratio_parse": the load's time over the time of parsing the same text into
// a plain JSON document, the least any reader of the file does. A load that
// grows faster than its input shows as a ratio that grows with the count.
//
//   scripts/bench.sh --benchmark_filter=BM_LoadScenario

#include <benchmark/benchmark.h>

#include <nlohmann/json.hpp>
#include <string>

#include "BenchSupport.h"
#include "Emulator/Service.h"

namespace {

enum Kind { kServers, kUsers, kProjects, kFolders, kSessions };
const char* const kKindNames[] = {"servers", "users", "projects", "folders", "sessions"};

// One server (or count of them) with count entries of the kind.
std::string MakeScenario(Kind kind, int count) {
    std::string text = R"({"servers": [)";
    const auto each = [&](const auto& entry) {
        for (int i = 0; i < count; ++i) {
            if (i > 0) text += ", ";
            text += entry(std::to_string(i));
        }
    };
    if (kind == kServers) {
        each([](const std::string& i) { return R"({"url": "https://s)" + i + R"(.example"})"; });
        return text + "]}";
    }
    // Sessions in projects of 100 each: a project has at most 32767 members.
    const int users = kind == kUsers ? count : kind == kSessions ? 100 : 1;
    text += R"({"url": "https://portal.example", "users": [)";
    for (int i = 0; i < users; ++i)
        text +=
            (i > 0 ? R"(, {"login": "user)" : R"({"login": "user)") + std::to_string(i) + R"("})";
    text += "]";
    if (kind == kFolders) {
        text += R"(, "folders": [)";
        each([](const std::string& i) { return R"("/Folder)" + i + R"(")"; });
        text += "]";
    } else if (kind == kProjects) {
        text += R"(, "projects": [)";
        each([](const std::string& i) { return R"({"path": "/F/Project)" + i + R"("})"; });
        text += "]";
    } else if (kind == kSessions) {
        text += R"(, "projects": [)";
        for (int p = 0; p < count / 100; ++p) {
            text += (p > 0 ? R"(, {"path": "/F/Shared)" : R"({"path": "/F/Shared)") +
                    std::to_string(p) + R"(", "sessions": [)";
            for (int i = 0; i < 100; ++i)
                text += (i > 0 ? R"(, {"user": "user)" : R"({"user": "user)") + std::to_string(i) +
                        R"(", "computer": "PC-)" + std::to_string(p * 100 + i) + R"("})";
            text += "]}";
        }
        text += "]";
    }
    return text + "}]}";
}

void BM_LoadScenario(benchmark::State& state) {
    const Kind kind = static_cast<Kind>(state.range(0));
    const int count = static_cast<int>(state.range(1));
    const std::string text = MakeScenario(kind, count);
    state.SetLabel(kKindNames[kind]);
    for (auto _ : state) benchmark::DoNotOptimize(Emulator::Service::FromScenarioText(text));
    bench::ReportRatio(
        state, "parse",
        [&](std::int64_t) { benchmark::DoNotOptimize(Emulator::Service::FromScenarioText(text)); },
        [&](std::int64_t) { benchmark::DoNotOptimize(nlohmann::json::parse(text)); }, 1, 2);
    state.counters["bytes"] = static_cast<double>(text.size());
}

void LoadArguments(benchmark::internal::Benchmark* b) {
    for (int kind = kServers; kind <= kSessions; ++kind)
        for (int count : {1000, 10000, 100000}) b->Args({kind, count});
}

BENCHMARK(BM_LoadScenario)->Apply(LoadArguments)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
