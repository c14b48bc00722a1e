#include "tool/simulation/SoakReport.h"

#include <fmt/format.h>

#include <algorithm>
#include <ostream>

namespace airflow::tool {

using simulation::SoakResult;
using simulation::sometimes;

int report(const SoakResult& result, const SoakReportOptions& options, std::ostream& out,
           std::ostream& err) {
    if (options.format == SoakFormat::json) {
        const auto document = json::encode(result);
        if (!document) {
            err << "the result has no JSON form: " << document.error().description << '\n';
            return 1;
        }
        out << *document << '\n';
    } else if (options.requiresEverything) {
        for (std::size_t i = 0; i < sometimes.size(); ++i) {
            out << fmt::format("{:>10} × {}\n", result.counts.at(i), sometimes.at(i));
        }
    }
    const bool isMissing =
        options.requiresEverything && std::ranges::find(result.counts, 0U) != result.counts.end();
    if (isMissing) err << "something that has to happen in a soak never did\n";
    return isMissing || !result.violations.empty() ? 1 : 0;
}

}  // namespace airflow::tool
