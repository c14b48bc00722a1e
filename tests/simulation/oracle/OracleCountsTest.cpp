// What is counted of situations that have to come up in many runs, and what is not.
#include <algorithm>

#include "OracleTrace.h"

namespace airflow::simulation {
namespace {

class OracleCountsTest : public OracleTrace {
protected:
    std::uint64_t count(std::string_view happening) {
        const auto found = std::ranges::find(sometimes, happening);
        if (found == sometimes.end()) ADD_FAILURE() << happening << " is not in the list";
        return oracle().counts().at(static_cast<std::size_t>(found - sometimes.begin()));
    }
};

TEST_F(OracleCountsTest, aFanThatRefusesAHundredTimesIsCountedOnce) {
    const auto hundred = "a fan refused a hundred times in a row";
    serve();
    hold(1s);
    leave(5s);
    for (int retry = 0; retry < 99; ++retry) refuse(5s + retry * 2s);
    EXPECT_EQ(count(hundred), 0U);
    refuse(205s);
    EXPECT_EQ(count(hundred), 1U);
    refuse(207s);
    EXPECT_EQ(count(hundred), 1U);
}

TEST_F(OracleCountsTest, aHangOfTheHubIsCountedWhileAFanIsForced) {
    const auto hang = "the HID hub hung while a fan was forced";
    scenario.hidHangs.push_back({.from = 2s, .until = 5s});
    serve();
    look(2s);
    EXPECT_EQ(count(hang), 0U);
    hold(3s);
    look(3s);
    EXPECT_EQ(count(hang), 1U);
    look(5s);
    EXPECT_EQ(count(hang), 1U);
}

TEST_F(OracleCountsTest, aWallClockThatIsSetBackIsCountedWhileAFanIsForced) {
    const auto back = "the wall clock was set back while a fan was forced";
    serve();
    oracle().clockJumped(1s, -10);
    EXPECT_EQ(count(back), 0U);
    hold(2s);
    oracle().clockJumped(3s, 10);
    EXPECT_EQ(count(back), 0U);
    oracle().clockJumped(4s, -10);
    EXPECT_EQ(count(back), 1U);
}

TEST_F(OracleCountsTest, aCommandIsCountedThatComesWhileTheProcessExits) {
    const auto late = "a command came while the process exited";
    serve();
    (void)call(1s, manual());
    EXPECT_EQ(count(late), 0U);
    terminate(5s);
    (void)call(5s, {.method = Method::applyConfig, .document = "{"});
    (void)call(5s, Method::readState);
    EXPECT_EQ(count(late), 0U);
    (void)call(5s, manual());
    EXPECT_EQ(count(late), 1U);
}

TEST_F(OracleCountsTest, aClientIsCountedThatGoesWithElevenCommandsWaiting) {
    const auto backlog = "a client went with more than ten commands waiting";
    serve();
    for (int i = 0; i < 10; ++i) (void)call(1s, {.client = "ten", .method = Method::automatic});
    for (int i = 0; i < 11; ++i) (void)call(1s, {.client = "eleven", .method = Method::automatic});
    vanish(2s, "ten");
    EXPECT_EQ(count(backlog), 0U);
    vanish(2s, "eleven");
    EXPECT_EQ(count(backlog), 1U);
}

TEST_F(OracleCountsTest, whatTheGuardGivesBackIsCounted) {
    const auto guarded = "the guard gave fans back";
    serve();
    EXPECT_EQ(count(guarded), 0U);
    oracle().guarded(1s);
    EXPECT_EQ(count(guarded), 1U);
}

}  // namespace
}  // namespace airflow::simulation
