#include "platform/linux/SignalDescriptor.h"

#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace airflow::platform {

SignalDescriptor::SignalDescriptor(std::initializer_list<int> signals) {
    sigset_t chosen;
    sigemptyset(&chosen);
    for (const int number : signals) sigaddset(&chosen, number);
    pthread_sigmask(SIG_BLOCK, &chosen, &before);
    arrived = FileDescriptor(signalfd(-1, &chosen, SFD_CLOEXEC | SFD_NONBLOCK));
}

SignalDescriptor::~SignalDescriptor() {
    while (take()) {
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

std::optional<int> SignalDescriptor::take() {
    signalfd_siginfo signal{};
    if (read(arrived.get(), &signal, sizeof signal) != sizeof signal) return std::nullopt;
    return static_cast<int>(signal.ssi_signo);
}

}  // namespace airflow::platform
