#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/posix/StandardError.h"

namespace airflow::platform {
namespace {

/// Puts a pipe in the place of standard error.
class StandardErrorTest : public testing::Test {
protected:
    StandardErrorTest() {
        EXPECT_EQ(pipe(ends.data()), 0);
        saved = dup(STDERR_FILENO);
        dup2(ends[1], STDERR_FILENO);
        close(ends[1]);
    }
    ~StandardErrorTest() override {
        dup2(saved, STDERR_FILENO);
        close(saved);
        closeReader();
    }

    void closeReader() {
        if (ends[0] >= 0) close(ends[0]);
        ends[0] = -1;
    }
    std::string readAll() {
        fcntl(ends[0], F_SETFL, O_NONBLOCK);
        std::string text;
        std::array<char, 4096> part{};
        for (ssize_t count = 0; (count = read(ends[0], part.data(), part.size())) > 0;)
            text.append(part.data(), static_cast<std::size_t>(count));
        return text;
    }

    std::array<int, 2> ends{};
    int saved = -1;
    StandardError sink;
};

TEST_F(StandardErrorTest, linesAreWrittenAsTheyAre) {
    sink.write("[com.brisquell.helper] one °C\n");
    sink.write("two\n");
    EXPECT_EQ(readAll(), "[com.brisquell.helper] one °C\ntwo\n");
}

TEST_F(StandardErrorTest, aFullPipeDropsLinesInsteadOfWaiting) {
    const std::string line(99, 'x');
    for (int i = 0; i < 2000; ++i) sink.write(line + "\n");  // 200 kB into 64 kB
    const std::string kept = readAll();
    EXPECT_GE(kept.size(), 50'000u);
    EXPECT_EQ(kept.size() % 100, 0u);  // whole lines only
    sink.write("room again\n");
    EXPECT_EQ(readAll(), "room again\n");
}

TEST_F(StandardErrorTest, aReaderThatIsGoneEndsNothing) {
    closeReader();
    sink.write("to nobody\n");
    sink.write("again\n");
    SUCCEED() << "still here";
}

/// In a process of its own, whose files may not grow.
[[noreturn]] void writeToAFullFile(StandardError& sink) {
    const rlimit none{.rlim_cur = 0, .rlim_max = 0};
    (void)setrlimit(RLIMIT_FSIZE, &none);
    (void)dup2(fileno(std::tmpfile()), STDERR_FILENO);
    sink.write("to a full file\n");
    std::_Exit(EXIT_SUCCESS);
}

TEST_F(StandardErrorTest, aFileThatMayNotGrowEndsNothing) {
    dup2(saved, STDERR_FILENO);  // where the test's own process tells what went wrong
    EXPECT_EXIT(writeToAFullFile(sink), testing::ExitedWithCode(EXIT_SUCCESS), "");
}

TEST_F(StandardErrorTest, aClosedDescriptorEndsNothing) {
    close(STDERR_FILENO);
    sink.write("to nowhere\n");
    EXPECT_EQ(readAll(), "");
}

}  // namespace
}  // namespace airflow::platform
