#include "json/DecodingError.h"

#include <fmt/format.h>

namespace airflow::json {

std::string DecodingError::describe(const std::string& file) const {
    if (position) {
        return fmt::format("{}:{}:{}: {}", file, position->line, position->column, description);
    }
    if (codingPath.empty()) return fmt::format("{}: {}", file, description);
    return fmt::format("{}: {}: {}", file, codingPath, description);
}

}  // namespace airflow::json
