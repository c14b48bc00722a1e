// SMCError: the one error of SMC access.
#pragma once

#include <cstdint>
#include <string>
#include <variant>

namespace airflow::smc {

/// The driver was found and did not let itself be opened.
struct OpenFailed {
    std::int32_t code = 0;  ///< as the kernel returned it

    bool operator==(const OpenFailed&) const = default;
};

struct KeyNotFound {
    std::string key;

    bool operator==(const KeyNotFound&) const = default;
};

/// The SMC took the request and answered with a result other than success.
struct ErrorResult {
    std::string key;
    std::uint8_t result = 0;

    bool operator==(const ErrorResult&) const = default;
};

/// The request did not reach the SMC.
struct IOReturn {
    std::string operation;
    std::uint32_t code = 0;  ///< as the kernel returned it

    bool operator==(const IOReturn&) const = default;
};

struct DriverNotFound {
    bool operator==(const DriverNotFound&) const = default;
};

/// The kernel keeps this request for root.
struct NotPrivileged {
    bool operator==(const NotPrivileged&) const = default;
};

/// The request was withheld from the driver: the fans are being given back, and it was not part of
/// that.
struct Withheld {
    bool operator==(const Withheld&) const = default;
};

struct SMCError {
    std::variant<OpenFailed, KeyNotFound, ErrorResult, IOReturn, DriverNotFound, NotPrivileged,
                 Withheld>
        reason;

    bool operator==(const SMCError&) const = default;

    [[nodiscard]] static SMCError openFailed(std::int32_t code);
    [[nodiscard]] static SMCError keyNotFound(std::string key);
    [[nodiscard]] static SMCError smcError(std::string key, std::uint8_t result);
    [[nodiscard]] static SMCError ioReturn(std::string operation, std::uint32_t code);
    [[nodiscard]] static SMCError driverNotFound();
    [[nodiscard]] static SMCError notPrivileged();
    [[nodiscard]] static SMCError withheld();

    /// The text that logs and clients are given; its wording is part of the interface.
    [[nodiscard]] std::string description() const;
};

}  // namespace airflow::smc
