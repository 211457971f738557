#include "snapshot/sys_info_manage.h"

#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "records/wardend_log.h"

namespace vesk::wardend {

namespace {

using ara::tessel::common::log::LogLimitConfig;
using ara::tessel::common::veskConfigParser::VeskConfigParser;

constexpr const char* kVersionLine = "#WRDNSNAPSHOT V100\n";
constexpr const char* kEndLine = "#END\n";
constexpr const char* kTimeFormat = "%Y-%m-%d-%H-%M-%S";
constexpr const char* kSchedFiles[] = {"/proc/perf/sched_log", "/proc/perf/sched_table",
                                       "/proc/perf/sched_stacks"};
constexpr const char* kNetFile = "/proc/net/dev";
constexpr const char* kStatFile = "/proc/stat";
constexpr useconds_t kCpuSampleGapUs = 10000;
constexpr std::uint32_t kDisabledLogPeriodMs = 500;

std::uint64_t SteadyMilliseconds() {
    const auto sinceStart = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(
               std::chrono::duration_cast<std::chrono::nanoseconds>(sinceStart).count()) /
           1000000U;
}

// The guid comes from an application: a line break in it would forge lines of the file.
String Printable(const String& text) {
    String out = text;
    for (char& c : out) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f) {
            c = '?';
        }
    }
    return out;
}

}  // namespace

SysInfoManage& SysInfoManage::GetInstance() {
    static SysInfoManage instance;
    return instance;
}

SysInfoManage::SysInfoManage(SnapshotEnvironment environment)
    : environment_(std::move(environment)) {
    if (!environment_.steadyMilliseconds) {
        environment_.steadyMilliseconds = &SteadyMilliseconds;
    }
    if (!environment_.wallClock) {
        environment_.wallClock = [] { return std::time(nullptr); };
    }
}

// No log line here: at exit the log context may already be gone.
SysInfoManage::~SysInfoManage() {
    if (logFile_ != nullptr) {
        static_cast<void>(std::fclose(logFile_));
    }
}

void SysInfoManage::InitSnapshotConfig() {
    std::call_once(configOnce_, [this] {
        const VeskConfigParser parser;
        if (parser.IsValid()) {
            snapshotConfig_ = parser.GetSnapshotConfig();
        } else {
            LogWarn() << "[SysInfoManage][Maybe vesk.json format is wrong, so use default config]";
        }
        LogInfo() << "[SnapshotConfig in vesk.json][threshold=" << snapshotConfig_.threshold
                  << ", enable_sched_trace=" << snapshotConfig_.enable_sched_trace
                  << ", time_delay=" << snapshotConfig_.time_delay
                  << ", cpu_usage=" << snapshotConfig_.cpu_usage
                  << ", net_statistics=" << snapshotConfig_.net_statistics
                  << ", path=" << snapshotConfig_.path << "]";
        if (!snapshotConfig_.path.empty()) {
            logDir_ = snapshotConfig_.path;
        }
        if (logDir_.back() != '/') {
            logDir_.push_back('/');
        }
    });
}

int SysInfoManage::TriggerSnapshot(const std::map<ListenerType, ListenerParams>& result) {
    if (snapshotConfig_.threshold == 0) {
        WardendLog()->LogWarn("Snapshot_Disabled", LogLimitConfig{kDisabledLogPeriodMs})
            << "[Snapshot function in vesk.json is not enabled]";
        return 0;
    }
    const std::uint64_t now = environment_.steadyMilliseconds();
    const std::lock_guard<std::mutex> lock(recordLock_);
    if (lastRecordTime_ + kMinimumIntervalMs > now) {
        LogVerbose() << "[SysInfoManage][The time difference is within ten seconds]";
        return 0;
    }
    // Set before anything is written, so that a failing snapshot counts as well.
    lastRecordTime_ = now;
    listenerResult_ = result;
    if (logFile_ == nullptr && CreateSnapshotFile() != 0) {
        return -1;
    }
    return RecordSnapshot();
}

void SysInfoManage::CloseSnapshotFile() {
    const std::lock_guard<std::mutex> lock(recordLock_);
    if (logFile_ == nullptr) {
        return;
    }
    if (std::fclose(logFile_) != 0) {
        LogWarn() << "[SysInfoManage][Fclose failed][fileName=" << fileName_ << "]";
    }
    logFile_ = nullptr;
}

