#include "binding/skeleton/request_wrapper.h"

namespace lumo::vcc::detail {

namespace {
constexpr std::uint8_t kProfile22 = 22;
constexpr std::uint8_t kProfile41 = 41;
}  // namespace

bool E2ECheckFails(
    Vcc& vcc, std::uint32_t entityId, const api::types::MethodInfo& info,
    const api::types::MethodMsg& msg,
    const std::map<com::e2exf::ProfileCheckStatus, api::types::E2EErrorCode>& statusMap,
    api::types::E2EErrorCode& code) {
    const auto& config = *info.e2e->config;
    std::uint8_t status = msg.e2eCheckStatus;
    // A repeated message is an error only under profile 41.
    if (config.profile != kProfile41 && status == 1) {
        status = 0;
    }
    if (status == 0) {
        return false;
    }
    code = statusMap.at(static_cast<com::e2exf::ProfileCheckStatus>(status));
    auto stats = vcc.FindMethodStats(entityId);
    auto handler = vcc.GetE2EErrorHandler();
    if (!handler) {
        ara::tessel::common::log::Log::GetLog("CM")->LogDebug()
            << "E2E error handler is nullptr for [entityId = " << entityId << "]";
        return true;
    }
    if (stats != nullptr) {
        ++stats->e2eErrorsSeen;
    }
    std::vector<std::uint32_t> dataIds;
    if (config.profile == kProfile22) {
        dataIds.assign(config.dataIdList.begin(), config.dataIdList.end());
    } else {
        dataIds.push_back(config.dataId);
    }
    handler(code, dataIds, msg.e2eCounter);
    if (stats != nullptr) {
        ++stats->requestsHandled;
    }
    return true;
}

}  // namespace lumo::vcc::detail
