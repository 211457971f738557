#ifndef SERVICE_REGISTER_MUTEX_H
#define SERVICE_REGISTER_MUTEX_H

#include <mutex>

namespace vesk::wardend {

// The outermost lock of the daemon. Event and method registration and the node query take it,
// because those two paths take the registries' locks and the node lock in opposite orders.
// Unregister paths and all field paths run without it.
std::mutex& RegisterMutex();

}  // namespace vesk::wardend

#endif
