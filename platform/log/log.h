#ifndef PLATFORM_LOG_LOG_H
#define PLATFORM_LOG_LOG_H

#include <atomic>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <sstream>
#include <string_view>
#include <type_traits>
#include <vector>

#include "platform/core/string.h"

namespace ara::tessel::common::log {

using ara::core::String;

// Numbers as the platform uses them: 0 off, 1 fatal ... 6 verbose.
enum class LogLevel : std::uint8_t {
    kOff = 0,
    kFatal = 1,
    kError = 2,
    kWarn = 3,
    kInfo = 4,
    kDebug = 5,
    kVerbose = 6,
};

// Sink selection for InitLogging. Mode 0 means the console alone; otherwise a bit set.
enum LogMode : std::uint8_t {
    kModeConsole = 0x01,
    kModeFile = 0x02,
    kModeDlt = 0x04,
};

// The mode of the sink names that vesk.json's "Log" section lists ("console", "file", "dlt");
// an unknown name selects nothing.
std::uint8_t SinkMode(const std::vector<String>& names);

const char* LogLevelName(LogLevel level) noexcept;

// A tagged line is written at most once per period; lines within the period are counted as
// suppressed. An empty tag is never limited.
struct LogLimitConfig {
    static constexpr std::uint32_t kDefaultPeriodMs = 500;
    std::uint32_t periodMs{kDefaultPeriodMs};
};

struct LogRecord {
    std::chrono::system_clock::time_point time;
    String appId;
    String contextId;
    LogLevel level{LogLevel::kInfo};
    String text;
};

class LogSink {
public:
    virtual ~LogSink() = default;
    virtual void Write(const LogRecord& record) = 0;
};

// Keeps every record in memory; tests read it.
class MemoryLogSink final : public LogSink {
public:
    void Write(const LogRecord& record) override;
    std::vector<LogRecord> Records() const;
    // True when a record of that level has exactly that text.
    bool Contains(LogLevel level, const String& text) const;
    std::size_t Count(LogLevel level, const String& text) const;
    void Clear();

private:
    mutable std::mutex mutex_;  // guards records_
    std::vector<LogRecord> records_;
};

class Log;

// One line under construction; written to the sinks when the stream is destroyed, if its level
// is enabled and its tag is not limited.
class LogStream final {
public:
    // A disabled line copies nothing and calls nothing: most lines on a hot path are below the
    // level, so its construction and destruction are inline.
    LogStream(const Log* log, LogLevel level, const String& tag, LogLimitConfig limit);
    LogStream(LogStream&& other) noexcept;
    LogStream(const LogStream&) = delete;
    LogStream& operator=(const LogStream&) = delete;
    LogStream& operator=(LogStream&&) = delete;
    ~LogStream() {
        if (enabled_) {
            Flush();
        }
    }

    template <typename T>
    LogStream& operator<<(const T& value) {
        if (enabled_) {
            Append(value);
        }
        return *this;
    }
    // Bytes print as numbers, as the daemon's lines expect.
    LogStream& operator<<(std::uint8_t value);
    LogStream& operator<<(std::int8_t value);
    LogStream& operator<<(bool value);

    void Flush();

private:
    // Texts, characters and numbers are written as an std::ostream writes them, without one: a
    // stream builds the C++ locale, which costs every process that logs several hundred
    // kilobytes of resident libstdc++ it needs for nothing else. Any other type goes through a
    // stream of its own, as before.
    template <typename T>
    void Append(const T& value) {
        if constexpr (std::is_convertible_v<const T&, std::string_view>) {
            if constexpr (std::is_pointer_v<T>) {
                if (value == nullptr) {
                    return;  // a stream writes nothing for a null text either
                }
            }
            text_.append(std::string_view(value));
        } else if constexpr (std::is_same_v<T, char>) {
            text_.push_back(value);
        } else if constexpr (std::is_integral_v<T>) {
            char digits[24];
            const auto end = std::to_chars(digits, digits + sizeof(digits), value).ptr;
            text_.append(digits, end);
        } else if constexpr (std::is_floating_point_v<T>) {
            // A stream's default: six significant digits, the shorter of fixed and exponent.
            char digits[64];
            const int length =
                std::snprintf(digits, sizeof(digits), "%Lg", static_cast<long double>(value));
            text_.append(digits, length > 0 ? static_cast<std::size_t>(length) : 0U);
        } else {
            std::ostringstream stream;
            stream << value;
            text_ += stream.str();
        }
    }

