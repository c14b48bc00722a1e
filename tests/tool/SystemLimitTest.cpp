// What the tool says when the system gives it no more descriptors or threads.
#include <gmock/gmock.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>

#include "ToolRun.h"

namespace airflow::tool {
namespace {

using testing::HasSubstr;
using testing::Not;

/// Runs the tool from a shell, whose limit it inherits. All that it says is in `err`.
ToolRun runWithin(const std::string& limit, const std::string& command) {
    // The shell redirects before the limit counts: it needs descriptors for that.
    const std::string line =
        "(ulimit " + limit + " && exec " AIRFLOW_TOOL " " + command + ") 2>&1 < /dev/null";
    ToolRun run;
    FILE* const output = popen(line.c_str(), "r");
    std::array<char, 1024> bytes{};
    while (output && std::fgets(bytes.data(), bytes.size(), output)) run.err += bytes.data();
    const int status = output ? pclose(output) : -1;
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return run;
}

#if __has_feature(undefined_behavior_sanitizer)
constexpr bool needsDescriptorsItself =
    true;  // when it sees an object of a type for the first time
#else
constexpr bool needsDescriptorsItself = false;
#endif

TEST(SystemLimit, ofOpenFilesIsNotTakenForABug) {
    if (needsDescriptorsItself) GTEST_SKIP() << "A sanitizer takes the lack of them for an error.";
    const ScratchFolder folder;
    const std::string path = folder.path.string();
    bool isTold = false;
    // Without a machine the daemon ends by itself once it has all the descriptors that it needs.
    for (int most = 6; most <= 24; ++most) {
        const auto run = runWithin("-n " + std::to_string(most),
                                   "helper --machine-socket " + path + "/none.sock" +
                                       " --helper-socket " + path + "/helper.sock");
        EXPECT_EQ(run.status, 1) << most << ": " << run.err;
        EXPECT_THAT(run.err, Not(HasSubstr("A bug"))) << most;
        isTold |= run.err == "no daemon can be started: Too many open files\n";
    }
    EXPECT_TRUE(isTold);
}

TEST(SystemLimit, ofThreadsIsNotTakenForABug) {
    const ScratchFolder folder;
    // No address space has room for such a stack.
    const std::string limit = "-s 200000000000";
    const auto soak = runWithin(limit, "soak --seeds 1..3 --jobs 2");
    EXPECT_EQ(soak.status, 1);
    EXPECT_THAT(soak.err, HasSubstr("no more threads can be started: "));
    const auto machine =
        runWithin(limit, "machine --machine-socket " + (folder.path / "machine.sock").string());
    EXPECT_EQ(machine.status, 1);
    EXPECT_THAT(machine.err, Not(HasSubstr("A bug")));
}

}  // namespace
}  // namespace airflow::tool
