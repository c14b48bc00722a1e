// What stops the process when the program itself is wrong. Never for what comes from outside, and
// always before it could harm the hardware: the next start returns the fans to the firmware.
#pragma once

#include <string_view>

namespace airflow::concurrency {

/// Says `violation` on standard error and aborts (SIGABRT, status 134), in every build.
///
/// The line never waits: where standard error cannot take it at once it is dropped, because a
/// process that waits for a reader neither stops nor is started again. It is one line of 512 bytes
/// at most, whatever `violation` holds: control characters become question marks, and what is too
/// long is cut.
[[noreturn]] void abortProcess(std::string_view violation) noexcept;

/// The same, unless a StopGuard of this thread says that the process is a simulated one: then its
/// observer is told, and ProcessStop is thrown.
[[noreturn]] void stopProcess(std::string_view violation);

namespace detail {
[[noreturn]] void stopForUnmet(const char* expectation);
[[noreturn]] void abortForUnmet(const char* expectation) noexcept;
}  // namespace detail

/// Stops the process as stopProcess() does, in release too, when `holds` is false. `expectation`
/// says what should be so.
inline void require(bool holds, const char* expectation) {
    if (!holds) detail::stopForUnmet(expectation);
}

/// The same for functions that are noexcept, which nothing can be thrown through, and for the
/// driver of a simulated process: aborts, whoever is watching.
inline void requireOrAbort(bool holds, const char* expectation) noexcept {
    if (!holds) detail::abortForUnmet(expectation);
}

/// Lets the last line of this process begin with `prefix` (64 bytes at most), and be the only one:
/// what the C++ runtime says of exceptions that nobody catches may wait, so the same is said in its
/// place. Comes before there is a second thread.
void beginLastLineWith(std::string_view prefix) noexcept;

}  // namespace airflow::concurrency
