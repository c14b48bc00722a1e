// A process that meets a bug has to be gone soon, or nobody starts the next one, which gives the
// fans back. Real processes: what a write to a full pipe does is up to the kernel.
#include <gmock/gmock.h>

#include "ProcessHarness.h"

namespace airflow::process {
namespace {

struct Bug {
    const char* kind;
    const char* line;
};

class BugTest : public ProcessHarness, public testing::WithParamInterface<Bug> {
protected:
    static constexpr int aborted = 134;

    /// The status of the program once it has met its bug; nothing when it is still there after five
    /// seconds.
    [[nodiscard]] static std::optional<int> statusOf(Child& program) {
        if (!eventually([&] { return program.hasEnded(); })) return std::nullopt;
        return program.wait();
    }
};

TEST_P(BugTest, theLastLineIsOneThatBeginsAsTheLog) {
    Child program({GetParam().kind}, StandardError::read, AIRFLOW_MEETS_BUG);
    EXPECT_EQ(program.err.readToEnd(), GetParam().line);
    EXPECT_EQ(statusOf(program), aborted);
}

TEST_P(BugTest, theProcessEndsWhenNobodyTakesItsLastLine) {
    Child program({GetParam().kind}, StandardError::full, AIRFLOW_MEETS_BUG);
    EXPECT_EQ(statusOf(program), aborted);
}

TEST_P(BugTest, theProcessEndsWithoutAStandardError) {
    Child program({GetParam().kind}, StandardError::closed, AIRFLOW_MEETS_BUG);
    EXPECT_EQ(statusOf(program), aborted);
}

constexpr Bug bugs[] = {
    {.kind = "expectation", .line = "[com.brisquell.helper] A bug: expected that this holds.\n"},
    {.kind = "exception",
     .line = "[com.brisquell.helper] A bug: nobody caught an exception: lost?its way\n"},
    {.kind = "noexcept",
     .line = "[com.brisquell.helper] A bug: nobody caught an exception: stays inside\n"},
};

INSTANTIATE_TEST_SUITE_P(, BugTest, testing::ValuesIn(bugs),
                         [](const auto& each) { return each.param.kind; });

}  // namespace
}  // namespace airflow::process
