#include <fmt/format.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include "ToolRun.h"
#include "tool/machine/TraceFile.h"

namespace airflow::tool {
namespace {

class TraceFileTest : public testing::Test {
protected:
    std::string file(int number = 0) const {
        const auto path = (folder.path / "t.jsonl").string();
        return number == 0 ? path : fmt::format("{}.{}", path, number);
    }
    TraceFile made(std::uint64_t rotateBytes, std::uint64_t keep) const {
        return *TraceFile::create({.path = file(), .rotateBytes = rotateBytes, .keep = keep});
    }

    ScratchFolder folder;
};

/// While it lives, no file of this process grows longer, as on a full disk.
class FullDisk {
public:
    explicit FullDisk(rlim_t bytes) {
        handler = signal(SIGXFSZ, SIG_IGN);
        EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
        const rlimit limit{.rlim_cur = bytes, .rlim_max = before.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;
    ~FullDisk() {
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
        (void)signal(SIGXFSZ, handler);
    }

private:
    rlimit before{};
    void (*handler)(int) = SIG_DFL;
};

TEST_F(TraceFileTest, keepsAllLinesInOneFileUnlessToldASize) {
    TraceFile trace = made(0, 5);
    for (int i = 0; i < 1000; ++i) EXPECT_TRUE(trace.write("0123456789"));
    EXPECT_EQ(std::filesystem::file_size(file()), 11'000U);
    EXPECT_FALSE(std::filesystem::exists(file(1)));
}

TEST_F(TraceFileTest, aLineThatWouldMakeAFileTooLongBeginsTheNextOne) {
    TraceFile trace = made(10, 5);
    for (const char* line : {"aaaa", "bbbb", "cccc", "dd", "e"}) EXPECT_TRUE(trace.write(line));
    EXPECT_EQ(contentOf(file(1)), "aaaa\nbbbb\n") << "exactly as long as allowed";
    EXPECT_EQ(contentOf(file()), "cccc\ndd\ne\n");
}

TEST_F(TraceFileTest, onlyTheNewestFullFilesAreKept) {
    TraceFile trace = made(2, 2);
    for (const char* line : {"a", "b", "c", "d", "e"}) EXPECT_TRUE(trace.write(line));
    EXPECT_EQ(contentOf(file()), "e\n");
    EXPECT_EQ(contentOf(file(1)), "d\n");
    EXPECT_EQ(contentOf(file(2)), "c\n");
    EXPECT_FALSE(std::filesystem::exists(file(3)));
}

TEST_F(TraceFileTest, withNoneToKeepOnlyTheNewestFileIsThere) {
    TraceFile trace = made(2, 0);
    for (const char* line : {"a", "b", "c"}) EXPECT_TRUE(trace.write(line));
    EXPECT_EQ(contentOf(file()), "c\n");
    EXPECT_FALSE(std::filesystem::exists(file(1)));
}

TEST_F(TraceFileTest, aLineThatIsLongerThanAFileMayBeHasOneOfItsOwn) {
    TraceFile trace = made(3, 5);
    for (const char* line : {"aaaaaa", "b", "c"}) EXPECT_TRUE(trace.write(line));
    EXPECT_EQ(contentOf(file(2)), "aaaaaa\n");
    EXPECT_EQ(contentOf(file(1)), "b\n");
    EXPECT_EQ(contentOf(file()), "c\n");
}

TEST_F(TraceFileTest, recordingsThatAreThereAreNotReplaced) {
    (void)folder.write("t.jsonl", "mine");
    EXPECT_EQ(TraceFile::create({.path = file()}).error(),
              file() + ": cannot be created: File exists");
    EXPECT_EQ(contentOf(file()), "mine");
    std::filesystem::rename(file(), file(1));
    EXPECT_EQ(TraceFile::create({.path = file(), .rotateBytes = 100}).error(),
              file(1) + ": cannot be created: File exists");
    EXPECT_TRUE(TraceFile::create({.path = file()})) << "which replaces nothing";
    EXPECT_EQ(contentOf(file(1)), "mine");
}

TEST_F(TraceFileTest, aFileThatCannotBeMadeIsToldWithTheReason) {
    const auto path = file() + "/no";
    EXPECT_EQ(TraceFile::create({.path = path}).error(),
              path + ": cannot be created: No such file or directory");
}

TEST_F(TraceFileTest, aFullDiskLeavesWholeLinesOnly) {
    TraceFile trace = made(0, 5);
    {
        const FullDisk full(14);
        EXPECT_TRUE(trace.write("0123456789"));
        const auto written = trace.write("abcdef");
        ASSERT_FALSE(written);
        EXPECT_EQ(written.error(), file() + ": cannot be written: File too large");
    }
    EXPECT_EQ(contentOf(file()), "0123456789\n");
    EXPECT_TRUE(trace.write("abcdef")) << "once there is room again";
    EXPECT_EQ(contentOf(file()), "0123456789\nabcdef\n");
}

}  // namespace
}  // namespace airflow::tool
