// Plans that arrive while another operation of the controller waits for the SMC, at each of its
// requests in turn and under several schedules.
#include "HoldHarness.h"

namespace airflow::control {
namespace {

using Answer = std::shared_ptr<std::optional<ControlResult>>;

class PlanRaces : public testing::TestWithParam<std::uint64_t> {
protected:
    [[nodiscard]] static simulation::SimulatedSystem::Options options() {
        return {.seed = GetParam(), .jitter = 0};
    }
};

INSTANTIATE_TEST_SUITE_P(Seeds, PlanRaces, testing::Range<std::uint64_t>(0, 8));

void expectHeld(ControllerHarness& harness, std::size_t fan, double speed) {
    EXPECT_EQ(harness.mac().fan(fan).mode, FanMode::forced) << "fan " << fan;
    EXPECT_EQ(harness.mac().fan(fan).target, speed) << "fan " << fan;
}

void expectGivenBack(ControllerHarness& harness, std::size_t fan) {
    EXPECT_EQ(harness.mac().fan(fan).mode, FanMode::automatic) << "fan " << fan;
}

TEST_P(PlanRaces, aPlanThatArrivesDuringAnotherIsTheOneInForce) {
    std::size_t request = 1;
    for (;; ++request) {
        SCOPED_TRACE(fmt::format("at request {}", request));
        ControllerHarness harness(steadyMachine(3), options());
        slowDown(harness, 5ms);
        Answer second;
        atRequest(harness, request, [&] {
            second = harness.start(
                harness.controller().applyPlan(planOf({{1, rpm(4000)}, {2, rpm(5000)}})));
        });
        EXPECT_EQ(
            harness.run(harness.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(3500)}}))),
            ControlResult::applied());
        if (!second) break;
        harness.advance(5s);
        EXPECT_EQ(*second, ControlResult::applied());
        expectGivenBack(harness, 0);
        expectHeld(harness, 1, 4000);
        expectHeld(harness, 2, 5000);
        EXPECT_EQ(told(harness.published).back(), "holding");
    }
    EXPECT_GT(request, 20u);
}

TEST_P(PlanRaces, aPlanThatArrivesDuringATickIsTheOneInForce) {
    for (std::size_t request = 1; request <= 30; ++request) {
        SCOPED_TRACE(fmt::format("at request {}", request));
        ControllerHarness harness(steadyMachine(3), options());
        (void)harness.run(harness.controller().applyPlan(
            planOf({{0, rpm(3000)}, {1, rpm(3500)}, {2, rpm(3600)}})));
        slowDown(harness, 5ms);
        harness.advance(1s);
        Answer second;
        atRequest(harness, request, [&] {
            second = harness.start(harness.controller().applyPlan(planOf({{1, rpm(4000)}})));
        });
        harness.advance(6s);
        EXPECT_EQ(*second, ControlResult::applied());
        expectGivenBack(harness, 0);
        expectHeld(harness, 1, 4000);
        expectGivenBack(harness, 2);
        for (const std::string key : {"F0Md", "F2Md"}) {  // given back once and for all
            const auto givenBack = std::ranges::find(harness.writes, key + "=0");
            EXPECT_EQ(std::count(givenBack, harness.writes.end(), key + "=1"), 0) << key;
        }
    }
}

/// The plan has asked the SMC to give fan 2 back when the old plan's step, which was suspended
/// before that fan, comes to it. The SMC has not answered yet.
TEST(PlanDuringATick, keepsTheTickFromForcingAFanThatThePlanIsGivingBack) {
    ControllerHarness harness(steadyMachine(3), withoutJitter);
    (void)harness.run(
        harness.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(3500)}, {2, rpm(3600)}})));
    slowDown(harness, 5ms);
    harness.advance(1s);
    forget(harness);
    Answer second;
    atWrite(harness, "F1Md", 1, 1, [&] {
        second = harness.start(harness.controller().applyPlan(planOf({{1, rpm(4000)}})));
    });
    harness.advance(2s);
    EXPECT_EQ(*second, ControlResult::applied());
    EXPECT_THAT(harness.writes,
                ElementsAre("Ftst=1", "F0Md=1", "F0Tg=3000", "F1Md=1", "Ftst=1", "F1Tg=3500",
                            "F0Md=0", "F2Md=0", "Ftst=1", "F1Md=1", "F1Tg=4000"));
    EXPECT_EQ(harness.mac().fan(2).mode, FanMode::automatic);
    EXPECT_EQ(told(harness.published).back(), "holding");
}

/// The same with a fan that refuses to go back: the retry, not the tick, has it then.
TEST(PlanDuringATick, leavesAFanThatRefusesToGoBackToTheRetry) {
    ControllerHarness harness(steadyMachine(3), withoutJitter);
    (void)harness.run(
        harness.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(3500)}, {2, rpm(3600)}})));
    harness.mac().smc().add(refusal("F2Md", 0, 0x86, 0s, 3s));
    slowDown(harness, 5ms);
    harness.advance(1s);
    forget(harness);
    Answer second;
    atWrite(harness, "F1Md", 1, 1, [&] {
        second = harness.start(harness.controller().applyPlan(planOf({{1, rpm(4000)}})));
    });
    harness.advance(1900ms);
    EXPECT_EQ(*second, ControlResult::applied());
    EXPECT_THAT(harness.writes, testing::Not(testing::Contains("F2Md=1")));
    EXPECT_THAT(harness.writes, testing::Contains("F2Md=0 (0x86)"));
    harness.advance(3s);
    EXPECT_EQ(harness.mac().fan(2).mode, FanMode::automatic);
    EXPECT_EQ(told(harness.published).back(), "holding");
}

