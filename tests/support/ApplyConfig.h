// applyConfig: the request line that carries a plan.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "wire/Request.h"

namespace airflow::tests {

/// Without its newline.
inline std::string applyConfig(std::int64_t id, std::string plan) {
    auto line = wire::requestLine(id, daemon::commands::ApplyConfig{.plan = std::move(plan)});
    std::string text = std::move(line).value();
    text.pop_back();
    return text;
}

}  // namespace airflow::tests
