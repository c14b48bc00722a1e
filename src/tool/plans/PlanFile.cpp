#include "tool/plans/PlanFile.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <istream>

#include "json/Decoder.h"
#include "json/Document.h"
#include "text/Text.h"

namespace airflow::tool {

std::expected<std::string, std::string> readFile(const std::string& path, std::size_t limit) {
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    std::string bytes;
    if (file.is_open()) {
        bytes.resize(limit + 1);
        file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }
    if (!file.is_open() || file.bad()) return std::unexpected(std::string(std::strerror(errno)));
    bytes.resize(static_cast<std::size_t>(file.gcount()));
    return bytes;
}

std::string readDocument(std::istream& in) {
    std::string bytes(json::Limits{}.bytes + 1, '\0');
    in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<std::size_t>(in.gcount()));
    return bytes;
}

std::expected<plan::FanControlPlan, std::string> readPlan(const std::string& path) {
    const auto bytes = readFile(path);
    if (!bytes) {
        return std::unexpected(
            fmt::format("{}: cannot be read: {}", text::printable(path), bytes.error()));
    }
    auto plan = json::decode<plan::FanControlPlan>(*bytes);
    if (!plan) return std::unexpected(text::printable(plan.error().describe(path)));
    return std::move(*plan);
}

}  // namespace airflow::tool
