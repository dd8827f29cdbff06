#include "ZR/Logger.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace ZR {
namespace {

// The root library sits below the file layer and its seam, so the log file is
// the one file it opens itself. A new log file is its owner's alone,
// whatever the umask; an existing one is appended to as it is.
std::FILE* OpenLogFile(const std::string& path) {
    constexpr mode_t kMode = 0600;
    int fd = -1;
    // The file may be removed between the two opens; a few rounds settle it.
    for (int attempt = 0; fd < 0 && attempt < 8; ++attempt) {
        fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_CLOEXEC, kMode);
        if (fd >= 0) {
            ::fchmod(fd, kMode);
            break;
        }
        if (errno == EINTR) continue;
        if (errno != EEXIST) break;
        fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
        if (fd < 0 && errno != EINTR && errno != ENOENT) break;
    }
    if (fd < 0) return nullptr;
    std::FILE* file = ::fdopen(fd, "a");
    if (!file) ::close(fd);
    return file;
}

}  // namespace

FastLogger logger;

LogLine::LogLine(LogLevel level, const char* format, const char* component,
                 const void* /*reserved*/)
    : mLevel(level), mFormat(format), mComponent(component) {}

void CaptureLogSink::Write(const LogRecord& record) {
    std::lock_guard<std::mutex> lock(mMutex);
    mRecords.push_back(record);
}

std::vector<LogRecord> CaptureLogSink::GetRecords() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mRecords;
}

std::string CaptureLogSink::GetText() const {
    std::lock_guard<std::mutex> lock(mMutex);
    std::string out;
    for (const auto& r : mRecords) out += r.text + "\n";
    return out;
}

void CaptureLogSink::Clear() {
    std::lock_guard<std::mutex> lock(mMutex);
    mRecords.clear();
}

FileLogSink::FileLogSink(const std::string& path) : mFile(OpenLogFile(path)) {}

FileLogSink::~FileLogSink() {
    if (mFile) std::fclose(mFile);
}

void FileLogSink::Write(const LogRecord& record) {
    if (!mFile) return;
    static const char* const kLevels[] = {"INFO", "WARNING", "ERROR"};
    std::lock_guard<std::mutex> lock(mMutex);
    std::fprintf(mFile, "%s ", kLevels[static_cast<int>(record.level)]);
    if (!record.component.empty()) std::fprintf(mFile, "[%s] ", record.component.c_str());
    std::fprintf(mFile, "%s\n", record.text.c_str());
    std::fflush(mFile);
}

FastLogger::LogComposer::~LogComposer() {
    if (mLogger && mLine) mLogger->Emit(*mLine, mArgs);
}

FastLogger::LogComposer& FastLogger::LogComposer::Append(const UniString& text) {
    mArgs.push_back(text.Std());
    return *this;
}
FastLogger::LogComposer& FastLogger::LogComposer::Append(const char* text) {
    mArgs.emplace_back(text ? text : "");
    return *this;
}
FastLogger::LogComposer& FastLogger::LogComposer::Append(int number) {
    mArgs.push_back(std::to_string(number));
    return *this;
}
FastLogger::LogComposer& FastLogger::LogComposer::Append(long long number) {
    mArgs.push_back(std::to_string(number));
    return *this;
}

void FastLogger::Append(const LogLine& line) {
    Emit(line, {});
}

void FastLogger::Append(const LogLine& line, LogComposer& composer) {
    composer.mLogger = this;
    composer.mLine = &line;
}

void FastLogger::AddSink(LogSink* sink) {
    std::lock_guard<std::mutex> lock(mMutex);
    mSinks.push_back(sink);
}

void FastLogger::RemoveSink(LogSink* sink) {
    std::lock_guard<std::mutex> lock(mMutex);
    mSinks.erase(std::remove(mSinks.begin(), mSinks.end(), sink), mSinks.end());
}

void FastLogger::Emit(const LogLine& line, const std::vector<std::string>& args) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mSinks.empty()) return;
    LogRecord record{line.GetLevel(), line.GetComponent() ? line.GetComponent() : "", {}};
    std::size_t next = 0;
    for (const char* p = line.GetFormat(); *p; ++p) {
        if (*p == '%') {
            if (next < args.size()) record.text += args[next];
            ++next;
        } else {
            record.text += *p;
        }
    }
    for (LogSink* sink : mSinks) sink->Write(record);
}

}  // namespace ZR
