// SMCNumber: numbers as the simulated SMC stores them; the other direction of the codecs.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "smc/SMCBytes.h"

namespace airflow::simulation {

/// The bytes of `number` in one of the SMC's number types. What does not fit is brought into the
/// type's range, as hardware registers do.
[[nodiscard]] smc::SMCBytes encodeNumber(double number, const std::string& type);

/// The number in the bytes; nothing for a type that holds none.
[[nodiscard]] std::optional<double> decodeNumber(const smc::SMCBytes& bytes, std::uint32_t size,
                                                 const std::string& type);

/// The size of a value of the type in bytes; 0 for a type that is no number.
[[nodiscard]] std::uint32_t sizeOfNumber(const std::string& type);

}  // namespace airflow::simulation
