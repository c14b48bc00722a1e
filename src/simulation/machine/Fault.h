// Fault: something that is wrong with the simulated SMC for a while.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "concurrency/Clock.h"
#include "json/Decoder.h"

namespace airflow::simulation {

/// Applies to the requests of one kind to one key, or to all keys, whether the machine has them or
/// not. Of several faults that fit a request, the first in the machine's list counts.
struct Fault {
    enum class Operation : std::uint8_t { read, write, information, enumeration };

    concurrency::Duration from{};  ///< since the machine was switched on
    concurrency::Duration until = concurrency::Duration::max();  ///< no longer, from here on
    /// Four characters, or "*" for all; for an enumeration the key that stands at its index.
    std::string key = "*";
    Operation operation = Operation::write;
    std::optional<double> value{};  ///< only writes of this value
    /// Only the request of this number; 1 is the first since the machine was switched on.
    std::optional<std::uint64_t> access{};

    std::optional<std::uint8_t> result{};        ///< the SMC answers with this result
    std::optional<std::int32_t> kernelReturn{};  ///< the kernel refuses the whole request
    concurrency::Duration latency{};             ///< the answer takes this long
    /// A read gives this, whatever the key holds, in the type that the key's information claims at
    /// that moment; infinite or not a number, too, where that is "flt ".
    std::optional<double> reading{};
    std::optional<std::uint32_t> size{};  ///< the key's information claims this size
    std::optional<std::string> type{};    ///< and this four-character type
    /// What happens to a write. By default it changes the machine unless the fault refuses it.
    enum class Effect : std::uint8_t { natural, ignored, applied };
    Effect effect = Effect::natural;

    bool operator==(const Fault&) const = default;

    static Fault decode(const json::Decoder& decoder);
};

}  // namespace airflow::simulation
