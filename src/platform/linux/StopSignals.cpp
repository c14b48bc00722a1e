#include "platform/linux/StopSignals.h"

#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "concurrency/Require.h"

namespace airflow::platform {

StopSignals::StopSignals() {
    sigset_t stopping;
    sigemptyset(&stopping);
    sigaddset(&stopping, SIGTERM);
    sigaddset(&stopping, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stopping, &before);
    arrived = FileDescriptor(signalfd(-1, &stopping, SFD_CLOEXEC | SFD_NONBLOCK));
    concurrency::require(static_cast<bool>(arrived), "the system has signal descriptors");
}

StopSignals::~StopSignals() {
    signalfd_siginfo signal{};
    while (read(arrived.get(), &signal, sizeof signal) > 0) {
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace airflow::platform
