// PlanFile: a plan document on disk.
#pragma once

#include <cstddef>
#include <expected>
#include <iosfwd>
#include <string>

#include "json/Document.h"
#include "plan/FanControlPlan.h"

namespace airflow::tool {

/// The file's bytes, or the system's reason why it cannot be read. Of a file larger than `limit`,
/// which is that of a document, enough to know that it is.
[[nodiscard]] std::expected<std::string, std::string> readFile(
    const std::string& path, std::size_t limit = json::Limits{}.bytes);

/// The same, from a stream that is open.
[[nodiscard]] std::string readDocument(std::istream& in);

/// The plan in the file, or one line that says what is wrong with it, and where.
[[nodiscard]] std::expected<plan::FanControlPlan, std::string> readPlan(const std::string& path);

}  // namespace airflow::tool
