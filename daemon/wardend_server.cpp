#include "daemon/wardend_server.h"

#include "platform/config/vesk_config_parser.h"
#include "platform/error/com_error_domain.h"
#include "platform/vcc/utils/thread_pool.h"
#include "records/wardend_log.h"

namespace vesk::wardend {

namespace {

constexpr std::uint32_t kReaderThreads = 1;
constexpr std::uint32_t kReaderQueueSize = 2048;
constexpr const char* kReaderName = "wrdn_rdmsg";
constexpr auto kEventMode = lumo::vcc::api::types::MethodCallProcessingMode::kEvent;

lumo::vcc::api::types::InstanceIdentifier InstanceIdentifier() {
    return lumo::vcc::api::types::InstanceIdentifier(
        veskcm::veskwardend::GetWardendInstanceId::GetInstanceId());
}

}  // namespace

WardendServer::~WardendServer() {
    // The tools skeleton points to the application skeleton, so it goes first.
    toolsSkeleton.reset();
    appSkeleton.reset();
}

// The application service comes first because the tools service refers to it. Nothing is
// offered before both are built, so a failure leaves nothing offered.
bool WardendServer::StartService() {
    LogInfo() << "Wardend starts to offer service.";
    std::shared_ptr<WardendAppSkeleton> app;
    try {
        app = std::make_shared<WardendAppSkeleton>(InstanceIdentifier(), kEventMode);
        // No registration waits for its .msg load: the reader sleeps between loads instead of
        // polling on the CPU the method threads answer with.
        app->SetThreadPool(std::make_shared<lumo::vcc::utils::ThreadPool>(
            kReaderThreads, kReaderQueueSize, kReaderName, lumo::vcc::utils::ThreadPool::kNoPoll));
    } catch (const lumo::vcc::api::types::ComException&) {
        LogError() << "Wardend wardendAppSkeleton creates failed.";
        return false;
    }

    std::shared_ptr<WardendToolsSkeleton> tools;
    try {
        tools = std::make_shared<WardendToolsSkeleton>(InstanceIdentifier(), kEventMode);
    } catch (const lumo::vcc::api::types::ComException&) {
        LogError() << "Wardend wardendToolsSkeleton creates failed.";
        return false;
    }
    tools->SetAppSkeleton(app);

    appSkeleton = app;
    toolsSkeleton = tools;

    appSkeleton->OfferAppService();
    toolsSkeleton->OfferToolsService();
    LogInfo() << "Wardend has offered two service.";
    return true;
}

void WardendServer::StopService() {
    LogInfo() << "Wardend stops offering service.";
    if (toolsSkeleton != nullptr) {
        toolsSkeleton->StopOfferService();
    }
    if (appSkeleton != nullptr) {
        appSkeleton->StopOfferAppService();
        LogInfo() << "Wardend stops thread pool.";
        appSkeleton->StopThreadPool();
    }
    LogInfo() << "Wardend stops offering service finished.";
}

}  // namespace vesk::wardend
