#include "platform/vcc/utils/tlog_info.h"

#include <atomic>
#include <cstdio>
#include <ctime>
#include <fstream>

#include <sys/stat.h>
#include <unistd.h>

namespace lumo::vcc::utils {

bool TlogInfo::GetSendFlag() {
    struct stat info {};
    return ::stat(kDefaultDirectory, &info) == 0 && S_ISDIR(info.st_mode);
}

std::shared_ptr<TlogInfo> TlogInfo::CreateTlogInfo() {
    static std::atomic<std::uint64_t> next{0};
    timespec now{};
    (void)clock_gettime(CLOCK_REALTIME, &now);
    char guid[64];
    (void)std::snprintf(guid, sizeof(guid), "%d-%lld-%llu", static_cast<int>(::getpid()),
                        static_cast<long long>(now.tv_sec),
                        static_cast<unsigned long long>(next.fetch_add(1)));
    return std::make_shared<TlogInfo>(guid, kDefaultDirectory);
}

TlogInfo::TlogInfo(ara::core::String guid, ara::core::String directory)
    : guid_(std::move(guid)), directory_(std::move(directory)) {}

void TlogInfo::RecordStage(std::uint8_t stage, std::uint8_t flag, api::types::DriverType driver) {
    timespec now{};
    (void)clock_gettime(CLOCK_REALTIME, &now);
    const Stage record{stage, flag, driver,
                       static_cast<std::int64_t>(now.tv_sec) * 1000000000LL + now.tv_nsec};
    std::lock_guard<std::mutex> lock(mutex_);
    stages_.push_back(record);
    if (directory_.empty()) {
        return;
    }
    std::ofstream file(directory_ + guid_ + ".tlog", std::ios::app);
    if (file) {
        file << "stage=" << static_cast<unsigned>(stage) << " flag=" << static_cast<unsigned>(flag)
             << " driver=" << api::types::DriverTypeName(driver) << " time=" << record.timeNs
             << "\n";
    }
}

std::vector<TlogInfo::Stage> TlogInfo::Stages() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return stages_;
}

}  // namespace lumo::vcc::utils
