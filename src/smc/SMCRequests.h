// SMCRequests: everything that is asked of the SMC, above the driver's user client.
#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "smc/SMCBytes.h"
#include "smc/SMCError.h"
#include "smc/SMCParamStruct.h"
#include "smc/SMCUserClient.h"
#include "smc/SMCValue.h"

namespace airflow::smc {

/// One connection to the SMC, spoken to synchronously and by one thread at a time.
///
/// Remembers nothing but the handle: what a key holds is asked anew for every read and write. No
/// request is tried twice, and a failed one leaves the connection as it was. A key that is not
/// four bytes long is a bug and stops the process.
class SMCRequests {
public:
    /// Starts closed. The connection is not closed on destruction: that would take the SMC away
    /// from whoever still returns fans to the firmware at exit, and the kernel closes it then.
    explicit SMCRequests(SMCUserClient& client) : client(client) {}
    SMCRequests(const SMCRequests&) = delete;
    SMCRequests& operator=(const SMCRequests&) = delete;

    /// Has to succeed before anything else does; what is asked of a closed connection fails. Fails
    /// with driverNotFound or openFailed. Opening again replaces the connection when it succeeds.
    [[nodiscard]] std::expected<void, SMCError> open();
    /// Does nothing when closed.
    void close();
    /// The handle of the user client; 0 while closed.
    [[nodiscard]] std::uint32_t connection() const { return handle; }

    /// Sends one record. Fails with notPrivileged or ioReturn; the `result` of the reply is for
    /// the caller to look at.
    [[nodiscard]] std::expected<SMCParamStruct, SMCError> call(const SMCParamStruct& request);

    /// Fails as call() does, and with keyNotFound or smcError.
    [[nodiscard]] std::expected<SMCKeyInfoData, SMCError> getKeyInfo(std::uint32_t key);

    /// Fails as getKeyInfo() does. A value that cannot be decoded is no failure but raw.
    [[nodiscard]] std::expected<SMCValue, SMCError> readValue(std::string_view key);
    /// The same for those who do not need the reason.
    [[nodiscard]] std::optional<SMCValue> tryReadValue(std::string_view key);

    /// Write `value` with the size and type that the SMC gives the key. Return the SMC's result
    /// byte, which other than 0 means that it refused; fail as getKeyInfo() does.
    [[nodiscard]] std::expected<std::uint8_t, SMCError> writeUInt8(std::string_view key,
                                                                   std::uint8_t value);
    [[nodiscard]] std::expected<std::uint8_t, SMCError> writeFloat(std::string_view key,
                                                                   double value);

    /// The most keys that are ever enumerated: many times what a real SMC has.
    ///
    /// The SMC counts its keys in 32 bits, and nothing else can be asked of it while they are
    /// enumerated. A count gone wrong must not keep a release of the fans waiting for hours.
    static constexpr std::uint32_t enumerationLimit = 65536;

    /// The keys that begin with "T" and hold a value that can be decoded, in the SMC's order.
    /// Whatever cannot be read is left out. None when the SMC's count of its keys is not a number.
    [[nodiscard]] std::vector<std::string> discoverTempKeys();

private:
    [[nodiscard]] std::expected<std::uint8_t, SMCError> write(std::string_view key,
                                                              const SMCBytes& bytes);
    [[nodiscard]] std::uint32_t keyCount();
    [[nodiscard]] std::optional<std::string> keyAt(std::uint32_t index);
    [[nodiscard]] bool holdsTemperature(const std::string& key);

    SMCUserClient& client;
    std::uint32_t handle = 0;
};

}  // namespace airflow::smc
