// Input: one input of a fuzzer, taken apart. A text stands in front, and what is decided by numbers
// is read from the end backwards, so that a text stays readable and can be changed alone.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace airflow::fuzz {

/// When everything is taken, every further number is 0.
class Input {
public:
    /// The bytes outlive the input and the texts taken from it.
    Input(const std::uint8_t* data, std::size_t size)
        : rest(reinterpret_cast<const char*>(data), size) {}

    [[nodiscard]] bool isEmpty() const { return rest.empty(); }
    /// Everything that was not taken as numbers.
    [[nodiscard]] std::string_view text() const { return rest; }

    std::uint8_t byte() {
        if (rest.empty()) return 0;
        const char last = rest.back();
        rest.remove_suffix(1);
        return static_cast<std::uint8_t>(last);
    }
    /// 0 to `limit` - 1; `limit` is above 0.
    std::uint64_t below(std::uint64_t limit) {
        std::uint64_t number = byte();
        for (std::uint64_t reach = 256; reach < limit; reach *= 256) number = number * 256 + byte();
        return number % limit;
    }
    template <typename T, std::size_t size>
    T oneOf(const std::array<T, size>& choices) {
        return choices[below(size)];
    }
    void fill(std::span<std::uint8_t> bytes) {
        for (std::uint8_t& each : bytes) each = byte();
    }

private:
    std::string_view rest;
};

}  // namespace airflow::fuzz
