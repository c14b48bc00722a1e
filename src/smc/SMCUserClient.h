// SMCUserClient: the seam to the kernel's driver of the SMC. Below it nothing is decided.
#pragma once

#include <cstdint>
#include <string>

#include "smc/SMCParamStruct.h"

namespace airflow::smc {

/// What the kernel returns: 0 for success, anything else for a failure.
using KernelReturn = std::int32_t;

inline constexpr KernelReturn kernelSuccess = 0;
/// The kernel keeps the request for root (kIOReturnNotPrivileged).
inline constexpr KernelReturn kernelNotPrivileged = static_cast<KernelReturn>(0xE00002C1);

/// The few things that the request logic needs of the kernel. Never called by two threads at once;
/// every operation blocks until the kernel has answered, usually for some microseconds. Failures
/// are return codes; nothing throws.
class SMCUserClient {
public:
    SMCUserClient() = default;
    SMCUserClient(const SMCUserClient&) = delete;
    SMCUserClient& operator=(const SMCUserClient&) = delete;
    virtual ~SMCUserClient() = default;

    /// The first registered service of that class, for the caller to release; 0 if there is none.
    [[nodiscard]] virtual std::uint32_t findService(const std::string& className) = 0;

    /// Opens a user client of the service for this process. Only on success does `connection`
    /// hold a handle, for the caller to close.
    [[nodiscard]] virtual KernelReturn open(std::uint32_t service, std::uint32_t type,
                                            std::uint32_t& connection) = 0;

    /// Gives back what findService() returned. An open connection does not need it.
    virtual void release(std::uint32_t service) = 0;

    /// Sends `request` through the structure method of that number and waits for the reply. The
    /// driver overwrites as much of `reply` as it answers with. A connection of 0 is an ordinary
    /// failure.
    [[nodiscard]] virtual KernelReturn call(std::uint32_t connection, std::uint32_t method,
                                            const SMCParamStruct& request,
                                            SMCParamStruct& reply) = 0;

    /// Ends a connection that open() returned.
    virtual void close(std::uint32_t connection) = 0;
};

}  // namespace airflow::smc
