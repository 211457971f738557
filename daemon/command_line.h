#ifndef DAEMON_COMMAND_LINE_H
#define DAEMON_COMMAND_LINE_H

#include <optional>

#include "platform/core/string.h"

namespace vesk::wardend {

using ara::core::String;

// Counts the processes named wardend through "pidof wardend | wc -w". True when this one is
// the only one, and also when the shell cannot be started at all.
bool CheckSingleInstance();

// Looks at argv[1] and its arguments. Returns the exit code when the process must end, or
// nothing when the daemon goes on. A bad -p path ends the process inside SetUserMsgPath.
std::optional<int> ParseOptions(int argc, const char* const argv[]);

// Checks the -p path and stores it in userMsgDir with a trailing '/'; on a bad path it logs
// and calls exit(1).
void SetUserMsgPath(const ara::core::String& path);

void PrintShortUsage();
void PrintLongUsage();

}  // namespace vesk::wardend

#endif