/// A controller that two fans refuse to leave, and that tries them again.
void holdTwoThatRefuse(ControllerHarness& harness) {
    (void)harness.run(harness.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(3500)}})));
    for (const char* key : {"F0Md", "F1Md"}) {
        harness.mac().smc().add(refusal(key, 0, 0x86, 0s, 1s));
    }
    slowDown(harness, 5ms);
    (void)harness.run(harness.controller().automatic());
}

TEST_P(PlanRaces, aPlanThatArrivesDuringARetryOfPendingFansIsTheOneInForce) {
    std::size_t request = 1;
    for (;; ++request) {
        SCOPED_TRACE(fmt::format("at request {}", request));
        ControllerHarness harness(steadyMachine(), options());
        holdTwoThatRefuse(harness);
        Answer plan;
        atRequest(harness, request, [&] {
            plan = harness.start(harness.controller().applyPlan(planOf({{0, rpm(4000)}})));
        });
        harness.advance(8s);
        if (!plan) break;
        EXPECT_EQ(*plan, ControlResult::applied());
        expectHeld(harness, 0, 4000);
        expectGivenBack(harness, 1);
        EXPECT_EQ(told(harness.published).back(), "holding");
    }
    EXPECT_EQ(request, 4u);  // force-test and two fans
}

TEST_P(PlanRaces, aPlanThatArrivesDuringARetryOfAllFansIsTheOneInForce) {
    std::size_t request = 1;
    for (;; ++request) {
        SCOPED_TRACE(fmt::format("at request {}", request));
        ControllerHarness harness(steadyMachine(), options());
        (void)harness.run(harness.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(3500)}})));
        harness.mac().smc().add(refusal("Ftst", 0, 0x86, 0s, 1s));
        slowDown(harness, 5ms);
        (void)harness.run(harness.controller().automatic());
        Answer plan;
        atRequest(harness, request, [&] {
            plan = harness.start(harness.controller().applyPlan(planOf({{0, rpm(4000)}})));
        });
        harness.advance(8s);
        if (!plan) break;
        EXPECT_EQ(*plan, ControlResult::applied());
        expectHeld(harness, 0, 4000);
        expectGivenBack(harness, 1);
        EXPECT_EQ(told(harness.published).back(), "holding");
    }
    EXPECT_EQ(request, 5u);  // force-test twice and two fans
}

TEST(PlanDuringARetry, endsItAtItsNextFan) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    holdTwoThatRefuse(harness);
    forget(harness);
    Answer plan;
    atWrite(harness, "F0Md", 0, 1, [&] {
        plan =
            harness.start(harness.controller().applyPlan(planOf({{0, rpm(4000)}, {1, rpm(4500)}})));
    });
    harness.advance(2300ms);
    EXPECT_EQ(*plan, ControlResult::applied());
    EXPECT_THAT(
        harness.writes,
        ElementsAre("Ftst=1", "F0Md=0",  // the retry gets no further
                                         // The plan claims only what the retry gave back.
                    "Ftst=1", "F0Md=1", "Ftst=1", "F0Md=1", "F0Tg=4000", "F1Md=1", "F1Tg=4500"));
    forget(harness);
    harness.advance(10s);
    EXPECT_THAT(harness.writes, testing::Not(testing::Contains(testing::EndsWith("Md=0"))));
}

/// Both plans ask for the fan, every 100 ms. The SMC takes the request of the newer one at 650 ms
/// and that of the older one at 700 ms.
TEST(PlanDuringAClaim, decidesHowTheFanIsPublishedThatTheOlderPlanIsGrantedLater) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    harness.mac().smc().add(refusal("F0Md", 1, 0x82, 0s, 620ms));
    const Answer older = harness.start(harness.controller().setPercent(0_fan, 50_percent));
    harness.advance(550ms);
    EXPECT_EQ(harness.run(harness.controller().setPercent(0_fan, 100_percent)),
              ControlResult::applied());
    harness.advance(5s);
    EXPECT_EQ(*older, ControlResult::applied());
    EXPECT_EQ(harness.mac().fan(0).target, 6000);
    EXPECT_EQ(harness.state().perFanMode.at(0), ControlMode::fullBlast);
}

/// The same with an older plan that has failed at another fan before, and ends after the newer
/// one.
TEST(PlanDuringAClaim, isNotPublishedAsFailedWhenTheOlderPlanEndsAfterIt) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    harness.mac().smc().add(refusal("F0Md", 1, 0x82, 0s, 620ms));
    const Answer older =
        harness.start(harness.controller().applyPlan(planOf({{5, rpm(3000)}, {0, rpm(3000)}})));
    harness.advance(550ms);
    EXPECT_EQ(harness.run(harness.controller().applyPlan(planOf({{0, rpm(4000)}}))),
              ControlResult::applied());
    harness.advance(500ms);
    EXPECT_EQ(*older, ControlResult::failed("neither F5Md nor F5md exists on this machine"));
    EXPECT_THAT(told(harness.published), ElementsAre("holding", "holding"));
}

TEST_P(PlanRaces, aHeartbeatIsServedDuringAClaimOfTenSeconds) {
    ControllerHarness harness(steadyMachine(1), options());
    harness.mac().smc().add(refusal("F0Md", 1, 0x82));
    const auto plan = harness.start(harness.controller().setManual(0_fan, 3000_rpm));
    for (int second = 1; second <= 9; ++second) {
        harness.advance(1s);
        const auto before = harness.system.elapsed();
        harness.run(harness.controller().heartbeat());
        EXPECT_EQ(harness.state(), ControlState::idle());
        EXPECT_EQ(harness.system.elapsed(), before);
        EXPECT_EQ(*plan, std::nullopt);
    }
    harness.advance(12s);
    EXPECT_EQ(*plan, ControlResult::timedOut());
}

}  // namespace
}  // namespace airflow::control