SnapshotConfig SysInfoManage::GetConfig() const {
    return snapshotConfig_;
}

String SysInfoManage::LogDir() const {
    return logDir_;
}

String SysInfoManage::FileName() const {
    const std::lock_guard<std::mutex> lock(recordLock_);
    return fileName_;
}

bool SysInfoManage::HasOpenFile() const {
    const std::lock_guard<std::mutex> lock(recordLock_);
    return logFile_ != nullptr;
}

std::map<ListenerType, ListenerParams> SysInfoManage::ListenerResult() const {
    const std::lock_guard<std::mutex> lock(recordLock_);
    return listenerResult_;
}

std::vector<String> SysInfoManage::ClosedFiles() const {
    const std::lock_guard<std::mutex> lock(recordLock_);
    return {closedFiles_.begin(), closedFiles_.end()};
}

String SysInfoManage::LocalTimeText() const {
    const std::time_t now = environment_.wallClock();
    std::tm local{};
    if (localtime_r(&now, &local) == nullptr) {
        local = std::tm{};
    }
    char text[64] = {};
    const std::size_t length = std::strftime(text, sizeof(text), kTimeFormat, &local);
    return String(text, length);
}

bool SysInfoManage::Write(const String& text) {
    return std::fwrite(text.data(), 1, text.size(), logFile_) == text.size();
}

int SysInfoManage::CreateSnapshotFile() {
    fileName_ = logDir_ + "snapshot_" + LocalTimeText() + "_" + std::to_string(fileIndex_) + ".log";

    char* resolved = realpath(fileName_.c_str(), nullptr);
    if (resolved != nullptr) {
        std::free(resolved);  // NOLINT(cppcoreguidelines-no-malloc): realpath allocates with malloc
        LogWarn() << "[SysInfoManage][Recording the same file name, please check the file name]";
        return -1;
    }
    // "x" (O_EXCL) closes the gap after realpath and refuses to follow a dangling link.
    std::FILE* file = std::fopen(fileName_.c_str(), "w+bx");
    if (file == nullptr) {
        if (errno == EEXIST) {
            LogWarn()
                << "[SysInfoManage][Recording the same file name, please check the file name]";
        } else {
            LogWarn() << "[SysInfoManage][" << fileName_ << " open failed]";
        }
        return -1;
    }
    // Unbuffered, so that a failing write shows in its own count and a snapshot is on disk
    // when its trigger returns.
    static_cast<void>(std::setvbuf(file, nullptr, _IONBF, 0));
    logFile_ = file;
    LogInfo() << "[SysInfoManage][SysInfoManager create a log file][fileName=" << fileName_ << "]";
    if (!Write(kVersionLine)) {
        LogWarn() << "[SysInfoManage][WriteVersion: write failed]";
    }
    return 0;
}

int SysInfoManage::RecordSnapshot() {
    if (!Write("#snapshot time: " + LocalTimeText() + "\n")) {
        LogWarn() << "[SysInfoManage][Write failed]";
        return -1;
    }
    const auto writeSection = [this](const char* path) {
        if (WriteFileSection(path) != 0) {
            LogWarn() << "[SysInfoManage][Write failed with " << path << "]";
        }
    };
    if (snapshotConfig_.enable_sched_trace) {
        for (const char* path : kSchedFiles) {
            writeSection(path);
        }
    }
    if (snapshotConfig_.net_statistics) {
        writeSection(kNetFile);
    }
    if (snapshotConfig_.cpu_usage && WriteCpuUsage() != 0) {
        LogWarn() << "[SysInfoManage][Write failed with " << kStatFile << "]";
    }
    if (snapshotConfig_.time_delay && WriteTlogSection() != 0) {
        LogWarn() << "[SysInfoManage][Write failed with tlog]";
    }
    static_cast<void>(FinishFileIfFull());
    return 0;
}

