// The end of a process in which the program is wrong. tests/process has the same of whole programs.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "concurrency/Require.h"

namespace airflow::concurrency {
namespace {

const testing::KilledBySignal isAborted(SIGABRT);

void throwTwoLines() {
    throw std::runtime_error("two\nlines");
}

void throwFromNoexcept() noexcept {
    throwTwoLines();
}

TEST(RequireDeathTest, whatHoldsStopsNothing) {
    require(true, "this holds");
    requireOrAbort(true, "this holds");
    SUCCEED() << "still here";
}

TEST(RequireDeathTest, aBugSaysWhatWasExpectedAndAborts) {
    EXPECT_EXIT(require(false, "it holds"), isAborted, "^A bug: expected that it holds\\.\n$");
    EXPECT_EXIT(requireOrAbort(false, "it holds"), isAborted,
                "^A bug: expected that it holds\\.\n$");
    EXPECT_EXIT(stopProcess("no, 10 °C"), isAborted, "^no, 10 °C\n$");
    EXPECT_EXIT(abortProcess("no"), isAborted, "^no\n$");
}

TEST(RequireDeathTest, theLineIsOneLineWhateverItTells) {
    EXPECT_EXIT(stopProcess("key \"F\n0\x01\x7F\t\""), isAborted, "^key \"F\\?0\\?\\?\\?\"\n$");
}

TEST(RequireDeathTest, theLineHasFiveHundredTwelveBytesAtMost) {
    EXPECT_EXIT(stopProcess(std::string(511, 'x')), isAborted, "^" + std::string(511, 'x') + "\n$");
    EXPECT_EXIT(stopProcess(std::string(600, 'x')), isAborted, "^" + std::string(511, 'x') + "\n$");
    EXPECT_EXIT(stopProcess(std::string(510, 'x') + "°C"), isAborted,
                "^" + std::string(510, 'x') + "\n$");
}

TEST(RequireDeathTest, theLineBeginsAsTheProgramSays) {
    EXPECT_EXIT(
        {
            beginLastLineWith("[program] ");
            require(false, "it holds");
        },
        isAborted, "^\\[program\\] A bug: expected that it holds\\.\n$");
}

TEST(RequireDeathTest, anExceptionThatNobodyCanCatchIsReportedInOneLineToo) {
    EXPECT_EXIT(
        {
            beginLastLineWith("[program] ");
            throwFromNoexcept();
        },
        isAborted, "^\\[program\\] A bug: nobody caught an exception: two\\?lines\n$");
    EXPECT_EXIT(
        {
            beginLastLineWith("");
            std::terminate();
        },
        isAborted, "^A bug: the process was terminated\\.\n$");
}

TEST(RequireDeathTest, ofManyThreadsThatMeetABugOneSpeaks) {
    EXPECT_EXIT(
        {
            std::vector<std::thread> threads(8);
            for (auto& thread : threads) thread = std::thread([] { stopProcess("once"); });
            for (auto& thread : threads) thread.join();
        },
        isAborted, "^once\n$");
}

/// A pipe in which there is no room left, as the standard error of a process that meets a bug.
class FullPipe {
public:
    FullPipe() {
        EXPECT_EQ(pipe(ends.data()), 0);
        fcntl(ends[1], F_SETFL, O_NONBLOCK);
        const std::string block(4096, 'x');
        while (write(ends[1], block.data(), block.size()) > 0) {
        }
        fcntl(ends[1], F_SETFL, 0);
    }
    FullPipe(const FullPipe&) = delete;
    FullPipe& operator=(const FullPipe&) = delete;
    ~FullPipe() {
        close(ends[0]);
        close(ends[1]);
    }

    [[nodiscard]] bool isBlocking() const { return (fcntl(ends[1], F_GETFL) & O_NONBLOCK) == 0; }
    void becomeStandardError() const { dup2(ends[1], STDERR_FILENO); }
    void closeReader() { close(std::exchange(ends[0], -1)); }

private:
    std::array<int, 2> ends{};
};

TEST(RequireDeathTest, aFullPipeLosesTheLineAndStaysAsItWas) {
    const FullPipe pipe;
    EXPECT_EXIT(
        {
            alarm(10);  // a process that waits ends by another signal
            pipe.becomeStandardError();
            stopProcess("lost");
        },
        isAborted, "");
    EXPECT_TRUE(pipe.isBlocking());
}

TEST(RequireDeathTest, aReaderThatIsGoneDoesNotChangeTheStatus) {
    EXPECT_EXIT(
        {
            FullPipe pipe;
            pipe.closeReader();
            pipe.becomeStandardError();
            stopProcess("lost");
        },
        isAborted, "");
    EXPECT_EXIT(
        {
            close(STDERR_FILENO);
            stopProcess("lost");
        },
        isAborted, "");
}

}  // namespace
}  // namespace airflow::concurrency
