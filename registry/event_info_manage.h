#ifndef REGISTRY_EVENT_INFO_MANAGE_H
#define REGISTRY_EVENT_INFO_MANAGE_H

#include "platform/core/string.h"

namespace vesk::wardend {

using ara::core::String;

// Publishers and subscribers of events. Its first member is the daemon's instance id, which
// main overwrites before any service exists and the service start reads.
class EventInfoManage {
public:
    static EventInfoManage& GetInstance();

    String instanceId{"666"};

private:
    EventInfoManage() = default;
};

}  // namespace vesk::wardend

#endif
