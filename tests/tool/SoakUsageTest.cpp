#include <gmock/gmock.h>

#include "ToolRun.h"

namespace airflow::tool {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

TEST(SoakUsage, saysWhatIsWrongWithTheSeeds) {
    const auto errorOf = [](const std::string& seeds) {
        const auto run = runTool({"soak", "--seeds", seeds});
        return run.err.substr(0, run.err.find('\n'));
    };
    EXPECT_EQ(errorOf("12abc"),
              "--seeds: expected a seed from 0 to 9223372036854775807, or two of them as in "
              "1..1000, not \"12abc\"");
    EXPECT_THAT(errorOf("1..2..3"), HasSubstr("not \"1..2..3\""));
    EXPECT_THAT(errorOf("3..-1"), HasSubstr("not \"3..-1\""));
    EXPECT_EQ(errorOf("3..1"), "--seeds: 3..1 ends before it begins");
}

TEST(SoakUsage, withMinutesStillTriesNoOtherSeedsThanThoseNamed) {
    const auto run = runTool({"soak", "--seeds", "3..4", "--minutes", "1000", "--format", "json"});
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out, HasSubstr(R"("done":[{"first":3,"last":4}])"));
}

TEST(SoakUsage, refusesAFolderForFailuresBeforeItBegins) {
    const ScratchFolder folder;
    const auto errorOf = [](const std::string& path) {
        const auto run = runTool({"soak", "--seeds", "1", "--failures", path});
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.out, "");
        return run.err.substr(0, run.err.find('\n'));
    };
    const std::string missing = (folder.path / "missing").string();
    EXPECT_EQ(errorOf(missing), "--failures: " + missing + ": there is no such folder");
    const std::string file = folder.write("file", "");
    EXPECT_EQ(errorOf(file), "--failures: " + file + ": it is not a folder");
}

TEST(SoakUsage, ofOneSeedIsToldInTheSingular) {
    const auto run = runTool({"soak", "--seeds", "1"});
    EXPECT_THAT(run.out, StartsWith("1 seed, "));
    EXPECT_THAT(run.out, EndsWith(", 0 violations\n"));
}

}  // namespace
}  // namespace airflow::tool
