#include <gtest/gtest.h>

#include <sstream>

#include "tool/common/Progress.h"

namespace airflow::tool {
namespace {

using namespace std::chrono_literals;

class ProgressTest : public testing::Test {
protected:
    Progress make(bool isShown = true) {
        return {out, isShown, [this] { return now; }};
    }
    std::string written() {
        std::string text = out.str();
        out.str("");
        return text;
    }

    std::ostringstream out;
    Progress::Clock::time_point now;
};

TEST_F(ProgressTest, saysNothingOfWhatTakesLessThanTwoSeconds) {
    {
        Progress progress = make();
        now += 1999ms;
        progress.tell(0.5, "half");
    }
    EXPECT_EQ(written(), "");
}

TEST_F(ProgressTest, isDrawnOverItselfOnceASecondAndRemoved) {
    Progress progress = make();
    now += 2s;
    EXPECT_TRUE(progress.isDue());
    progress.tell(0.25, "50 of 200");
    EXPECT_EQ(written(), "50 of 200, 6 s left");
    now += 999ms;
    progress.tell(0.5, "100 of 200");
    EXPECT_EQ(written(), "");
    now += 1ms;
    progress.tell(0.5, "100 of 200");
    EXPECT_EQ(written(), "\r" + std::string(19, ' ') + "\r100 of 200, 3 s left");
    progress.hide();
    EXPECT_EQ(written(), "\r" + std::string(20, ' ') + "\r");
    progress.hide();
    EXPECT_EQ(written(), "");
}

TEST_F(ProgressTest, doesNotGuessTheTimeLeftBeforeAnythingIsDone) {
    Progress progress = make();
    now += 2s;
    progress.tell(0, "nothing yet");
    EXPECT_EQ(written(), "nothing yet");
}

TEST_F(ProgressTest, isNotWrittenWhereThereIsNoTerminal) {
    {
        Progress progress = make(false);
        now += 60s;
        EXPECT_FALSE(progress.isDue());
        progress.tell(0.5, "half");
    }
    EXPECT_EQ(written(), "");
}

TEST(Roughly, tellsDurationsAsPeopleDo) {
    EXPECT_EQ(roughly(40s), "40 s");
    EXPECT_EQ(roughly(300s), "5 min");
    EXPECT_EQ(roughly(3h + 30min), "3.5 h");
}

}  // namespace
}  // namespace airflow::tool
