// FalsifiedDriver: the SMC's driver of an honest machine, whose answers an input falsifies.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Input.h"
#include "simulation/machine/SimulatedSMC.h"

namespace airflow::fuzz {

/// While the input lasts, it decides for each request whether the answer is the machine's, or what
/// is wrong with it; after that all answers are true. Counts of fans and keys are refused at
/// most, never falsified: a wrong one stops the process, as it should. Nor is there ever said to be
/// a key that the machine does not have: the lie would be believed for ever.
///
/// Stops the process when it is asked for something that nobody may ask an SMC for.
class FalsifiedDriver final : public smc::SMCUserClient {
public:
    /// Both outlive it.
    FalsifiedDriver(simulation::SimulatedSMC& honest, Input& input) : smc(honest), input(input) {}

    std::uint32_t findService(const std::string& className) override;
    smc::KernelReturn open(std::uint32_t service, std::uint32_t type,
                           std::uint32_t& connection) override;
    void release(std::uint32_t service) override;
    smc::KernelReturn call(std::uint32_t connection, std::uint32_t method,
                           const smc::SMCParamStruct& request, smc::SMCParamStruct& reply) override;
    void close(std::uint32_t connection) override;

private:
    void falsify(smc::SMCParamStruct& reply);

    simulation::SimulatedSMC& smc;
    Input& input;
};

}  // namespace airflow::fuzz
