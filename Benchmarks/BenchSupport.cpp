#include "BenchSupport.h"

#include <fcntl.h>
#include <malloc.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>

#include "KRClient/CachedProjectInfo.h"
#include "KRClient/KRClient.h"
#include "KRClient/RegisteredProjects.h"

// Heap counting at the allocator itself, so that what pugixml takes with
// malloc counts as much as what C++ takes with new.
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);
void __libc_free(void*);
}

namespace {
std::atomic<std::int64_t> gAllocations{0};
std::atomic<std::int64_t> gLiveBytes{0};
std::atomic<std::int64_t> gPeakBytes{0};

void* Counted(void* p) {
    if (p) {
        gAllocations.fetch_add(1, std::memory_order_relaxed);
        std::int64_t live = gLiveBytes.fetch_add(static_cast<std::int64_t>(malloc_usable_size(p)),
                                                 std::memory_order_relaxed) +
                            static_cast<std::int64_t>(malloc_usable_size(p));
        std::int64_t peak = gPeakBytes.load(std::memory_order_relaxed);
        while (live > peak &&
               !gPeakBytes.compare_exchange_weak(peak, live, std::memory_order_relaxed)) {
        }
    }
    return p;
}
void Uncount(void* p) {
    if (p)
        gLiveBytes.fetch_sub(static_cast<std::int64_t>(malloc_usable_size(p)),
                             std::memory_order_relaxed);
}
}  // namespace

extern "C" {
void* malloc(size_t n) {
    return Counted(__libc_malloc(n));
}
void* calloc(size_t n, size_t size) {
    return Counted(__libc_calloc(n, size));
}
void* realloc(void* p, size_t n) {
    Uncount(p);
    void* q = __libc_realloc(p, n);
    if (!q && p && n) {
        // Failed: the old block stays.
        gLiveBytes.fetch_add(static_cast<std::int64_t>(malloc_usable_size(p)),
                             std::memory_order_relaxed);
        return nullptr;
    }
    return Counted(q);
}
void free(void* p) {
    Uncount(p);
    __libc_free(p);
}
void* memalign(size_t alignment, size_t n) {
    return Counted(__libc_memalign(alignment, n));
}
void* aligned_alloc(size_t alignment, size_t n) {
    return Counted(__libc_memalign(alignment, n));
}
int posix_memalign(void** out, size_t alignment, size_t n) {
    void* p = Counted(__libc_memalign(alignment, n));
    if (!p) return ENOMEM;
    *out = p;
    return 0;
}
}

