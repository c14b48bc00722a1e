// PlanFile: a plan document on disk.
#pragma once

#include <cstddef>
#include <expected>
#include <fstream>
#include <optional>
#include <string>

#include "json/Document.h"
#include "plan/FanControlPlan.h"

namespace airflow::tool {

/// The file's bytes, or the system's reason why it cannot be read. Of a file larger than `limit`,
/// which is that of a document, enough to know that it is.
[[nodiscard]] std::expected<std::string, std::string> readFile(
    const std::string& path, std::size_t limit = json::Limits{}.bytes);

/// The same; "-" is `in`.
[[nodiscard]] std::expected<std::string, std::string> readInput(const std::string& path,
                                                                std::istream& in);
/// What messages call it: "standard input" for "-".
[[nodiscard]] std::string inputName(const std::string& path);

/// Opens a file for reading; the reason when it cannot be, or is a folder.
[[nodiscard]] std::optional<std::string> openFile(const std::string& path, std::ifstream& file);

/// The plan in the file, of which "-" is `in`, or one line that says what is wrong with it, and
/// where.
[[nodiscard]] std::expected<plan::FanControlPlan, std::string> readPlan(const std::string& path,
                                                                        std::istream& in);

/// The same for a plan that is played over a trace; not both can be standard input.
[[nodiscard]] std::expected<plan::FanControlPlan, std::string> readPlanBeside(
    const std::string& path, const std::string& trace, std::istream& in);

}  // namespace airflow::tool
