#ifndef PLATFORM_LOG_SINKS_H
#define PLATFORM_LOG_SINKS_H

#include <cstdio>
#include <map>
#include <memory>
#include <mutex>

#include <dlt/dlt.h>

#include "platform/log/log.h"

namespace ara::tessel::common::log {

// Formats "time appId context level text", one record a line.
String FormatRecord(const LogRecord& record);

// Standard error, so that the daemon's own standard output stays what it prints for people.
class ConsoleLogSink final : public LogSink {
public:
    void Write(const LogRecord& record) override;

private:
    std::mutex mutex_;  // keeps lines whole
};

class FileLogSink final : public LogSink {
public:
    explicit FileLogSink(const String& path);
    ~FileLogSink() override;
    FileLogSink(const FileLogSink&) = delete;
    FileLogSink& operator=(const FileLogSink&) = delete;

    bool IsOpen() const noexcept { return file_ != nullptr; }
    void Write(const LogRecord& record) override;

private:
    std::mutex mutex_;  // guards file_
    std::FILE* file_;
};

// COVESA DLT: registers the application once and one DLT context per log context, under the
// first four characters of its id.
class DltLogSink final : public LogSink {
public:
    DltLogSink(const String& appId, const String& description);
    ~DltLogSink() override;
    DltLogSink(const DltLogSink&) = delete;
    DltLogSink& operator=(const DltLogSink&) = delete;

    void Write(const LogRecord& record) override;

private:
    std::mutex mutex_;  // guards contexts_
    std::map<String, std::unique_ptr<DltContext>> contexts_;
    bool registered_{false};
};

}  // namespace ara::tessel::common::log

#endif
