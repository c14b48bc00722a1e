// Wire: speaks to a simulated SMC in 80-byte records, known by their byte offsets only.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simulation/machine/SimulatedSMC.h"

namespace airflow::simulation {

inline constexpr std::uint8_t readKey = 5;
inline constexpr std::uint8_t writeKey = 6;
inline constexpr std::uint8_t getKeyByIndex = 8;
inline constexpr std::uint8_t getKeyInfo = 9;

using Bytes = std::vector<std::uint8_t>;

/// The 80 bytes written in `hexadecimal` (upper case); blanks and line ends do not count. A text
/// that holds another number of bytes gives a record of 0xEE, which no reply is.
inline std::array<std::uint8_t, 80> record(std::string_view hexadecimal) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    Bytes halves;
    for (const char character : hexadecimal) {
        const std::size_t digit = digits.find(character);
        if (digit != std::string_view::npos) halves.push_back(static_cast<std::uint8_t>(digit));
    }
    std::array<std::uint8_t, 80> bytes;
    bytes.fill(0xEE);
    for (std::size_t i = 0; halves.size() == 2 * bytes.size() && i < bytes.size(); ++i) {
        bytes[i] = static_cast<std::uint8_t>(halves[2 * i] << 4 | halves[2 * i + 1]);
    }
    return bytes;
}

struct Answer {
    smc::KernelReturn kernelReturn = 0;
    std::array<std::uint8_t, 80> record{};

    [[nodiscard]] std::uint8_t result() const { return record[40]; }
    [[nodiscard]] std::uint32_t size() const { return number(28); }
    [[nodiscard]] std::string type() const { return code(32); }
    [[nodiscard]] std::string key() const { return code(0); }
    [[nodiscard]] Bytes bytes(std::size_t count) const {
        const auto payload = std::span(record).subspan(48, count);
        return {payload.begin(), payload.end()};
    }

private:
    [[nodiscard]] std::uint32_t number(std::size_t at) const {
        std::uint32_t number = 0;
        for (std::size_t i = 4; i-- > 0;) number = number << 8 | record[at + i];
        return number;
    }
    /// Stored with its last character first, as a number in host order is.
    [[nodiscard]] std::string code(std::size_t at) const {
        return {static_cast<char>(record[at + 3]), static_cast<char>(record[at + 2]),
                static_cast<char>(record[at + 1]), static_cast<char>(record[at])};
    }
};

class Wire {
public:
    /// Opens a connection to the SMC.
    explicit Wire(SimulatedSMC& target) : smc(target) {
        const std::uint32_t service = smc.findService("AppleSMC");
        (void)smc.open(service, 0, connection);
        smc.release(service);
    }

    Answer information(std::string_view key) { return send(getKeyInfo, key); }
    Answer read(std::string_view key, std::uint8_t size) { return send(readKey, key, size); }
    /// Declares the size of the bytes that it is given.
    Answer write(std::string_view key, const Bytes& bytes) {
        return send(writeKey, key, static_cast<std::uint8_t>(bytes.size()), bytes);
    }
    Answer enumerate(std::uint8_t index) {
        std::array<std::uint8_t, 80> request{};
        request[42] = getKeyByIndex;
        request[44] = index;
        return send(request);
    }
    Answer send(std::uint8_t selector, std::string_view key, std::uint8_t size = 0,
                const Bytes& bytes = {}) {
        std::array<std::uint8_t, 80> request{};
        for (std::size_t i = 0; i < 4; ++i) request[3 - i] = static_cast<std::uint8_t>(key[i]);
        request[28] = size;
        request[42] = selector;
        for (std::size_t i = 0; i < bytes.size(); ++i) request[48 + i] = bytes[i];
        return send(request);
    }
    Answer send(const std::array<std::uint8_t, 80>& request) {
        Answer answer;
        smc::SMCParamStruct reply = std::bit_cast<smc::SMCParamStruct>(leftovers());
        answer.kernelReturn =
            smc.call(connection, method, std::bit_cast<smc::SMCParamStruct>(request), reply);
        answer.record = std::bit_cast<std::array<std::uint8_t, 80>>(reply);
        return answer;
    }

    std::uint32_t connection = 0;
    std::uint32_t method = 2;

private:
    static std::array<std::uint8_t, 80> leftovers() {
        std::array<std::uint8_t, 80> record;
        record.fill(0xEE);
        return record;
    }

    SimulatedSMC& smc;
};

/// The value of a "flt " key of four bytes.
inline float floatIn(const Answer& answer) {
    std::array<std::uint8_t, 4> bytes{};
    for (std::size_t i = 0; i < 4; ++i) bytes[i] = answer.record[48 + i];
    return std::bit_cast<float>(bytes);
}

}  // namespace airflow::simulation
