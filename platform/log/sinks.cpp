#include "platform/log/sinks.h"

#include <dlfcn.h>

#include <ctime>

namespace ara::tessel::common::log {

namespace {

constexpr std::size_t kDltIdLength = 4;

// libdlt, opened when the first DLT sink is made: a program without one never maps it.
struct DltLibrary {
    decltype(&dlt_register_app) registerApp{nullptr};
    decltype(&dlt_unregister_app) unregisterApp{nullptr};
    decltype(&dlt_register_context) registerContext{nullptr};
    decltype(&dlt_unregister_context) unregisterContext{nullptr};
    decltype(&dlt_log_string) logString{nullptr};

    bool Loaded() const {
        return registerApp != nullptr && unregisterApp != nullptr && registerContext != nullptr &&
               unregisterContext != nullptr && logString != nullptr;
    }
};

template <typename Function>
void Resolve(void* handle, const char* name, Function& function) {
    function = reinterpret_cast<Function>(::dlsym(handle, name));
}

// Null when the library or one of its functions is missing, with a line on standard error: the
// log cannot report its own sink.
const DltLibrary* Dlt() {
    static const DltLibrary* const library = []() -> const DltLibrary* {
        // Never unloaded: the library's thread and exit handlers outlive any one sink.
        void* handle = ::dlopen(WARDEND_DLT_LIBRARY, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
        static DltLibrary loaded;
        if (handle != nullptr) {
            Resolve(handle, "dlt_register_app", loaded.registerApp);
            Resolve(handle, "dlt_unregister_app", loaded.unregisterApp);
            Resolve(handle, "dlt_register_context", loaded.registerContext);
            Resolve(handle, "dlt_unregister_context", loaded.unregisterContext);
            Resolve(handle, "dlt_log_string", loaded.logString);
        }
        if (!loaded.Loaded()) {
            const char* error = ::dlerror();
            std::fprintf(stderr, "DLT log sink: %s not loaded: %s\n", WARDEND_DLT_LIBRARY,
                         error == nullptr ? "a function is missing" : error);
            return nullptr;
        }
        return &loaded;
    }();
    return library;
}

}  // namespace

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
    const DltLibrary* dlt = Dlt();
    registered_ = dlt != nullptr && dlt->registerApp(appId.substr(0, kDltIdLength).c_str(),
                                                     description.c_str()) == DLT_RETURN_OK;
}

DltLogSink::~DltLogSink() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!registered_) {
        return;
    }
    const DltLibrary* dlt = Dlt();
    for (auto& entry : contexts_) {
        dlt->unregisterContext(entry.second.get());
    }
    contexts_.clear();
    dlt->unregisterApp();
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
        if (Dlt()->registerContext(context.get(), id.c_str(), record.contextId.c_str()) !=
            DLT_RETURN_OK) {
            return;
        }
        it = contexts_.emplace(id, std::move(context)).first;
    }
    // DLT's levels carry the same numbers as ours.
    Dlt()->logString(it->second.get(), static_cast<DltLogLevelType>(record.level),
                     record.text.c_str());
}

}  // namespace ara::tessel::common::log
