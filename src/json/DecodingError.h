// Why a JSON text was refused, and where.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace airflow::json {

/// A place in a text. Both count from 1; columns count bytes.
struct Position {
    std::size_t line = 1;
    std::size_t column = 1;

    bool operator==(const Position&) const = default;
};

/// Either the text is no JSON that we read, and `position` says where; or a value in it is not
/// what it has to be, and `codingPath` says which.
struct DecodingError {
    std::string codingPath;  ///< such as "fans[0].mode.curve._0.points[2].celsius"; "" is the root
    std::string description;
    std::optional<Position> position;

    bool operator==(const DecodingError&) const = default;

    /// "file:3:14: text" for malformed JSON, "file: path: text" or "file: text" for wrong values.
    [[nodiscard]] std::string describe(const std::string& file) const;
};

/// Why a value has no JSON form.
struct EncodingError {
    std::string codingPath;
    std::string description;

    bool operator==(const EncodingError&) const = default;
};

}  // namespace airflow::json
