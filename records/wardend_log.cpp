#include "records/wardend_log.h"

namespace vesk::wardend {

using ara::tessel::common::log::Log;

std::shared_ptr<Log>& WardendLog() {
    static std::shared_ptr<Log> log = Log::GetLog("WRDN");
    return log;
}

}  // namespace vesk::wardend
