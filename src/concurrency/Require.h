// require: what holds whatever comes from outside. Where it does not, the program is wrong.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace airflow::concurrency {

/// Stops the process, in release too, when `holds` is false. `expectation` says what should be so.
inline void require(bool holds, const char* expectation) noexcept {
    if (holds) return;
    std::fprintf(stderr, "A bug: expected that %s.\n", expectation);
    std::abort();
}

}  // namespace airflow::concurrency
