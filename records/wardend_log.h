#ifndef RECORDS_WARDEND_LOG_H
#define RECORDS_WARDEND_LOG_H

#include <memory>

#include "platform/log/log.h"

namespace vesk::wardend {

using ara::core::String;

// The daemon's one log context, "WRDN". main sets it up; everything else logs through the
// four helpers below.
std::shared_ptr<ara::tessel::common::log::Log>& WardendLog();

ara::tessel::common::log::LogStream LogVerbose();
ara::tessel::common::log::LogStream LogInfo();
ara::tessel::common::log::LogStream LogWarn();
ara::tessel::common::log::LogStream LogError();

}  // namespace vesk::wardend

#endif
