#ifndef PLATFORM_VCC_API_TYPES_SAMPLE_INFO_H
#define PLATFORM_VCC_API_TYPES_SAMPLE_INFO_H

#include <ctime>
#include <memory>

namespace lumo::vcc::utils {
class TlogInfo;
}  // namespace lumo::vcc::utils

namespace lumo::vcc::api::types::internal {

// What a sender hands along with one event sample.
struct SampleInfoImpl {
    std::shared_ptr<utils::TlogInfo> tlogInfo;  // may be absent
    bool isLatencySample{false};                // latencyTimestamp is meaningful
    timespec latencyTimestamp{};
};

}  // namespace lumo::vcc::api::types::internal

#endif
