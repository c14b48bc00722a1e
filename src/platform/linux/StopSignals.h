// StopSignals: SIGTERM and SIGINT as something to wait for.
#pragma once

#include <signal.h>

#include "platform/linux/LocalSocket.h"

namespace airflow::platform {

/// While it lives, the two signals do nothing to this thread and to those that it starts but make
/// the descriptor readable. Made before any other thread. Its end takes out those that came.
class StopSignals {
public:
    StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;
    ~StopSignals();

    [[nodiscard]] const FileDescriptor& descriptor() const { return arrived; }

private:
    sigset_t before{};
    FileDescriptor arrived;
};

}  // namespace airflow::platform
