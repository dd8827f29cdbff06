// The registry over 1,000 and 10,000 cache folders, each measured against a
// baseline in the same run: reading the same "CacheInfo.xml" files raw.
//
//   cmake --preset release && cmake --build --preset release
//   ./build/release/Benchmarks/RegistryBenchmark

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <pugixml.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "KRClient/CachedProjectInfo.h"
#include "KRClient/KRClient.h"
#include "KRClient/RegisteredProjects.h"

namespace {

namespace fs = std::filesystem;

// One data folder per size, made once for the whole run.
struct Corpus {
    std::string root;
    std::vector<std::string> files;
    std::vector<IO::Location> locations;  // project locations of every record
};

// The corpora's folders go when the run ends.
struct Corpora {
    std::map<int, std::unique_ptr<Corpus>> bySize;
    ~Corpora() {
        for (auto& [size, corpus] : bySize) {
            std::error_code ec;
            if (corpus) fs::remove_all(corpus->root, ec);
        }
    }
};

const Corpus& GetCorpus(int count) {
    static Corpora all;
    auto& corpora = all.bySize;
    auto& slot = corpora[count];
    if (slot) return *slot;
    slot = std::make_unique<Corpus>();
    Corpus& c = *slot;
    std::string tmpl = (fs::temp_directory_path() / "krc-bench-XXXXXX").string();
    c.root = mkdtemp(tmpl.data());
    ZR::PagedArray<ZR::UniString, 8> args{ZR::UniString("BaseFolder=" + c.root + "/base")};
    KRC::InitKRClient(args);

    // One record written by the library, then copied with other keys: the
    // corpus is made fast and every file is of the real form.
    IO::Location main(ZR::UniString(c.root + "/Projects"));
    KRC::ProjectConnectionInfo first;
    first.SetServerUrl("https://srv.example.com");
    first.SetProjectPath("/Folder/Project-0");
    first.SetUserName("user0");
    KRC::CachedProjectInfo model(first, main);
    model.BeginUpdate();
    model.SetUserName("User Zero");
    model.SetUserId("uid");
    model.SetSessionId("sid");
    model.SetProjectId("pid");
    model.SetPermissions({"read", "write", "comment"});
    model.EndUpdate();
    std::ifstream in(model.GetCacheFolderLocation().ToPath().Std() + "/CacheInfo.xml");
    std::stringstream ss;
    ss << in.rdbuf();
    const std::string text = ss.str();
    fs::remove_all(model.GetCacheFolderLocation().ToPath().Std());

    auto replace = [](std::string s, const std::string& from, const std::string& to) {
        for (std::size_t at = s.find(from); at != std::string::npos;
             at = s.find(from, at + to.size()))
            s.replace(at, from.size(), to);
        return s;
    };
    for (int i = 0; i < count; ++i) {
        std::string folder = c.root + "/Projects/cache-" + std::to_string(i);
        fs::create_directories(folder);
        std::string path = "/Folder/Project-" + std::to_string(i);
        std::string user = "user" + std::to_string(i % 50);
        std::string body = replace(replace(text, "/Folder/Project-0", path), "<LoginName>user0<",
                                   "<LoginName>" + user + "<");
        body = replace(body, "<ProjectName>Project-0<",
                       "<ProjectName>Project-" + std::to_string(i) + "<");
        std::ofstream(folder + "/CacheInfo.xml") << body;
        c.files.push_back(folder + "/CacheInfo.xml");
        KRC::ProjectConnectionInfo info;
        info.SetServerUrl("https://srv.example.com");
        info.SetProjectPath(ZR::UniString(path));
        info.SetUserName(ZR::UniString(user));
        IO::Location location;
        c.locations.push_back(info.ToKerrowLocation(&location));
    }
    return c;
}

void InitRegistry(const Corpus& c) {
    KRC::RegisteredProjects::ResetForTesting();
    KRC::RegisteredProjects::Init(IO::Location(ZR::UniString(c.root)), "Projects", "Libraries");
}

// Baselines: the same files read as bytes, and read and parsed.
void BM_Baseline_ReadFilesRaw(benchmark::State& state) {
    const Corpus& c = GetCorpus(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        std::size_t total = 0;
        for (const auto& f : c.files) {
            std::ifstream in(f, std::ios::binary);
            std::string s((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
            total += s.size();
        }
        benchmark::DoNotOptimize(total);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_Baseline_ParseFilesRaw(benchmark::State& state) {
    const Corpus& c = GetCorpus(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        std::size_t total = 0;
        for (const auto& f : c.files) {
            pugi::xml_document doc;
            doc.load_file(f.c_str());
            total += std::distance(doc.document_element().begin(), doc.document_element().end());
        }
        benchmark::DoNotOptimize(total);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_Registry_InitCold(benchmark::State& state) {
    const Corpus& c = GetCorpus(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        InitRegistry(c);
        benchmark::DoNotOptimize(KRC::registeredProjects.GetCacheDataFolderNum());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_Registry_LookUp(benchmark::State& state) {
    const Corpus& c = GetCorpus(static_cast<int>(state.range(0)));
    InitRegistry(c);
    std::unique_ptr<KRC::RegisteredProjects::Synchronizer> lock;
    if (state.range(1)) lock = std::make_unique<KRC::RegisteredProjects::Synchronizer>();
    std::size_t i = 0;
    for (auto _ : state) {
        // Spread over the list: a look-up is a walk, so its place matters.
        const IO::Location& location = c.locations[(i++ * 7919) % c.locations.size()];
        benchmark::DoNotOptimize(KRC::registeredProjects.GetCachedProjectInfo(location));
    }
    state.SetLabel(state.range(1) ? "lock held" : "no lock");
}

void BM_Registry_IterateAll(benchmark::State& state) {
    const Corpus& c = GetCorpus(static_cast<int>(state.range(0)));
    InitRegistry(c);
    for (auto _ : state) {
        std::size_t n = 0;
        for (KRC::RegisteredProjects::ProjectConstIterator it("", "", nullptr); it != nullptr; ++it)
            ++n;
        benchmark::DoNotOptimize(n);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(BM_Baseline_ReadFilesRaw)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Baseline_ParseFilesRaw)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Registry_InitCold)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Registry_LookUp)
    ->Args({1000, 0})
    ->Args({1000, 1})
    ->Args({10000, 0})
    ->Args({10000, 1})
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Registry_IterateAll)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
