// What stops the process when the program itself is wrong. Never for what comes from outside, and
// always before it could harm the hardware: the next start returns the fans to the firmware.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace airflow::concurrency {

/// Writes `violation` as one line to standard error and aborts, in every build.
[[noreturn]] inline void stopProcess(std::string_view violation) noexcept {
    std::fprintf(stderr, "%.*s\n", static_cast<int>(violation.size()), violation.data());
    std::abort();
}

/// Stops the process, in release too, when `holds` is false. `expectation` says what should be so.
inline void require(bool holds, const char* expectation) noexcept {
    if (holds) return;
    std::fprintf(stderr, "A bug: expected that %s.\n", expectation);
    std::abort();
}

}  // namespace airflow::concurrency
