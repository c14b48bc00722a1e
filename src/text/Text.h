// Text for people: numbers as they would write them, names that cannot upset a terminal.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace airflow::text {

/// The shortest text of a number: 45, 0.3.
[[nodiscard]] std::string plain(double number);

/// A number of things by their English name, whose plural ends in s: "1 fan", "2 fans", "0 fans".
[[nodiscard]] std::string counted(std::uint64_t count, std::string_view noun);

/// A speed without a fraction: "1800 RPM"; with a power of ten from 100000 on.
[[nodiscard]] std::string roundedRPM(double rpm);

/// Who drives a fan whose mode key holds this number, and the number: "forced (1)".
[[nodiscard]] std::string fanModeText(std::int64_t mode);

/// The text with every control character replaced by U+FFFD, so that a name from a file cannot
/// move the cursor, change colours or turn the direction of writing.
[[nodiscard]] std::string printable(std::string_view text);

/// How many characters the text has; counts code points, as padded() does.
[[nodiscard]] std::size_t columnsOf(std::string_view text);

/// The text, cut or filled with blanks to `columns` characters; a cut text ends in "…". Counts
/// code points, which is right for all names that sensors and people use in practice.
[[nodiscard]] std::string padded(std::string_view text, std::size_t columns);

}  // namespace airflow::text
