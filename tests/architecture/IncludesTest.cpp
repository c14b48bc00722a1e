// The sources consist of modules, and the arrows between them go one way (docs/architecture.md).
// This reads every #include of src/ and fails on any other arrow.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace airflow {
namespace {

namespace fs = std::filesystem;

using Modules = std::set<std::string>;

/// No folder holds more files than somebody can see at a glance.
constexpr std::size_t mostFilesOfAFolder = 26;

/// What each module may include, besides itself. A module is a folder below src/, by its path.
const std::map<std::string, Modules>& allowed() {
    static const std::map<std::string, Modules> arrows{
        {"concurrency", {}},
        {"text", {}},
        {"numbers", {}},
        {"json", {"numbers"}},
        {"plan", {"json"}},
        {"smc", {"concurrency"}},
        {"sensors", {"numbers", "concurrency", "smc"}},
        {"evaluation", {"numbers", "concurrency", "plan", "sensors"}},
        {"control", {"numbers", "concurrency", "json", "plan", "smc", "sensors", "evaluation"}},
        {"guard", {"concurrency", "smc", "sensors", "control"}},
        {"daemon",
         {"numbers", "concurrency", "json", "plan", "smc", "sensors", "evaluation", "control",
          "guard"}},
        {"wire", {"concurrency", "json", "control", "daemon"}},
        {"client", {"concurrency", "control", "daemon", "wire"}},
        {"review", {"text", "json", "plan", "smc", "sensors", "evaluation", "control"}},
        {"platform/posix", {"concurrency", "sensors", "daemon"}},
        {"platform/linux", {"concurrency", "sensors", "daemon", "wire", "platform/posix"}},
        {"platform/macos",
         {"numbers", "concurrency", "smc", "sensors", "guard", "control", "daemon",
          "platform/posix"}},
        {"simulation/runtime", {"concurrency"}},
        {"simulation/machine", {"concurrency", "json", "smc", "sensors", "simulation/runtime"}},
        {"simulation/daemon",
         {"concurrency", "smc", "sensors", "control", "daemon", "simulation/runtime",
          "simulation/machine"}},
        {"simulation/scenario",
         {"concurrency", "json", "plan", "sensors", "control", "daemon", "simulation/runtime",
          "simulation/machine", "simulation/daemon"}},
        {"simulation/oracle",
         {"concurrency", "control", "simulation/runtime", "simulation/machine",
          "simulation/scenario"}},
        {"simulation/verification",
         {"json", "simulation/runtime", "simulation/machine", "simulation/scenario",
          "simulation/oracle"}},
        {"remote",
         {"concurrency", "text", "json", "smc", "sensors", "platform/linux", "simulation/machine"}},
        {"tool",
         {"concurrency",
          "text",
          "json",
          "plan",
          "smc",
          "sensors",
          "evaluation",
          "control",
          "daemon",
          "platform/linux",
          "platform/posix",
          "client",
          "review",
          "remote",
          "simulation/runtime",
          "simulation/machine",
          "simulation/daemon",
          "simulation/scenario",
          "simulation/oracle",
          "simulation/verification"}},
    };
    return arrows;
}

/// The module that a file of src/ belongs to; empty when it belongs to none.
std::string moduleOf(const fs::path& file) {
    for (fs::path folder = file.parent_path(); !folder.empty(); folder = folder.parent_path()) {
        if (allowed().contains(folder.generic_string())) return folder.generic_string();
    }
    return {};
}

/// The file in a line such as `#include "plan/FanCurve.h"`; empty for any other line.
std::string includedFile(const std::string& line) {
    constexpr std::string_view prefix = "#include \"";
    if (!line.starts_with(prefix)) return {};
    const std::string file = line.substr(prefix.size(), line.rfind('"') - prefix.size());
    return file.contains('/') ? file : std::string();
}

std::vector<fs::path> sourceFiles(const fs::path& sources) {
    std::vector<fs::path> files;
    for (const auto& entry : fs::recursive_directory_iterator(sources)) {
        const auto extension = entry.path().extension();
        if (extension != ".h" && extension != ".cpp" && extension != ".mm") continue;
        files.push_back(entry.path().lexically_relative(sources));
    }
    return files;
}

std::vector<std::string> wrongIncludes(const fs::path& sources) {
    std::vector<std::string> wrong;
    for (const fs::path& relative : sourceFiles(sources)) {
        const std::string module = moduleOf(relative);
        std::ifstream file(sources / relative);
        for (std::string line; std::getline(file, line);) {
            const std::string included = includedFile(line);
            if (included.empty()) continue;
            const std::string other = moduleOf(included);
            if (other == module) continue;
            const auto arrows = allowed().find(module);
            if (arrows == allowed().end() || !arrows->second.contains(other)) {
                wrong.push_back(relative.string() + ": " + line);
            }
        }
    }
    return wrong;
}

TEST(Includes, followTheArrowsBetweenModules) {
    EXPECT_EQ(wrongIncludes(AIRFLOW_SOURCES), std::vector<std::string>{});
}

/// The files that include a header whose name begins so.
std::set<std::string> includersOf(const std::string& header) {
    std::set<std::string> files;
    for (const fs::path& relative : sourceFiles(AIRFLOW_SOURCES)) {
        std::ifstream file(fs::path(AIRFLOW_SOURCES) / relative);
        for (std::string line; std::getline(file, line);) {
            if (line.starts_with("#include <" + header)) files.insert(relative.generic_string());
        }
    }
    return files;
}

TEST(Includes, ofTheLibraryThatReadsJSONAreInTheModuleForItAlone) {
    std::set<std::string> modules;
    for (const std::string& file : includersOf("rapidjson/")) modules.insert(moduleOf(file));
    EXPECT_EQ(modules, std::set<std::string>{"json"});
}

/// It takes longer to read than most of our files.
TEST(Includes, ofTheEventLoopAreInNoHeaderThatManyFilesRead) {
    std::set<std::string> headers;
    for (const std::string& file : includersOf("asio/")) {
        if (file.ends_with(".h")) headers.insert(file);
    }
    EXPECT_EQ(headers,
              (std::set<std::string>{"platform/linux/Acceptor.h", "platform/linux/WatchedSocket.h",
                                     "remote/MachineConnection.h"}));
    for (const std::string& header : headers) {
        for (const fs::path& relative : sourceFiles(AIRFLOW_SOURCES)) {
            const std::string module = moduleOf(relative);
            if (module == "platform/linux" || module == "remote") continue;
            std::ifstream file(fs::path(AIRFLOW_SOURCES) / relative);
            for (std::string line; std::getline(file, line);) {
                EXPECT_NE(includedFile(line), header) << relative;
            }
        }
    }
}

TEST(Includes, ofEveryFileBelongToAModule) {
    for (const fs::path& file : sourceFiles(AIRFLOW_SOURCES)) {
        EXPECT_NE(moduleOf(file), "") << file;
    }
}

TEST(Includes, noArrowGoesBack) {
    for (const auto& [module, needs] : allowed()) {
        for (const std::string& need : needs) {
            ASSERT_TRUE(allowed().contains(need)) << module << " needs " << need;
            EXPECT_FALSE(allowed().at(need).contains(module)) << module << " and " << need;
        }
    }
}

TEST(Includes, aWrongArrowIsFound) {
    const fs::path folder = fs::path(testing::TempDir()) / "airflow-includes";
    fs::create_directories(folder / "plan");
    fs::create_directories(folder / "simulation" / "machine");
    std::ofstream(folder / "plan" / "Wrong.h") << "#include \"plan/UUID.h\"\n"
                                                  "#include <vector>\n"
                                                  "#include \"json/Writer.h\"\n"
                                                  "#include \"control/ControlState.h\"\n";
    std::ofstream(folder / "simulation" / "machine" / "Wrong.cpp")
        << "#include \"simulation/machine/Fault.h\"\n"
           "#include \"simulation/scenario/Scenario.h\"\n";
    auto wrong = wrongIncludes(folder);
    std::ranges::sort(wrong);
    EXPECT_EQ(wrong,
              (std::vector<std::string>{
                  "plan/Wrong.h: #include \"control/ControlState.h\"",
                  "simulation/machine/Wrong.cpp: #include \"simulation/scenario/Scenario.h\""}));
    fs::remove_all(folder);
}

TEST(Folders, showTheirFilesAtAGlance) {
    std::map<fs::path, std::size_t> files;
    for (const char* const root : {AIRFLOW_SOURCES, AIRFLOW_TEST_SOURCES}) {
        for (const fs::path& file : sourceFiles(root)) ++files[root / file.parent_path()];
    }
    for (const auto& [folder, count] : files) EXPECT_LE(count, mostFilesOfAFolder) << folder;
}

}  // namespace
}  // namespace airflow
