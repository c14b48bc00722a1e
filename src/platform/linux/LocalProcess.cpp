#include "platform/linux/LocalProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <mutex>
#include <thread>
#include <utility>

#include "concurrency/Require.h"
#include "concurrency/ThisThread.h"
#include "platform/posix/ProcessExit.h"

namespace airflow::platform {

namespace {

using concurrency::Task;
using daemon::Signal;

/// Where the C library's signal handler leaves the numbers of signals. Plain, because that handler
/// may use nothing else; set before the first handler is installed.
int signalPipe = -1;

void noteSignal(int number) {
    const int error = errno;
    const auto byte = static_cast<unsigned char>(number);
    // A full pipe holds thousands of signals that wait already; one more would change nothing.
    (void)!write(signalPipe, &byte, sizeof byte);
    errno = error;
}

class LocalProcess final : public daemon::DaemonProcess {
public:
    void atExit(Handler handler) override { runAtExit(std::move(handler)); }
    void handle(Signal signal, Handler handler) override;
    void announceExit(int status) override { platform::announceExit(status); }
    Task<void> exit(int status) override { return exitOnce(status); }

private:
    void openPipe();
    void serveSignals(int pipe);

    std::mutex mutex;  ///< of what follows
    std::array<Handler, 2> signalHandlers;
    bool hasPipe = false;
};

/// Never destroyed: the signal thread runs on until the process is gone.
LocalProcess& instance() {
    static LocalProcess& process = *new LocalProcess;
    return process;
}

void LocalProcess::handle(Signal signal, Handler handler) {
    {
        const std::lock_guard lock(mutex);
        signalHandlers.at(static_cast<std::size_t>(signal)) = std::move(handler);
        if (!std::exchange(hasPipe, true)) openPipe();
    }
    struct sigaction action{};
    action.sa_handler = &noteSignal;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    concurrency::require(sigaction(numberOf(signal), &action, nullptr) == 0,
                         "the signal can be handled");
}

void LocalProcess::openPipe() {
    std::array<int, 2> ends{};
    concurrency::require(pipe2(ends.data(), O_CLOEXEC) == 0, "the system has pipes");
    (void)fcntl(ends[1], F_SETFL, O_NONBLOCK);  // cannot fail on a pipe
    signalPipe = ends[1];
    std::thread([this, pipe = ends[0]] { serveSignals(pipe); }).detach();
}

void LocalProcess::serveSignals(int pipe) {
    for (;;) {
        unsigned char number = 0;
        if (read(pipe, &number, sizeof number) != 1) continue;  // interrupted
        const Signal signal = number == SIGTERM ? Signal::terminate : Signal::interrupt;
        std::unique_lock lock(mutex);
        const Handler handler = signalHandlers.at(static_cast<std::size_t>(signal));
        lock.unlock();
        concurrency::runOnThisThread(handler());
    }
}

}  // namespace

daemon::DaemonProcess& localProcess() {
    return instance();
}

}  // namespace airflow::platform
