#include "FalsifiedDriver.h"

#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <span>

#include "concurrency/Require.h"
#include "smc/FourCharCode.h"

namespace airflow::fuzz {

using concurrency::require;
using smc::SMCParamStruct;
using Selector = SMCParamStruct::Selector;

namespace {

constexpr std::array<std::uint8_t, 8> results{0, 0x84, 0x82, 0x86, 0x87, 0x89, 1, 0xFF};
constexpr std::array<std::uint32_t, 8> types{smc::fourCharCode("flt "), smc::fourCharCode("ui8 "),
                                             smc::fourCharCode("ui16"), smc::fourCharCode("ui32"),
                                             smc::fourCharCode("fpe2"), smc::fourCharCode("sp78"),
                                             smc::fourCharCode("ch8*"), 0xFFFEFDFC};
constexpr std::array<std::uint32_t, 8> sizes{4, 1, 2, 0, 32, 33, 0x80000000, 0xFFFFFFFF};

bool isModeKey(std::string_view key) {
    return key[0] == 'F' && key[1] >= '0' && key[1] <= '9' &&
           (key.substr(2) == "Md" || key.substr(2) == "md");
}

void checkWrite(const SMCParamStruct& request) {
    const std::string key = smc::toString(request.key);
    float number = 0;
    std::memcpy(&number, request.bytes.data(), sizeof number);
    if (isModeKey(key) || key == "Ftst")
        require(request.bytes[0] <= 1, "modes and Ftst are written as 0 or 1");
    else if (key[0] == 'F' && key.ends_with("Tg"))
        require(std::isfinite(number), "a target is a number");
    else
        require(false, "only modes, targets and Ftst are written");
}

}  // namespace

std::uint32_t FalsifiedDriver::findService(const std::string& className) {
    return smc.findService(className);
}

smc::KernelReturn FalsifiedDriver::open(std::uint32_t service, std::uint32_t type,
                                        std::uint32_t& connection) {
    return smc.open(service, type, connection);
}

void FalsifiedDriver::release(std::uint32_t service) {
    smc.release(service);
}

void FalsifiedDriver::close(std::uint32_t connection) {
    smc.close(connection);
}

smc::KernelReturn FalsifiedDriver::call(std::uint32_t connection, std::uint32_t method,
                                        const SMCParamStruct& request, SMCParamStruct& reply) {
    require(method == static_cast<std::uint32_t>(Selector::ypcEvent), "there is one method");
    if (request.data8 == static_cast<std::uint8_t>(Selector::writeKey)) checkWrite(request);
    const std::uint8_t choice = input.byte();
    if (choice == 1) return smc::kernelNotPrivileged;
    if (choice == 2) return static_cast<smc::KernelReturn>(input.below(UINT32_MAX) + 1);
    SMCParamStruct honest = reply;
    const smc::KernelReturn code = smc.call(connection, method, request, honest);
    if (choice == 3 && honest.result == 0) return code;  // without an answer
    reply = honest;
    // Whoever is told once that there is a mode key writes to it for ever.
    if (honest.result == simulation::SimulatedSMC::keyNotFound) return code;
    if (choice == 4) reply.result = input.oneOf(results);
    if (choice > 4 && choice < 16) falsify(reply);
    return code;
}

void FalsifiedDriver::falsify(SMCParamStruct& reply) {
    switch (input.below(5)) {
        case 0: reply.keyInfo.dataType = input.oneOf(types); break;
        case 1: reply.keyInfo.dataSize = input.oneOf(sizes); break;
        case 2: input.fill(std::span(reply.bytes).first(4)); break;
        case 3: input.fill(reply.bytes); break;
        default: {
            std::array<std::uint8_t, sizeof reply> record{};
            input.fill(record);
            reply = std::bit_cast<SMCParamStruct>(record);
        }
    }
}

}  // namespace airflow::fuzz
