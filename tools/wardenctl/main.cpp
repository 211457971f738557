// wardenctl: the command line tool of wardend. See wardenctl --help and the README.

#include <iostream>
#include <string>
#include <vector>

#include "client/wardend_proxy.h"
#include "platform/log/log.h"
#include "tools/wardenctl/command_line.h"
#include "tools/wardenctl/runner.h"

int main(int argc, char* argv[]) {
    using namespace vesk::wardenctl;
    const ParseOutcome parsed = ParseCommandLine(std::vector<std::string>(argv + 1, argv + argc));
    std::cout << parsed.out;
    std::cerr << parsed.err;
    if (!parsed.command) {
        return parsed.exitCode;
    }
    // Standard error carries wardenctl's own one-line reasons only, not the drivers' log.
    ara::tessel::common::log::Log::SetLevel(ara::tessel::common::log::LogLevel::kOff);
    if (parsed.command->watch) {
        InstallStopSignals();
    }
    const Command& command = *parsed.command;
    vesk::wardend::proxy::VESKWardendToolsServiceProxy tools(
        {command.driver, command.instance, command.timeout});
    return RunCommand(command, tools, std::cout, std::cerr);
}
