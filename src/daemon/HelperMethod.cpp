#include "daemon/HelperMethod.h"

#include <algorithm>

namespace airflow::daemon {

std::string_view nameOf(HelperMethod method) {
    return helperMethodNames.at(static_cast<std::size_t>(method));
}

std::optional<HelperMethod> helperMethodNamed(std::string_view name) {
    const auto* const found = std::ranges::find(helperMethodNames, name);
    if (found == helperMethodNames.end()) return std::nullopt;
    return static_cast<HelperMethod>(found - helperMethodNames.begin());
}

}  // namespace airflow::daemon
