#include "platform/log/sinks.h"

#include <ctime>

namespace ara::tessel::common::log {

namespace {
constexpr std::size_t kDltIdLength = 4;
}

String FormatRecord(const LogRecord& record) {
    const auto seconds = std::chrono::system_clock::to_time_t(record.time);
    const auto millis =
        std::chrono::duration_cast<std::chrono::milliseconds>(record.time.time_since_epoch())
            .count() %
        1000;
    std::tm local{};
    localtime_r(&seconds, &local);
    char stamp[32];
    const std::size_t used = std::strftime(stamp, sizeof(stamp), "%Y-%m-%d %H:%M:%S", &local);
    String line(stamp, used);
    char fraction[8];
    std::snprintf(fraction, sizeof(fraction), ".%03d", static_cast<int>(millis));
    line += fraction;
    line += ' ';
    line += record.appId;
    line += ' ';
    line += record.contextId;
    line += " [";
    line += LogLevelName(record.level);
    line += "] ";
    line += record.text;
    return line;
}

void ConsoleLogSink::Write(const LogRecord& record) {
    const String line = FormatRecord(record);
    std::lock_guard<std::mutex> lock(mutex_);
    std::fprintf(stderr, "%s\n", line.c_str());
}

FileLogSink::FileLogSink(const String& path) : file_(std::fopen(path.c_str(), "a")) {}

FileLogSink::~FileLogSink() {
    if (file_ != nullptr) {
        std::fclose(file_);
    }
}

void FileLogSink::Write(const LogRecord& record) {
    const String line = FormatRecord(record);
    std::lock_guard<std::mutex> lock(mutex_);
    if (file_ != nullptr) {
        std::fprintf(file_, "%s\n", line.c_str());
        std::fflush(file_);
    }
}

DltLogSink::DltLogSink(const String& appId, const String& description) {
    registered_ = dlt_register_app(appId.substr(0, kDltIdLength).c_str(), description.c_str()) ==
                  DLT_RETURN_OK;
}

DltLogSink::~DltLogSink() {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& entry : contexts_) {
        dlt_unregister_context(entry.second.get());
    }
    contexts_.clear();
    if (registered_) {
        dlt_unregister_app();
    }
}

void DltLogSink::Write(const LogRecord& record) {
    if (!registered_) {
        return;
    }
    const String id = record.contextId.substr(0, kDltIdLength);
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = contexts_.find(id);
    if (it == contexts_.end()) {
        auto context = std::make_unique<DltContext>();
        if (dlt_register_context(context.get(), id.c_str(), record.contextId.c_str()) !=
            DLT_RETURN_OK) {
            return;
        }
        it = contexts_.emplace(id, std::move(context)).first;
    }
    // DLT's levels carry the same numbers as ours.
    dlt_log_string(it->second.get(), static_cast<DltLogLevelType>(record.level),
                   record.text.c_str());
}

}  // namespace ara::tessel::common::log
