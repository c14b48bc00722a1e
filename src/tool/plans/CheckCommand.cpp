#include "tool/plans/CheckCommand.h"

#include <fmt/format.h>

#include <ostream>

#include "tool/plans/PlanFile.h"
#include "tool/plans/PlanSummary.h"

namespace airflow::tool {

namespace {

std::string counted(std::size_t count, const char* noun) {
    return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

}  // namespace

int check(const std::vector<std::string>& paths, std::ostream& out, std::ostream& err) {
    int status = 0;
    for (const std::string& path : paths) {
        const auto plan = readPlan(path);
        if (!plan) {
            err << plan.error() << '\n';
            status = 1;
            continue;
        }
        out << path << ": " << counted(plan->fans.size(), "fan") << ", "
            << counted(plan->rules.size(), "rule") << '\n'
            << summarise(*plan);
    }
    return status;
}

}  // namespace airflow::tool
