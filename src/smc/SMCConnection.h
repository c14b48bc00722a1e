// SMCConnection: the one handle on the SMC, shared by everybody.
#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <vector>

#include "concurrency/Actor.h"
#include "concurrency/Runtime.h"
#include "concurrency/Task.h"
#include "smc/SMCError.h"
#include "smc/SMCRequests.h"
#include "smc/SMCUserClient.h"
#include "smc/SMCValue.h"
#include "smc/SMCWriting.h"

namespace airflow::smc {

/// Runs the operations of SMCRequests on an executor of its own, where the user client is called
/// from too.
///
/// No operation awaits anything, so that the driver calls of one are never separated by another's.
/// Its owner opens it before anything else, and closes it if anybody does: destruction does not.
class SMCConnection final : public concurrency::Actor, public SMCWriting {
public:
    /// Both outlive the connection.
    SMCConnection(concurrency::Runtime& runtime, SMCUserClient& client);

    /// Fails with driverNotFound or openFailed.
    [[nodiscard]] concurrency::Task<std::expected<void, SMCError>> open();
    /// Does nothing when closed.
    [[nodiscard]] concurrency::Task<void> close();

    /// Fails with notPrivileged, ioReturn, keyNotFound or smcError.
    [[nodiscard]] concurrency::Task<std::expected<SMCValue, SMCError>> readValue(
        std::string key) override;
    [[nodiscard]] concurrency::Task<std::optional<SMCValue>> tryReadValue(std::string key) override;

    [[nodiscard]] concurrency::Task<WriteResult> writeUInt8(std::string key,
                                                            std::uint8_t value) override;
    [[nodiscard]] concurrency::Task<WriteResult> writeFloat(std::string key, double value) override;

    /// The keys that begin with "T" and hold a value that can be decoded, in the SMC's order. Keeps
    /// every other operation waiting for some thousand driver calls.
    [[nodiscard]] concurrency::Task<std::vector<std::string>> discoverTempKeys();

private:
    SMCRequests requests;
};

}  // namespace airflow::smc
