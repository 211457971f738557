#include "platform/msg/vesk_log.h"

namespace vesk::VeskLog {

namespace {

constexpr const char* kContextId = "VESK";

}  // namespace

void InitLog() {
    ara::tessel::common::log::Log::InitLog("", kContextId, "vesk platform libraries");
}

const std::shared_ptr<ara::tessel::common::log::Log>& GetLog() {
    static const std::shared_ptr<ara::tessel::common::log::Log> log =
        ara::tessel::common::log::Log::GetLog(kContextId);
    return log;
}

}  // namespace vesk::VeskLog
