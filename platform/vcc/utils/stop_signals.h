#ifndef PLATFORM_VCC_UTILS_STOP_SIGNALS_H
#define PLATFORM_VCC_UTILS_STOP_SIGNALS_H

#include <pthread.h>

#include <csignal>

namespace lumo::vcc::utils {

// Runs start (which starts threads) with SIGTERM and SIGINT blocked, so that the threads it
// starts inherit the mask and leave those signals to the main thread, whose handler stops the
// daemon.
template <typename Start>
void WithoutStopSignals(Start&& start) {
    sigset_t blocked;
    sigset_t previous;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    sigaddset(&blocked, SIGINT);
    pthread_sigmask(SIG_BLOCK, &blocked, &previous);
    start();
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

}  // namespace lumo::vcc::utils

#endif
