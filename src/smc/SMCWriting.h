// SMCWriting: what a controller of fans needs of the SMC.
#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>

#include "concurrency/Task.h"
#include "smc/SMCError.h"
#include "smc/SMCValue.h"

namespace airflow::smc {

/// Every operation runs whole on the executor of whoever implements it; other operations of the
/// caller may run before it is back. A key that is not four bytes long is a bug and stops the
/// process.
class SMCWriting {
public:
    /// The SMC's answer to a write that reached it: 0 when it was taken, else why it was refused.
    using WriteResult = std::expected<std::uint8_t, SMCError>;

    SMCWriting() = default;
    SMCWriting(const SMCWriting&) = delete;
    SMCWriting& operator=(const SMCWriting&) = delete;
    virtual ~SMCWriting() = default;

    [[nodiscard]] virtual concurrency::Task<WriteResult> writeUInt8(std::string key,
                                                                    std::uint8_t value) = 0;
    /// Writes `value` in single precision, rounded to nearest.
    [[nodiscard]] virtual concurrency::Task<WriteResult> writeFloat(std::string key,
                                                                    double value) = 0;
    /// Nothing, whatever the reason, when the key cannot be read.
    [[nodiscard]] virtual concurrency::Task<std::optional<SMCValue>> tryReadValue(
        std::string key) = 0;
    /// The same, and why when the key cannot be read: keyNotFound for one that does not exist.
    [[nodiscard]] virtual concurrency::Task<std::expected<SMCValue, SMCError>> readValue(
        std::string key) = 0;
    /// Whether writes that force a fan reach the SMC at present. Any thread may ask.
    [[nodiscard]] virtual bool takesForcing() const { return true; }
};

}  // namespace airflow::smc
