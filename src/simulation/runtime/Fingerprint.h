// Fingerprint: a number that tells two sequences of events apart, the same with every compiler.
#pragma once

#include <cstdint>

namespace airflow::simulation {

/// FNV-1a, a number at a time.
class Fingerprint {
public:
    void mix(std::uint64_t number) noexcept { sum = (sum ^ number) * 1099511628211U; }
    [[nodiscard]] std::uint64_t value() const noexcept { return sum; }

private:
    std::uint64_t sum = 14695981039346656037U;
};

}  // namespace airflow::simulation
