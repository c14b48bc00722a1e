// airflow check: are these plans, and what would they do?
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace airflow::tool {

/// Decodes each document; good ones are summarised on `out`, bad ones explained on `err`.
/// Returns the exit status: 0, or 1 when any document is bad.
[[nodiscard]] int check(const std::vector<std::string>& paths, std::ostream& out,
                        std::ostream& err);

}  // namespace airflow::tool
