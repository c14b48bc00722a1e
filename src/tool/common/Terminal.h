// Terminal: what may be written on one.
#pragma once

namespace airflow::tool {

/// Whether escape sequences may be written: not where TERM is "dumb", nor where the user wants
/// none (NO_COLOR is set and not empty).
[[nodiscard]] bool mayUseEscapes();

/// Whether the descriptor is a terminal on which lines can be drawn over.
[[nodiscard]] bool canDrawInPlace(int descriptor);

}  // namespace airflow::tool
