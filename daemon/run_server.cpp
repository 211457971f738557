#include "daemon/run_server.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <memory>

#include "daemon/drivers.h"
#include "daemon/memory_keeper.h"
#include "daemon/wardend_server.h"
#include "platform/vcc/service_config.h"
#include "records/service_interfaces.h"
#include "records/wardend_log.h"

namespace vesk::wardend {

volatile std::uint8_t running = 1;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

namespace {

constexpr long kWaitNanoseconds = 250000000L;

// Logging from signal context is a risk the daemon accepts for the sake of this one line.
void HandleStopSignal(int /*signal*/) {
    running = 0;
    LogInfo() << "Wardend is exiting...";
}

void SleepOnePeriod() {
    timespec request{0, kWaitNanoseconds};
    timespec remaining{};
    while (nanosleep(&request, &remaining) != 0 && errno == EINTR) {
        request = remaining;
    }
}

}  // namespace

void InstallSignalHandlers() {
    struct sigaction action {};
    action.sa_handler = HandleStopSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
}

std::int32_t RunServer() {
    lumo::vcc::ServiceConfig::DeclareServices(
        {AppServiceIdentifier().interface->name, ToolsServiceIdentifier().interface->name});
    KeepFreedMemory();
    RegisterDrivers();
    auto server = std::make_unique<WardendServer>();
    if (!server->StartService()) {
        server.reset();
        UnregisterDrivers();
        return 1;
    }
    LogInfo() << "Wardend server init finished.";
    MemoryKeeper keeper = MakeDaemonMemoryKeeper();
    while (running != 0) {
        SleepOnePeriod();
        keeper.OnPeriod(ProcessCpuTime());
    }
    server->StopService();
    server.reset();
    UnregisterDrivers();
    return 0;
}

}  // namespace vesk::wardend
