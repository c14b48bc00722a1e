// ToolRun: runs the tool in this process and keeps what it said.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tool/Tool.h"

namespace airflow::tool {

/// The end of a plan's document.
inline constexpr const char* tuningWithoutSmoothing =
    R"("tuning":{"emaAlpha":1,"hysteresisCelsius":2,"maxDeltaRPMPerTick":400,"minDwellSeconds":3}})";

struct ToolRun {
    int status = 0;
    std::string out;
    std::string err;
};

inline ToolRun runTool(std::vector<std::string> arguments, const std::string& input = {}) {
    std::istringstream in(input);
    std::ostringstream out;
    std::ostringstream err;
    const int status = runTool(std::move(arguments), {in, out, err});
    return {.status = status, .out = out.str(), .err = err.str()};
}

inline std::string example(const std::string& name) {
    return std::string(AIRFLOW_EXAMPLES) + "/" + name;
}

inline std::string contentOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// A folder of its own that goes away with the test.
class ScratchFolder {
public:
    ScratchFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "airflowXXXXXX").string();
        path = mkdtemp(pattern.data());
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    ~ScratchFolder() { std::filesystem::remove_all(path); }

    std::string write(const std::string& name, const std::string& content) const {
        std::ofstream(path / name, std::ios::binary) << content;
        return (path / name).string();
    }

    std::filesystem::path path;
};

}  // namespace airflow::tool
