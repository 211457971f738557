#include "platform/log/log.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <ctime>
#include <map>
#include <utility>

#include "platform/config/vesk_config_parser.h"
#include "platform/log/sinks.h"

namespace ara::tessel::common::log {

namespace {

struct LimitState {
    std::chrono::steady_clock::time_point lastWritten;
    bool written{false};
    std::uint64_t suppressed{0};
};

// Process-wide logging state behind the static operations of Log.
class LogManager {
public:
    static LogManager& Instance() {
        static LogManager manager;
        return manager;
    }

    void Configure(const String& appId, const String& description, std::uint8_t mode,
                   const String& path) {
        std::vector<std::shared_ptr<LogSink>> sinks;
        if (mode == 0 || (mode & kModeConsole) != 0) {
            sinks.push_back(std::make_shared<ConsoleLogSink>());
        }
        if ((mode & kModeFile) != 0 && !path.empty()) {
            auto file = std::make_shared<FileLogSink>(path);
            if (file->IsOpen()) {
                sinks.push_back(std::move(file));
            } else {
                std::fprintf(stderr, "[ERROR]: Log file %s cannot be opened\n", path.c_str());
            }
        }
        if ((mode & kModeDlt) != 0) {
            sinks.push_back(std::make_shared<DltLogSink>(appId, description));
        }
        std::lock_guard<std::mutex> lock(mutex_);
        appId_ = appId;
        configuredSinks_ = std::move(sinks);
    }

    void AddSink(std::shared_ptr<LogSink> sink) {
        std::lock_guard<std::mutex> lock(mutex_);
        extraSinks_.push_back(std::move(sink));
    }

    void RemoveSink(const std::shared_ptr<LogSink>& sink) {
        std::lock_guard<std::mutex> lock(mutex_);
        extraSinks_.erase(std::remove(extraSinks_.begin(), extraSinks_.end(), sink),
                          extraSinks_.end());
    }

    std::shared_ptr<Log> GetLog(const String& contextId) {
        std::lock_guard<std::mutex> lock(mutex_);
        auto& slot = contexts_[contextId];
        if (slot == nullptr) {
            slot = std::make_shared<Log>(contextId);
        }
        return slot;
    }

    // False when the tag has written a line within its period; the line is then counted.
    bool PassLimit(const String& tag, const LogLimitConfig& limit) {
        if (tag.empty() || limit.periodMs == 0) {
            return true;
        }
        const auto now = std::chrono::steady_clock::now();
        std::lock_guard<std::mutex> lock(mutex_);
        LimitState& state = limits_[tag];
        if (state.written && now - state.lastWritten < std::chrono::milliseconds(limit.periodMs)) {
            ++state.suppressed;
            return false;
        }
        state.written = true;
        state.lastWritten = now;
        return true;
    }

    std::uint64_t Suppressed(const String& tag) {
        std::lock_guard<std::mutex> lock(mutex_);
        const auto it = limits_.find(tag);
        return it == limits_.end() ? 0 : it->second.suppressed;
    }

    void Write(LogRecord record) {
        std::vector<std::shared_ptr<LogSink>> sinks;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            record.appId = appId_;
            sinks = configuredSinks_;
            sinks.insert(sinks.end(), extraSinks_.begin(), extraSinks_.end());
        }
        for (const auto& sink : sinks) {
            sink->Write(record);
        }
    }

private:
    // Before InitLogging: warnings and errors to the console.
    LogManager() : configuredSinks_{std::make_shared<ConsoleLogSink>()} {}

    std::mutex mutex_;  // guards appId_, the sink lists, contexts_ and limits_
    String appId_{"WRDN"};
    std::vector<std::shared_ptr<LogSink>> configuredSinks_;
    std::vector<std::shared_ptr<LogSink>> extraSinks_;
    std::map<String, std::shared_ptr<Log>> contexts_;
    std::map<String, LimitState> limits_;
};

}  // namespace

const char* LogLevelName(LogLevel level) noexcept {
    switch (level) {
        case LogLevel::kOff:
            return "off";
        case LogLevel::kFatal:
            return "fatal";
        case LogLevel::kError:
            return "error";
        case LogLevel::kWarn:
            return "warn";
        case LogLevel::kInfo:
            return "info";
        case LogLevel::kDebug:
            return "debug";
        case LogLevel::kVerbose:
            return "verbose";
    }
    return "unknown";
}

void MemoryLogSink::Write(const LogRecord& record) {
    std::lock_guard<std::mutex> lock(mutex_);
    records_.push_back(record);
}

std::vector<LogRecord> MemoryLogSink::Records() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return records_;
}

bool MemoryLogSink::Contains(LogLevel level, const String& text) const {
    return Count(level, text) > 0;
}

