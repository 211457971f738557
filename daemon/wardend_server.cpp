#include "daemon/wardend_server.h"

#include "platform/vcc/utils/thread_pool.h"
#include "records/wardend_log.h"

namespace vesk::wardend {

namespace {
constexpr std::uint32_t kReaderThreads = 1;
constexpr std::uint32_t kReaderQueueSize = 2048;
constexpr const char* kReaderName = "wrdn_rdmsg";
}  // namespace

WardendServer::~WardendServer() {
    // The tools skeleton points to the application skeleton, so it goes first.
    toolsSkeleton.reset();
    appSkeleton.reset();
}

// The application service comes first because the tools service refers to it. Assembling each
// service on its drivers (adapter, method threads, traffic policies, the offer on the wire) is
// the binding's part and joins these steps when the binding exists; until then both services
// are built, wired and served in-process.
bool WardendServer::StartService() {
    LogInfo() << "Wardend starts to offer service.";

    auto app = std::make_shared<WardendAppSkeleton>();
    app->SetThreadPool(std::make_shared<lumo::vcc::utils::ThreadPool>(
        kReaderThreads, kReaderQueueSize, kReaderName));

    auto tools = std::make_shared<WardendToolsSkeleton>();
    tools->SetAppSkeleton(app);

    appSkeleton = app;
    toolsSkeleton = tools;

    appSkeleton->OfferAppService();
    toolsSkeleton->OfferToolsService();
    LogInfo() << "Wardend has offered two service.";
    return true;
}

// The tools service has nothing to stop until the binding offers it on a driver.
void WardendServer::StopService() {
    LogInfo() << "Wardend stops offering service.";
    if (appSkeleton != nullptr) {
        appSkeleton->StopOfferAppService();
        LogInfo() << "Wardend stops thread pool.";
        appSkeleton->StopThreadPool();
    }
    LogInfo() << "Wardend stops offering service finished.";
}

}  // namespace vesk::wardend
