// SignalDescriptor: signals as something to wait for.
#pragma once

#include <signal.h>

#include <initializer_list>
#include <optional>

#include "platform/linux/LocalSocket.h"

namespace airflow::platform {

/// While it lives, the signals do nothing to this thread and to those that it starts but make the
/// descriptor readable. Made before any other thread. Its end takes out those that came.
class SignalDescriptor {
public:
    explicit SignalDescriptor(std::initializer_list<int> signals);
    SignalDescriptor(const SignalDescriptor&) = delete;
    SignalDescriptor& operator=(const SignalDescriptor&) = delete;
    ~SignalDescriptor();

    /// None when the process may have no more descriptors; the signals are blocked all the same.
    [[nodiscard]] const FileDescriptor& descriptor() const { return arrived; }
    /// Takes out one that has come: its number.
    std::optional<int> take();

private:
    sigset_t before{};
    FileDescriptor arrived;
};

/// The two that ask a process to end.
inline constexpr std::initializer_list<int> stopSignals{SIGTERM, SIGINT};

}  // namespace airflow::platform
