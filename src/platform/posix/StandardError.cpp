#include "platform/posix/StandardError.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "concurrency/Require.h"
#include "daemon/LogLines.h"

namespace airflow::platform {

namespace {

/// Whether a line can be written without waiting. A pipe is writable while it has room for at least
/// PIPE_BUF bytes, more than a line of the log has. POLLNVAL is how macOS answers for terminals,
/// and how every system does for a closed descriptor, which the write itself finds out.
bool hasRoom() {
    pollfd descriptor{.fd = STDERR_FILENO, .events = POLLOUT, .revents = 0};
    return poll(&descriptor, 1, 0) == 1 && (descriptor.revents & (POLLOUT | POLLNVAL)) != 0;
}

}  // namespace

void StandardError::write(std::string_view line) {
    // A pipe whose reader is gone raises SIGPIPE, whose default action would end the process. Its
    // other users learn the same from the result of their writes.
    (void)signal(SIGPIPE, SIG_IGN);
    (void)signal(SIGXFSZ, SIG_IGN);  // the same for a log file that may not grow any more
    while (!line.empty() && hasRoom()) {
        const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;
        line.remove_prefix(static_cast<std::size_t>(written));
    }
}

void beginLastLineAsTheLog() {
    std::string beginning = daemon::logLine("");
    beginning.pop_back();  // the newline
    concurrency::beginLastLineWith(beginning);
}

}  // namespace airflow::platform
