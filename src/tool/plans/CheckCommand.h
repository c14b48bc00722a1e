// airflow check: are these plans, what would they do, and what should their authors know?
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace airflow::tool {

enum class CheckFormat : std::uint8_t { text, json };

struct CheckOptions {
    std::vector<std::string> paths;  ///< "-" is standard input
    CheckFormat format = CheckFormat::text;
    bool isStrict = false;  ///< warnings count as errors do
    std::string machine;    ///< a preset to hold the plans against; empty: none
    std::string trace;      ///< the file of a trace to hold them against; empty: none
};

/// Reviews each document. As text, plans are summarised on `out` behind what was found, and errors
/// explained on `err`; as JSON, everything found is one object on `out`. Returns the exit status:
/// 0, or 1 when any document has an error, when a strict check has a warning, or when the trace is
/// bad.
[[nodiscard]] int check(const CheckOptions& options, std::istream& in, std::ostream& out,
                        std::ostream& err);

}  // namespace airflow::tool
