// airflow soak --merge: adds up what soaks on several machines have found.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "tool/simulation/SoakReport.h"

namespace airflow::tool {

/// Adds up the results in these files, and reports the sum; each violation is named on `err`.
/// Returns the exit status: 0, or 1 for a violation, or for a file that is no result, or does not
/// go with those before it, which is told with its place. Nothing is written on `out` then.
[[nodiscard]] int mergeSoaks(const std::vector<std::string>& paths,
                             const SoakReportOptions& options, std::ostream& out,
                             std::ostream& err);

}  // namespace airflow::tool
