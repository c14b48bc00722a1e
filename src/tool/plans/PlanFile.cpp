#include "tool/plans/PlanFile.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <istream>

#include "json/Decoder.h"
#include "json/Document.h"
#include "text/Text.h"

namespace airflow::tool {

namespace {

/// At most one byte more than `limit`.
std::string readSome(std::istream& input, std::size_t limit) {
    std::string bytes(limit + 1, '\0');
    input.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<std::size_t>(input.gcount()));
    return bytes;
}

}  // namespace

std::expected<std::string, std::string> readFile(const std::string& path, std::size_t limit) {
    std::ifstream file;
    if (auto reason = openFile(path, file)) return std::unexpected(std::move(*reason));
    errno = 0;
    auto bytes = readSome(file, limit);
    if (file.bad()) return std::unexpected(std::string(std::strerror(errno)));
    return bytes;
}

std::optional<std::string> openFile(const std::string& path, std::ifstream& file) {
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored)) return "it is a folder";
    errno = 0;
    file.open(path, std::ios::binary);
    return file.is_open() ? std::nullopt : std::optional<std::string>(std::strerror(errno));
}

std::expected<std::string, std::string> readInput(const std::string& path, std::istream& in) {
    if (path == "-") {
        auto bytes = readSome(in, json::Limits{}.bytes);
        if (in.bad()) return std::unexpected("the input failed");
        return bytes;
    }
    return readFile(path);
}

std::string inputName(const std::string& path) {
    return path == "-" ? "standard input" : path;
}

std::expected<plan::FanControlPlan, std::string> readPlan(const std::string& path,
                                                          std::istream& in) {
    const std::string name = inputName(path);
    const auto bytes = readInput(path, in);
    if (!bytes) {
        return std::unexpected(
            fmt::format("{}: cannot be read: {}", text::printable(name), bytes.error()));
    }
    auto plan = json::decode<plan::FanControlPlan>(*bytes);
    if (!plan) return std::unexpected(text::printable(plan.error().describe(name)));
    return std::move(*plan);
}

std::expected<plan::FanControlPlan, std::string> readPlanBeside(const std::string& path,
                                                                const std::string& trace,
                                                                std::istream& in) {
    if (path == "-" && trace == "-")
        return std::unexpected("Only one of plan and trace can be standard input.");
    return readPlan(path, in);
}

}  // namespace airflow::tool
