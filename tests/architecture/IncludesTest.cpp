// The house has rooms, and arrows between them that go one way (docs/architecture.md). This reads
// every #include of src/ and fails on any other arrow.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace airflow {
namespace {

namespace fs = std::filesystem;

using Rooms = std::set<std::string>;

/// What each room may include, besides itself.
const std::map<std::string, Rooms>& allowed() {
    static const std::map<std::string, Rooms> arrows{
        {"concurrency", {}},
        {"json", {}},
        {"plan", {"json"}},
        {"smc", {"concurrency"}},
        {"sensors", {"concurrency", "smc"}},
        {"evaluation", {"concurrency", "plan", "sensors"}},
        {"control", {"concurrency", "json", "plan", "smc", "sensors", "evaluation"}},
        {"daemon", {"concurrency", "json", "plan", "smc", "sensors", "evaluation", "control"}},
        {"platform", {"concurrency", "json", "smc", "sensors", "control", "daemon"}},
        {"simulation",
         {"concurrency", "json", "plan", "smc", "sensors", "evaluation", "control", "daemon"}},
        {"client", {"concurrency", "json", "plan", "control", "daemon"}},
        {"tool",
         {"concurrency", "json", "plan", "smc", "sensors", "evaluation", "control", "daemon",
          "platform", "simulation", "client"}},
    };
    return arrows;
}

/// The room in a line such as `#include "plan/FanCurve.h"`; empty for any other line.
std::string includedRoom(const std::string& line) {
    constexpr std::string_view prefix = "#include \"";
    if (!line.starts_with(prefix)) return {};
    const auto slash = line.find('/', prefix.size());
    return slash == std::string::npos ? "" : line.substr(prefix.size(), slash - prefix.size());
}

std::vector<std::string> wrongIncludes(const fs::path& sources) {
    std::vector<std::string> wrong;
    for (const auto& entry : fs::recursive_directory_iterator(sources)) {
        const auto extension = entry.path().extension();
        if (extension != ".h" && extension != ".cpp" && extension != ".mm") continue;
        const auto relative = entry.path().lexically_relative(sources);
        const std::string room = relative.begin()->string();
        std::ifstream file(entry.path());
        for (std::string line; std::getline(file, line);) {
            const std::string included = includedRoom(line);
            if (included.empty() || included == room) continue;
            const auto arrows = allowed().find(room);
            if (arrows == allowed().end() || !arrows->second.contains(included)) {
                wrong.push_back(relative.string() + ": " + line);
            }
        }
    }
    return wrong;
}

TEST(Includes, followTheArrowsOfTheHouse) {
    EXPECT_EQ(wrongIncludes(AIRFLOW_SOURCES), std::vector<std::string>{});
}

TEST(Includes, everyFolderOfTheSourcesIsARoom) {
    for (const auto& entry : fs::directory_iterator(AIRFLOW_SOURCES)) {
        if (!entry.is_directory()) continue;
        EXPECT_TRUE(allowed().contains(entry.path().filename().string())) << entry.path();
    }
}

TEST(Includes, aWrongArrowIsFound) {
    const fs::path folder = fs::path(testing::TempDir()) / "airflow-includes";
    fs::create_directories(folder / "plan");
    std::ofstream(folder / "plan" / "Wrong.h") << "#include \"plan/UUID.h\"\n"
                                                  "#include <vector>\n"
                                                  "#include \"json/Writer.h\"\n"
                                                  "#include \"control/ControlState.h\"\n";
    EXPECT_EQ(wrongIncludes(folder),
              std::vector<std::string>{"plan/Wrong.h: #include \"control/ControlState.h\""});
    fs::remove_all(folder);
}

}  // namespace
}  // namespace airflow