    const Log* log_;
    LogLevel level_;
    bool enabled_;
    String tag_;  // empty when the line is disabled
    LogLimitConfig limit_;
    String text_;  // the line so far; empty and unused when the line is disabled
};

// A log context. One object per context id, shared by everybody who asks for it.
class Log final {
public:
    // Global set-up. The "Log" section of vesk.json, when present, overrides level, mode and
    // path. Calling it again replaces the sinks.
    static void InitLogging(const String& appId, const String& description, std::uint8_t level,
                            std::uint8_t mode, const String& path);
    // Registers a context (contextId) with its description; appId empty means the process's.
    static void InitLog(const String& appId, const String& contextId, const String& description);
    static std::shared_ptr<Log> GetLog(const String& contextId);

    // Sinks and level can be changed at run time (tests add a MemoryLogSink).
    static void AddSink(std::shared_ptr<LogSink> sink);
    static void RemoveSink(const std::shared_ptr<LogSink>& sink);
    static void SetLevel(LogLevel level);
    static LogLevel GetLevel();
    // Lines of that tag suppressed by their LogLimitConfig so far.
    static std::uint64_t SuppressedCount(const String& tag);

    explicit Log(String contextId);

    bool IsValid() const noexcept { return !contextId_.empty(); }
    const String& ContextId() const noexcept { return contextId_; }
    bool CheckLogLevel(LogLevel level) const noexcept {
        return level != LogLevel::kOff &&
               static_cast<std::uint8_t>(level) <= level_.load(std::memory_order_relaxed);
    }

    // Lines without a tag or limit.
    LogStream LogFatal() const { return Untagged(LogLevel::kFatal); }
    LogStream LogError() const { return Untagged(LogLevel::kError); }
    LogStream LogWarn() const { return Untagged(LogLevel::kWarn); }
    LogStream LogInfo() const { return Untagged(LogLevel::kInfo); }
    LogStream LogDebug() const { return Untagged(LogLevel::kDebug); }
    LogStream LogVerbose() const { return Untagged(LogLevel::kVerbose); }

    LogStream LogFatal(const String& tag, LogLimitConfig limit = {}) const;
    LogStream LogError(const String& tag, LogLimitConfig limit = {}) const;
    LogStream LogWarn(const String& tag, LogLimitConfig limit = {}) const;
    LogStream LogInfo(const String& tag, LogLimitConfig limit = {}) const;
    LogStream LogDebug(const String& tag, LogLimitConfig limit = {}) const;
    LogStream LogVerbose(const String& tag, LogLimitConfig limit = {}) const;

private:
    friend class LogStream;
    LogStream Untagged(LogLevel level) const;
    void Emit(LogLevel level, const String& tag, const LogLimitConfig& limit, String text) const;

    // The level of every context, read by every line outside any lock.
    static std::atomic<std::uint8_t> level_;

    String contextId_;
};

inline LogStream::LogStream(const Log* log, LogLevel level, const String& tag, LogLimitConfig limit)
    : log_(log),
      level_(level),
      enabled_(log != nullptr && log->CheckLogLevel(level)),
      tag_(enabled_ ? tag : String()),
      limit_(limit) {}

inline LogStream Log::Untagged(LogLevel level) const {
    return LogStream(this, level, String(), {});
}

}  // namespace ara::tessel::common::log

#endif
