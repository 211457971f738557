#ifndef PLATFORM_VCC_UTILS_TLOG_INFO_H
#define PLATFORM_VCC_UTILS_TLOG_INFO_H

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/core/string.h"
#include "platform/vcc/api/types/driver_type.h"

namespace lumo::vcc::utils {

// The timing record of one message as it passes the stages of the framework. When the tracer's
// directory exists, each stage is appended as one line to <directory>/<guid>.tlog, where
// kbr::tlog::TimeoutRecord reads it back.
class TlogInfo {
public:
    static constexpr const char* kDefaultDirectory = "/run/vesk/tlog/";

    struct Stage {
        std::uint8_t stage{0};
        std::uint8_t flag{0};
        api::types::DriverType driver{api::types::DriverType::kProloc};
        std::int64_t timeNs{0};  // CLOCK_REALTIME
    };

    // True when the tracer is present: its directory exists.
    static bool GetSendFlag();
    static std::shared_ptr<TlogInfo> CreateTlogInfo();

    TlogInfo(ara::core::String guid, ara::core::String directory);
    TlogInfo(const TlogInfo&) = delete;
    TlogInfo& operator=(const TlogInfo&) = delete;
    virtual ~TlogInfo() = default;

    const ara::core::String& Guid() const noexcept { return guid_; }
    // Records that the message passed a stage (3: handed to a driver).
    virtual void RecordStage(std::uint8_t stage, std::uint8_t flag, api::types::DriverType driver);
    std::vector<Stage> Stages() const;

private:
    const ara::core::String guid_;
    const ara::core::String directory_;
    mutable std::mutex mutex_;  // guards stages_ and the file
    std::vector<Stage> stages_;
};

}  // namespace lumo::vcc::utils

#endif