std::size_t MemoryLogSink::Count(LogLevel level, const String& text) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return static_cast<std::size_t>(std::count_if(
        records_.begin(), records_.end(),
        [&](const LogRecord& record) { return record.level == level && record.text == text; }));
}

void MemoryLogSink::Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    records_.clear();
}

LogStream::LogStream(LogStream&& other) noexcept
    : log_(other.log_),
      level_(other.level_),
      enabled_(other.enabled_),
      tag_(std::move(other.tag_)),
      limit_(other.limit_),
      text_(std::move(other.text_)) {
    other.enabled_ = false;
}

LogStream& LogStream::operator<<(std::uint8_t value) {
    return *this << static_cast<unsigned int>(value);
}

LogStream& LogStream::operator<<(std::int8_t value) {
    return *this << static_cast<int>(value);
}

LogStream& LogStream::operator<<(bool value) {
    return *this << (value ? "true" : "false");
}

void LogStream::Flush() {
    if (!enabled_) {
        return;
    }
    enabled_ = false;
    log_->Emit(level_, tag_, limit_, std::move(text_));
}

std::uint8_t SinkMode(const std::vector<String>& names) {
    std::uint8_t mode = 0;
    for (const String& name : names) {
        if (name == "console") {
            mode |= kModeConsole;
        } else if (name == "file") {
            mode |= kModeFile;
        } else if (name == "dlt") {
            mode |= kModeDlt;
        }
    }
    return mode;
}

void Log::InitLogging(const String& appId, const String& description, std::uint8_t level,
                      std::uint8_t mode, const String& path) {
    String filePath = path;
    if (const auto config = veskConfigParser::VeskConfigParser().GetLogConfig()) {
        level = config->level.value_or(level);
        if (config->sinks) {
            mode = SinkMode(*config->sinks);
        }
        filePath = config->filePath.value_or(filePath);
    }
    if (level > static_cast<std::uint8_t>(LogLevel::kVerbose)) {
        level = static_cast<std::uint8_t>(LogLevel::kVerbose);
    }
    LogManager::Instance().Configure(appId, description, mode, filePath);
    level_.store(level);
}

void Log::InitLog(const String& /*appId*/, const String& contextId, const String& /*description*/) {
    LogManager::Instance().GetLog(contextId);
}

std::shared_ptr<Log> Log::GetLog(const String& contextId) {
    return LogManager::Instance().GetLog(contextId);
}

void Log::AddSink(std::shared_ptr<LogSink> sink) {
    LogManager::Instance().AddSink(std::move(sink));
}

void Log::RemoveSink(const std::shared_ptr<LogSink>& sink) {
    LogManager::Instance().RemoveSink(sink);
}

// Before InitLogging: warnings and errors.
std::atomic<std::uint8_t> Log::level_{static_cast<std::uint8_t>(LogLevel::kWarn)};

void Log::SetLevel(LogLevel level) {
    level_.store(static_cast<std::uint8_t>(level));
}

LogLevel Log::GetLevel() {
    return static_cast<LogLevel>(level_.load());
}

std::uint64_t Log::SuppressedCount(const String& tag) {
    return LogManager::Instance().Suppressed(tag);
}

Log::Log(String contextId) : contextId_(std::move(contextId)) {}

LogStream Log::LogFatal(const String& tag, LogLimitConfig limit) const {
    return LogStream(this, LogLevel::kFatal, tag, limit);
}
LogStream Log::LogError(const String& tag, LogLimitConfig limit) const {
    return LogStream(this, LogLevel::kError, tag, limit);
}
LogStream Log::LogWarn(const String& tag, LogLimitConfig limit) const {
    return LogStream(this, LogLevel::kWarn, tag, limit);
}
LogStream Log::LogInfo(const String& tag, LogLimitConfig limit) const {
    return LogStream(this, LogLevel::kInfo, tag, limit);
}
LogStream Log::LogDebug(const String& tag, LogLimitConfig limit) const {
    return LogStream(this, LogLevel::kDebug, tag, limit);
}
LogStream Log::LogVerbose(const String& tag, LogLimitConfig limit) const {
    return LogStream(this, LogLevel::kVerbose, tag, limit);
}

void Log::Emit(LogLevel level, const String& tag, const LogLimitConfig& limit, String text) const {
    LogManager& manager = LogManager::Instance();
    if (!manager.PassLimit(tag, limit)) {
        return;
    }
    LogRecord record;
    record.time = std::chrono::system_clock::now();
    record.contextId = contextId_;
    record.level = level;
    record.text = std::move(text);
    manager.Write(std::move(record));
}

}  // namespace ara::tessel::common::log
