#include <cstdio>

#include "daemon/command_line.h"
#include "daemon/run_server.h"
#include "platform/config/vesk_config_parser.h"
#include "records/wardend_log.h"
#include "registry/event_info_manage.h"

namespace {
constexpr std::uint8_t kLogLevelWarn = 3;
constexpr std::uint8_t kLogModeConsole = 0;
}  // namespace

int main(int argc, char* argv[]) {
    using ara::tessel::common::log::Log;
    using namespace vesk::wardend;

    // Before logging exists, so that a signal during start-up is not lost.
    InstallSignalHandlers();

    Log::InitLogging("WRDN", "ARA_LOG", kLogLevelWarn, kLogModeConsole, "");
    Log::InitLog("", "WRDN", "");
    WardendLog() = Log::GetLog("WRDN");
    if (!WardendLog()->IsValid()) {
        std::printf("[ERROR]: Log init failed!\n");
        std::fflush(stdout);
    }

    LogInfo() << "Wardend start to check process.";
    if (!CheckSingleInstance()) {
        return 1;
    }

    String& instanceId = EventInfoManage::GetInstance().instanceId;
    instanceId = vesk::veskcm::veskwardend::GetWardendInstanceId::GetInstanceId();

    if (const auto exitCode = ParseOptions(argc, argv)) {
        return *exitCode;
    }

    LogInfo() << "Wardend the instance id is " << String(instanceId) << ".";
    const std::int32_t result = RunServer();
    LogInfo() << "Wardend exits.";
    return result;
}
