// FanNumbers: commands that stop the daemon, as they should, and so are not played.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "json/Decoder.h"
#include "plan/FanControlPlan.h"

namespace airflow::fuzz {

/// A fan of any other number has a key that is not four characters long.
[[nodiscard]] inline bool hasKey(std::int64_t fan) {
    return fan >= 0 && fan <= 9;
}

/// A document that is no plan stops nothing.
[[nodiscard]] inline bool allHaveKeys(std::string_view document) {
    const auto plan = json::decode<plan::FanControlPlan>(document);
    return !plan || std::ranges::all_of(plan->fans, hasKey, &plan::FanPlan::fanID);
}

}  // namespace airflow::fuzz
