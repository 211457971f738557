#ifndef TOOLS_WARDENCTL_RUNNER_H
#define TOOLS_WARDENCTL_RUNNER_H

// Runs one parsed command against the daemon: calls the tools service, waits within the
// timeout, prints the answer and turns the outcome into wardenctl's exit code.

#include <ostream>

#include "client/wardend_proxy.h"
#include "platform/core/error_code.h"
#include "tools/wardenctl/command_line.h"
#include "tools/wardenctl/views.h"

namespace vesk::wardenctl {

// SIGINT and SIGTERM end a --watch loop after the current redraw.
void InstallStopSignals();
bool StopRequested();

// Prints the answer and returns its exit code.
int PrintAnswer(const View& view, std::ostream& out);
// The one line on standard error for a call that got no answer, with the daemon it looked for;
// returns kExitUnreachable.
int ReportCallError(const ara::core::ErrorCode& error, const Command& command, std::ostream& err);

int RunCommand(const Command& command, vesk::wardend::proxy::VESKWardendToolsServiceProxy& tools,
               std::ostream& out, std::ostream& err);

}  // namespace vesk::wardenctl

#endif
