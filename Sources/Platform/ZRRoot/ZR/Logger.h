#pragma once
/// @file
/// Log lines are declared once from a fixed format in which each '%' stands for
/// one argument. A record is composed by a LogComposer and ends when the composer
/// goes out of scope. With no sink installed the logger is silent.

#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "ZR/UniString.h"
#include "ZR/ZRRootExport.h"

namespace ZR {

enum class LogLevel { Info, Warning, Error };

class ZRROOT_EXPORT LogLine {
public:
    LogLine(LogLevel level, const char* format, const char* component = nullptr,
            const void* reserved = nullptr);
    LogLevel GetLevel() const { return mLevel; }
    const char* GetFormat() const { return mFormat; }
    const char* GetComponent() const { return mComponent; }

private:
    LogLevel mLevel;
    const char* mFormat;
    const char* mComponent;
};

class ZRROOT_EXPORT InfoLogLine : public LogLine {
public:
    InfoLogLine(const char* format, const char* component = nullptr, const void* reserved = nullptr)
        : LogLine(LogLevel::Info, format, component, reserved) {}
};
class ZRROOT_EXPORT WarningLogLine : public LogLine {
public:
    WarningLogLine(const char* format, const char* component = nullptr,
                   const void* reserved = nullptr)
        : LogLine(LogLevel::Warning, format, component, reserved) {}
};
class ZRROOT_EXPORT ErrorLogLine : public LogLine {
public:
    ErrorLogLine(const char* format, const char* component = nullptr,
                 const void* reserved = nullptr)
        : LogLine(LogLevel::Error, format, component, reserved) {}
};

struct ZRROOT_EXPORT LogRecord {
    LogLevel level;
    std::string component;  ///< empty if the line has none
    std::string text;       ///< the format with its arguments put in
};

class ZRROOT_EXPORT LogSink {
public:
    virtual ~LogSink() = default;
    virtual void Write(const LogRecord& record) = 0;
};

/// Keeps every record in memory; for tests.
class ZRROOT_EXPORT CaptureLogSink : public LogSink {
public:
    void Write(const LogRecord& record) override;
    std::vector<LogRecord> GetRecords() const;
    std::string GetText() const;  ///< all texts, one line each
    void Clear();

private:
    mutable std::mutex mMutex;
    std::vector<LogRecord> mRecords;
};

/// Appends one line per record to a file: "LEVEL [component] text".
class ZRROOT_EXPORT FileLogSink : public LogSink {
public:
    explicit FileLogSink(const std::string& path);
    ~FileLogSink() override;
    bool IsOpen() const { return mFile != nullptr; }
    void Write(const LogRecord& record) override;

private:
    std::mutex mMutex;
    std::FILE* mFile = nullptr;
};

class ZRROOT_EXPORT FastLogger {
public:
    class LogComposer {
    public:
        LogComposer() = default;
        LogComposer(const LogComposer&) = delete;
        LogComposer& operator=(const LogComposer&) = delete;
        ~LogComposer();

        LogComposer& Append(const UniString& text);
        LogComposer& Append(const char* text);
        LogComposer& Append(int number);
        LogComposer& Append(long long number);

    private:
        friend class FastLogger;
        FastLogger* mLogger = nullptr;
        const LogLine* mLine = nullptr;
        std::vector<std::string> mArgs;
    };

    void Append(const LogLine& line);
    void Append(const LogLine& line, LogComposer& composer);

    void AddSink(LogSink* sink);
    void RemoveSink(LogSink* sink);

private:
    void Emit(const LogLine& line, const std::vector<std::string>& args);
    std::mutex mMutex;
    std::vector<LogSink*> mSinks;
};

extern ZRROOT_EXPORT FastLogger logger;

/// Installs a sink for the life of the object.
class ZRROOT_EXPORT ScopedLogSink {
public:
    explicit ScopedLogSink(LogSink& sink) : mSink(sink) { logger.AddSink(&mSink); }
    ~ScopedLogSink() { logger.RemoveSink(&mSink); }
    ScopedLogSink(const ScopedLogSink&) = delete;
    ScopedLogSink& operator=(const ScopedLogSink&) = delete;

private:
    LogSink& mSink;
};

}  // namespace ZR