namespace bench {

namespace fs = std::filesystem;

HeapCount GetHeapCount() {
    return {gAllocations.load(std::memory_order_relaxed),
            gLiveBytes.load(std::memory_order_relaxed), gPeakBytes.load(std::memory_order_relaxed)};
}

void ResetHeapPeak() {
    gPeakBytes.store(gLiveBytes.load(std::memory_order_relaxed), std::memory_order_relaxed);
}

namespace {

struct Corpora {
    std::map<int, std::unique_ptr<Corpus>> bySize;
    ~Corpora() {
        for (auto& [size, corpus] : bySize) {
            std::error_code ec;
            if (corpus) fs::remove_all(corpus->root, ec);
        }
    }
};

std::string Replace(std::string s, const std::string& from, const std::string& to) {
    for (std::size_t at = s.find(from); at != std::string::npos; at = s.find(from, at + to.size()))
        s.replace(at, from.size(), to);
    return s;
}

}  // namespace

const Corpus& GetCorpus(int count) {
    static Corpora all;
    auto& slot = all.bySize[count];
    if (slot) return *slot;
    slot = std::make_unique<Corpus>();
    Corpus& c = *slot;
    std::string tmpl = (fs::temp_directory_path() / "krc-bench-XXXXXX").string();
    c.root = mkdtemp(tmpl.data());
    c.projects = c.root + "/Projects";
    c.server = "https://srv.example.com";
    static bool started = false;
    if (!started) {
        ZR::PagedArray<ZR::UniString, 8> args{ZR::UniString("BaseFolder=" + c.root + "/base")};
        KRC::InitKRClient(args);
        started = true;
    }

    IO::Location main(ZR::UniString(c.projects));
    KRC::ProjectConnectionInfo first;
    first.SetServerUrl(ZR::UniString(c.server));
    first.SetProjectPath("/Folder/Project-0");
    first.SetUserName("User0");
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

    for (int i = 0; i < count; ++i) {
        // Named as the library names them: 32 hex digits.
        char name[40];
        std::snprintf(name, sizeof name, "%032x", static_cast<unsigned>(i) * 2654435761u);
        std::string folder = c.projects + "/" + name;
        fs::create_directories(folder);
        std::string path = "/Folder/Project-" + std::to_string(i);
        std::string user = "User" + std::to_string(i % 50);
        std::string body = Replace(text, "/Folder/Project-0", path);
        body = Replace(body, "<LoginName>User0<", "<LoginName>" + user + "<");
        body = Replace(body, "<ProjectName>Project-0<",
                       "<ProjectName>Project-" + std::to_string(i) + "<");
        std::ofstream(folder + "/CacheInfo.xml") << body;
        c.files.push_back(folder + "/CacheInfo.xml");
        c.paths.push_back(path);
        c.users.push_back(user);
        KRC::ProjectConnectionInfo info;
        info.SetServerUrl(ZR::UniString(c.server));
        info.SetProjectPath(ZR::UniString(path));
        info.SetUserName(ZR::UniString(user));
        IO::Location location;
        c.locations.push_back(info.ToKerrowLocation(&location));
    }
    std::vector<std::string> sorted = c.files;
    std::sort(sorted.begin(), sorted.end());
    if (sorted != c.files) {
        // Keep the corpus lists in the walk's (name) order.
        std::vector<std::size_t> order(c.files.size());
        for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
        std::sort(order.begin(), order.end(),
                  [&](std::size_t a, std::size_t b) { return c.files[a] < c.files[b]; });
        Corpus ordered;
        for (std::size_t i : order) {
            ordered.files.push_back(c.files[i]);
            ordered.paths.push_back(c.paths[i]);
            ordered.users.push_back(c.users[i]);
            ordered.locations.push_back(c.locations[i]);
        }
        c.files = std::move(ordered.files);
        c.paths = std::move(ordered.paths);
        c.users = std::move(ordered.users);
        c.locations = std::move(ordered.locations);
    }
    return c;
}

void InitRegistry(const Corpus& corpus) {
    KRC::RegisteredProjects::ResetForTesting();
    KRC::RegisteredProjects::Init(IO::Location(ZR::UniString(corpus.root)), "Projects",
                                  "Libraries");
}

CountingEnv::CountingEnv() : previous(IO::SetEnv(this)) {}
CountingEnv::~CountingEnv() {
    IO::SetEnv(previous);
}
int CountingEnv::Open(const char* path, int flags, mode_t mode) {
    ++calls;
    return Env::Open(path, flags, mode);
}
ssize_t CountingEnv::Read(int fd, void* buffer, std::size_t length) {
    ++calls;
    return Env::Read(fd, buffer, length);
}
int CountingEnv::Close(int fd) {
    ++calls;
    return Env::Close(fd);
}
int CountingEnv::Stat(const char* path, struct stat* st) {
    ++calls;
    return Env::Stat(path, st);
}
int CountingEnv::Lstat(const char* path, struct stat* st) {
    ++calls;
    return Env::Lstat(path, st);
}
int CountingEnv::Fstat(int fd, struct stat* st) {
    ++calls;
    return Env::Fstat(fd, st);
}
int CountingEnv::Lock(int fd, int command, struct flock* lock) {
    ++calls;
    return Env::Lock(fd, command, lock);
}
int CountingEnv::Advise(int fd, off_t offset, off_t length, int advice) {
    ++calls;
    return Env::Advise(fd, offset, length, advice);
}
int CountingEnv::ListFolder(const char* path, std::vector<IO::FolderEntry>* entries) {
    // opendir, getdents until the end, closedir: three calls for a listing.
    calls += 3;
    return Env::ListFolder(path, entries);
}
ssize_t CountingEnv::Write(int fd, const void* data, std::size_t length) {
    ++calls;
    return Env::Write(fd, data, length);
}
int CountingEnv::Rename(const char* from, const char* to) {
    ++calls;
    return Env::Rename(from, to);
}
int CountingEnv::Unlink(const char* path) {
    ++calls;
    return Env::Unlink(path);
}
int CountingEnv::Mkdir(const char* path, mode_t mode) {
    ++calls;
    return Env::Mkdir(path, mode);
}
int CountingEnv::Chmod(const char* path, mode_t mode) {
    ++calls;
    return Env::Chmod(path, mode);
}
int CountingEnv::Fchmod(int fd, mode_t mode) {
    ++calls;
    return Env::Fchmod(fd, mode);
}
int CountingEnv::Fsync(int fd) {
    ++calls;
    return Env::Fsync(fd);
}

void DropFromPageCache(const std::vector<std::string>& files) {
    for (const std::string& file : files) {
        int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) continue;
        ::posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
        ::close(fd);
    }
}

}  // namespace bench
