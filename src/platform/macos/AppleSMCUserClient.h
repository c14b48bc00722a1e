// AppleSMCUserClient: the kernel's driver of the SMC, through IOKit. macOS only.
#pragma once

#include "smc/SMCUserClient.h"

namespace airflow::platform {

/// Stateless: the handles are the caller's.
class AppleSMCUserClient final : public smc::SMCUserClient {
public:
    [[nodiscard]] std::uint32_t findService(const std::string& className) override;
    [[nodiscard]] smc::KernelReturn open(std::uint32_t service, std::uint32_t type,
                                         std::uint32_t& connection) override;
    void release(std::uint32_t service) override;
    [[nodiscard]] smc::KernelReturn call(std::uint32_t connection, std::uint32_t method,
                                         const smc::SMCParamStruct& request,
                                         smc::SMCParamStruct& reply) override;
    void close(std::uint32_t connection) override;
};

}  // namespace airflow::platform
