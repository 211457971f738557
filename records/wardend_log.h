#ifndef RECORDS_WARDEND_LOG_H
#define RECORDS_WARDEND_LOG_H

#include <memory>

#include "platform/log/log.h"

namespace vesk::wardend {

using ara::core::String;

// The daemon's one log context, "WRDN". main sets it up; everything else logs through the
// four helpers below.
std::shared_ptr<ara::tessel::common::log::Log>& WardendLog();

// Inline, so that a line below the level costs a load and a compare.
inline ara::tessel::common::log::LogStream LogVerbose() {
    return WardendLog()->LogVerbose();
}
inline ara::tessel::common::log::LogStream LogInfo() {
    return WardendLog()->LogInfo();
}
inline ara::tessel::common::log::LogStream LogWarn() {
    return WardendLog()->LogWarn();
}
inline ara::tessel::common::log::LogStream LogError() {
    return WardendLog()->LogError();
}

}  // namespace vesk::wardend

#endif
