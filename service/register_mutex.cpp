#include "service/register_mutex.h"

namespace vesk::wardend {

std::mutex& RegisterMutex() {
    static std::mutex registerMutex;  // guards the registration and node-query paths as a whole
    return registerMutex;
}

}  // namespace vesk::wardend