int SysInfoManage::WriteFileSection(const String& path) {
    LogVerbose() << "[SysInfoManage][Begin to record " << path << "]";
    if (!Write("------" + path + "------\n")) {
        LogWarn() << "[SysInfoManage][WriteContentHeader: write failed][fileName=" << path << "]";
        return -1;
    }
    const String source = environment_.procRoot + path;
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> in(std::fopen(source.c_str(), "r"),
                                                             &std::fclose);
    if (!in) {
        LogWarn() << "[SysInfoManage][Open " << path << " failed]";
        return -1;
    }
    // By the piece, never the whole file: a line longer than the buffer goes out in several
    // writes, and a last line without its line feed gets one.
    char piece[4096];
    bool atLineStart = true;
    while (std::fgets(piece, sizeof(piece), in.get()) != nullptr) {
        const std::size_t length = std::strlen(piece);
        if (length == 0) {
            continue;
        }
        if (std::fwrite(piece, 1, length, logFile_) != length) {
            LogWarn() << "[SysInfoManage][WriteContent: write failed]";
            return -1;
        }
        atLineStart = piece[length - 1] == '\n';
    }
    if (!atLineStart && !Write("\n")) {
        LogWarn() << "[SysInfoManage][WriteContent: write failed]";
        return -1;
    }
    if (std::ferror(in.get()) != 0) {
        LogWarn() << "[SysInfoManage][Read " << path << " failed]";
        return -1;
    }
    LogVerbose() << "[SysInfoManage][End to record " << path << "]";
    return 0;
}

int SysInfoManage::WriteCpuUsage() {
    if (WriteFileSection(kStatFile) != 0) {
        return -1;
    }
    // Two samples of the counters a moment apart give the load of that moment.
    static_cast<void>(usleep(kCpuSampleGapUs));
    return WriteFileSection(kStatFile) != 0 ? -1 : 0;
}

int SysInfoManage::WriteTlogSection() {
    if (!Write("------vesktlog------\n")) {
        LogWarn() << "[SysInfoManage][WriteContentHeader: write failed][fileName=vesktlog]";
        return -1;
    }
    const auto entry = listenerResult_.find(ListenerType::kLatencyTimeout);
    if (entry != listenerResult_.end()) {
        const kbr::tlog::MsgInfo message{entry->second.guid, entry->second.writerPid,
                                         entry->second.readerPid};
        const std::vector<String> records =
            kbr::tlog::TimeoutRecord(environment_.tlogDirectory).GetTimeoutRecordInfo(message);
        if (!Write("#guid:" + Printable(message.guid) +
                   "_writerPid:" + std::to_string(message.writerPid) +
                   "_readerPid:" + std::to_string(message.readerPid) + "\n")) {
            LogWarn() << "[SysInfoManage][WriteVesktlogHeader: write failed][fileName=vesktlog]";
            return -1;
        }
        for (const String& record : records) {
            if (!Write(record + "\n")) {
                LogWarn() << "[SysInfoManage][WriteContent: write failed][fileName=vesktlog]";
                return -1;
            }
        }
    }
    LogVerbose() << "[SysInfoManage][End to record vesktlog]";
    return 0;
}

int SysInfoManage::FinishFileIfFull() {
    if (logFile_ == nullptr) {
        return 0;
    }
    if (fseeko(logFile_, 0, SEEK_END) != 0) {
        LogWarn() << "[Log file fseek failed!][fileName=" << fileName_ << "]";
    }
    // Taken as unsigned: an error (-1) counts as full and retires the file.
    const auto end = static_cast<std::uint64_t>(ftello(logFile_));
    if (end <= kMaxFileSize) {
        return 0;
    }
    if (!Write(kEndLine)) {
        LogWarn() << "[SysInfoManage][WriteEnd: write failed]";
    }
    if (std::fclose(logFile_) != 0) {
        LogWarn() << "[Log file fclose failed!][fileName=" << fileName_ << "]";
    }
    logFile_ = nullptr;
    LogInfo() << "[SysInfoManage][SysInfoManager close log file][fileName=" << fileName_ << "]";

    closedFiles_.push_back(fileName_);
    ++closedFileCount_;
    if (access(fileName_.c_str(), F_OK) != 0) {
        LogWarn() << "[Log file does not exist. Maybe the user deleted it][fileName=" << fileName_
                  << "]";
    }
    if (closedFileCount_ > kFinishedFilesKept) {
        LogInfo() << "[SysInfoManage][Current logFile num is more than 10]";
        const String oldest = closedFiles_.front();
        if (unlink(oldest.c_str()) != 0) {
            LogWarn() << "[Unable to remove file][fileName=" << oldest << "]";
        }
        closedFiles_.pop_front();
        --closedFileCount_;
    }
    ++fileIndex_;
    // A failure leaves logFile_ null; the next trigger past the ten-second rule tries again.
    static_cast<void>(CreateSnapshotFile());
    return 0;
}

}  // namespace vesk::wardend
