#ifndef DAEMON_RUN_SERVER_H
#define DAEMON_RUN_SERVER_H

#include <cstdint>

namespace vesk::wardend {

// Cleared by SIGTERM or SIGINT; the wait loop of RunServer ends when it is 0.
extern volatile std::uint8_t running;

// Installs the handler that clears the running flag, for SIGTERM and SIGINT.
void InstallSignalHandlers();

// Starts the services, waits in steps of 250 ms until a signal (handing freed memory back after
// work: memory_keeper.h), stops them. 0 after a normal stop, 1 when the services could not be
// created.
std::int32_t RunServer();

}  // namespace vesk::wardend

#endif
