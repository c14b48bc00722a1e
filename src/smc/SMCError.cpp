#include "smc/SMCError.h"

#include <fmt/format.h>

#include <utility>

namespace airflow::smc {

namespace {

std::string describe(const OpenFailed& error) {
    return fmt::format("IOServiceOpen failed: {}", error.code);
}

std::string describe(const KeyNotFound& error) {
    return fmt::format("SMC key not found: {}", error.key);
}

std::string describe(const ErrorResult& error) {
    return fmt::format("SMC error on key {}: result=0x{:x}", error.key, error.result);
}

std::string describe(const IOReturn& error) {
    return fmt::format("{} failed: kern_return_t=0x{:x}", error.operation, error.code);
}

std::string describe(const DriverNotFound&) {
    return "AppleSMC IOKit service not found";
}

std::string describe(const NotPrivileged&) {
    return "not privileged (root required) for this SMC call";
}

std::string describe(const Withheld&) {
    return "withheld while the fans are given back";
}

}  // namespace

SMCError SMCError::openFailed(std::int32_t code) {
    return {OpenFailed{code}};
}

SMCError SMCError::keyNotFound(std::string key) {
    return {KeyNotFound{std::move(key)}};
}

SMCError SMCError::smcError(std::string key, std::uint8_t result) {
    return {ErrorResult{std::move(key), result}};
}

SMCError SMCError::ioReturn(std::string operation, std::uint32_t code) {
    return {IOReturn{std::move(operation), code}};
}

SMCError SMCError::driverNotFound() {
    return {DriverNotFound{}};
}

SMCError SMCError::notPrivileged() {
    return {NotPrivileged{}};
}

SMCError SMCError::withheld() {
    return {Withheld{}};
}

std::string SMCError::description() const {
    return std::visit([](const auto& error) { return describe(error); }, reason);
}

}  // namespace airflow::smc
