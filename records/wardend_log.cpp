#include "records/wardend_log.h"

namespace vesk::wardend {

using ara::tessel::common::log::Log;
using ara::tessel::common::log::LogStream;

std::shared_ptr<Log>& WardendLog() {
    static std::shared_ptr<Log> log = Log::GetLog("WRDN");
    return log;
}

LogStream LogVerbose() {
    return WardendLog()->LogVerbose();
}
LogStream LogInfo() {
    return WardendLog()->LogInfo();
}
LogStream LogWarn() {
    return WardendLog()->LogWarn();
}
LogStream LogError() {
    return WardendLog()->LogError();
}

}  // namespace vesk::wardend
