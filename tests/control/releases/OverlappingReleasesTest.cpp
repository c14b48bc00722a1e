// Two releases ask for the same fans at once, and the SMC refuses one of them only.
#include "HoldHarness.h"

namespace airflow::control {
namespace {

const std::string fan0Refuses = "not holding: failed to restore Auto: F0Md=0 rejected (SMC 0x86)";

/// Each write takes 10 ms. The releases take turns: "Ftst", "Ftst", fan 0, fan 0, fan 1, fan 1.
class OverlappingReleases : public testing::Test {
protected:
    OverlappingReleases() {
        (void)harness.run(harness.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(4000)}})));
        begun = harness.system.elapsed();
        harness.mac().smc().removeFaults();
    }
    /// Fan 0 refuses from a moment of the releases on.
    void refuse(concurrency::Duration from, concurrency::Duration until) {
        auto fan0 = refusal("F0Md", 0, 0x86, begun + from, begun + until);
        fan0.latency = 10ms;
        harness.mac().smc().add(fan0);
        harness.mac().smc().add(Fault{.latency = 10ms});
    }
    void releaseTwice() {
        forget(harness);
        first = harness.start(harness.controller().restoreAuto());
        second = harness.start(harness.controller().restoreAuto());
        harness.advance(200ms);
    }

    ControllerHarness harness{steadyMachine(), withoutJitter};
    concurrency::Duration begun{};
    std::shared_ptr<std::optional<std::optional<std::string>>> first;
    std::shared_ptr<std::optional<std::optional<std::string>>> second;
};

TEST_F(OverlappingReleases, tellOfTheRefusalThatOneOfThemMetUntilTheFanGoesBack) {
    refuse(25ms, 1s);
    releaseTwice();
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "Ftst=1", "F0Md=0", "F0Md=0 (0x86)", "F1Md=0",
                                            "F1Md=0", "Ftst=0"));
    EXPECT_THAT(*first, testing::Optional(std::optional<std::string>()));
    EXPECT_EQ(*second, "failed to restore Auto: F0Md=0 rejected (SMC 0x86)");
    EXPECT_EQ(told(harness.published).back(), fan0Refuses);
    harness.advance(3s);
    EXPECT_EQ(told(harness.published).back(), "not holding");
    EXPECT_EQ(harness.state(), ControlState::idle());
}

TEST_F(OverlappingReleases, tellOfNoRefusalThatTheLaterOfThemDidNotMeet) {
    refuse(15ms, 25ms);
    releaseTwice();
    EXPECT_EQ(*first, "failed to restore Auto: F0Md=0 rejected (SMC 0x86)");
    EXPECT_THAT(*second, testing::Optional(std::optional<std::string>()));
    EXPECT_EQ(told(harness.published).back(), "not holding");
}

}  // namespace
}  // namespace airflow::control
