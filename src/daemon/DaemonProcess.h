// DaemonProcess: the seam to the process that the daemon is: how it ends, and what may end it.
#pragma once

#include <cstdint>
#include <functional>

#include "concurrency/Task.h"

namespace airflow::daemon {

/// The signals that the daemon handles; the others keep their default action.
enum class Signal : std::uint8_t { terminate, interrupt };

class DaemonProcess {
public:
    using Handler = std::function<concurrency::Task<void>()>;

    DaemonProcess() = default;
    DaemonProcess(const DaemonProcess&) = delete;
    DaemonProcess& operator=(const DaemonProcess&) = delete;
    virtual ~DaemonProcess() = default;

    /// Adds `handler` to what exit() does before the process is gone. It runs on the thread that
    /// exits, which waits for it.
    virtual void atExit(Handler handler) = 0;

    /// From now on `signal` runs `handler` on the signal-safety queue and does nothing else. The
    /// queue is serial: an event waits for the handler before it. A handler is no signal handler in
    /// the sense of the C library: it may allocate, lock and wait.
    virtual void handle(Signal signal, Handler handler) = 0;

    /// The process is about to end with `status`, 0 to 255: it counts whoever exits first, unless
    /// another was announced before. Any thread may call.
    virtual void announceExit(int status) = 0;

    /// Announces `status`, and ends the process after its exit handlers. Never completes. When two
    /// ask for it, the second waits for ever.
    virtual concurrency::Task<void> exit(int status) = 0;
};

}  // namespace airflow::daemon
