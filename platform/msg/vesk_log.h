#ifndef PLATFORM_MSG_VESK_LOG_H
#define PLATFORM_MSG_VESK_LOG_H

#include <memory>

#include "platform/log/log.h"

namespace vesk::VeskLog {

// The log context of the vesk libraries, "VESK". Registering it more than once is harmless.
void InitLog();

// The context registered by InitLog (registered on first use if InitLog was not called).
const std::shared_ptr<ara::tessel::common::log::Log>& GetLog();

}  // namespace vesk::VeskLog

#endif
