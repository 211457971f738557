#include "daemon/wardend_server.h"

#include "records/wardend_log.h"

namespace vesk::wardend {

// The application and tools services are assembled here once the service layer and the binding
// exist; until then the daemon starts with its registries and offers no service.
bool WardendServer::StartService() {
    LogInfo() << "Wardend starts to offer service.";
    LogInfo() << "Wardend has offered two service.";
    return true;
}

void WardendServer::StopService() {
    LogInfo() << "Wardend stops offering service.";
    LogInfo() << "Wardend stops offering service finished.";
}

}  // namespace vesk::wardend
