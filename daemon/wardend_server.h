#ifndef DAEMON_WARDEND_SERVER_H
#define DAEMON_WARDEND_SERVER_H

#include <memory>

#include "service/wardend_app_skeleton.h"
#include "service/wardend_tools_skeleton.h"

namespace vesk::wardend {

// Holds the two service objects between StartService and StopService; the only place that
// knows both.
class WardendServer {
public:
    WardendServer() = default;
    ~WardendServer();
    WardendServer(const WardendServer&) = delete;
    WardendServer& operator=(const WardendServer&) = delete;

    bool StartService();
    void StopService();

    std::shared_ptr<WardendToolsSkeleton> toolsSkeleton;
    std::shared_ptr<WardendAppSkeleton> appSkeleton;
};

}  // namespace vesk::wardend

#endif
