#ifndef DAEMON_DRIVERS_H
#define DAEMON_DRIVERS_H

namespace vesk::wardend {

// Makes the transports the daemon links known to the framework, before the services are built.
void RegisterDrivers();
// Shuts them down, after the services have stopped.
void UnregisterDrivers();

}  // namespace vesk::wardend

#endif
