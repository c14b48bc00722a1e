// Plans that arrive while another operation of the controller waits for the SMC, at each of its
// requests in turn and under several schedules.
#include "HoldBench.h"

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

void expectHeld(ControllerBench& bench, std::size_t fan, double speed) {
    EXPECT_EQ(bench.mac().fan(fan).mode, FanMode::forced) << "fan " << fan;
    EXPECT_EQ(bench.mac().fan(fan).target, speed) << "fan " << fan;
}

void expectGivenBack(ControllerBench& bench, std::size_t fan) {
    EXPECT_EQ(bench.mac().fan(fan).mode, FanMode::automatic) << "fan " << fan;
}

TEST_P(PlanRaces, aPlanThatArrivesDuringAnotherIsTheOneInForce) {
    std::size_t request = 1;
    for (;; ++request) {
        SCOPED_TRACE(fmt::format("at request {}", request));
        ControllerBench bench(steadyMachine(3), options());
        slowDown(bench, 5ms);
        Answer second;
        atRequest(bench, request, [&] {
            second =
                bench.start(bench.controller().applyPlan(planOf({{1, rpm(4000)}, {2, rpm(5000)}})));
        });
        EXPECT_EQ(bench.run(bench.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(3500)}}))),
                  ControlResult::applied());
        if (!second) break;
        bench.advance(5s);
        EXPECT_EQ(*second, ControlResult::applied());
        expectGivenBack(bench, 0);
        expectHeld(bench, 1, 4000);
        expectHeld(bench, 2, 5000);
        EXPECT_EQ(told(bench.published).back(), "holding");
    }
    EXPECT_GT(request, 20u);
}

TEST_P(PlanRaces, aPlanThatArrivesDuringATickIsTheOneInForce) {
    for (std::size_t request = 1; request <= 30; ++request) {
        SCOPED_TRACE(fmt::format("at request {}", request));
        ControllerBench bench(steadyMachine(3), options());
        (void)bench.run(
            bench.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(3500)}, {2, rpm(3600)}})));
        slowDown(bench, 5ms);
        bench.advance(1s);
        Answer second;
        atRequest(bench, request, [&] {
            second = bench.start(bench.controller().applyPlan(planOf({{1, rpm(4000)}})));
        });
        bench.advance(6s);
        EXPECT_EQ(*second, ControlResult::applied());
        expectGivenBack(bench, 0);
        expectHeld(bench, 1, 4000);
        expectGivenBack(bench, 2);
        for (const std::string key : {"F0Md", "F2Md"}) {  // given back once and for all
            const auto givenBack = std::ranges::find(bench.writes, key + "=0");
            EXPECT_EQ(std::count(givenBack, bench.writes.end(), key + "=1"), 0) << key;
        }
    }
}

/// The plan has asked the SMC to give fan 2 back when the old plan's step, which was suspended
/// before that fan, comes to it. The SMC has not answered yet.
TEST(PlanDuringATick, keepsTheTickFromForcingAFanThatThePlanIsGivingBack) {
    ControllerBench bench(steadyMachine(3), withoutJitter);
    (void)bench.run(
        bench.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(3500)}, {2, rpm(3600)}})));
    slowDown(bench, 5ms);
    bench.advance(1s);
    forget(bench);
    Answer second;
    atWrite(bench, "F1Md", 1, 1,
            [&] { second = bench.start(bench.controller().applyPlan(planOf({{1, rpm(4000)}}))); });
    bench.advance(2s);
    EXPECT_EQ(*second, ControlResult::applied());
    EXPECT_THAT(bench.writes,
                ElementsAre("Ftst=1", "F0Md=1", "F0Tg=3000", "F1Md=1", "Ftst=1", "F1Tg=3500",
                            "F0Md=0", "F2Md=0", "Ftst=1", "F1Md=1", "F1Tg=4000"));
    EXPECT_EQ(bench.mac().fan(2).mode, FanMode::automatic);
    EXPECT_EQ(told(bench.published).back(), "holding");
}

/// The same with a fan that refuses to go back: the retry, not the tick, has it then.
TEST(PlanDuringATick, leavesAFanThatRefusesToGoBackToTheRetry) {
    ControllerBench bench(steadyMachine(3), withoutJitter);
    (void)bench.run(
        bench.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(3500)}, {2, rpm(3600)}})));
    bench.mac().smc().add(refusal("F2Md", 0, 0x86, 0s, 3s));
    slowDown(bench, 5ms);
    bench.advance(1s);
    forget(bench);
    Answer second;
    atWrite(bench, "F1Md", 1, 1,
            [&] { second = bench.start(bench.controller().applyPlan(planOf({{1, rpm(4000)}}))); });
    bench.advance(1900ms);
    EXPECT_EQ(*second, ControlResult::applied());
    EXPECT_THAT(bench.writes, testing::Not(testing::Contains("F2Md=1")));
    EXPECT_THAT(bench.writes, testing::Contains("F2Md=0 (0x86)"));
    bench.advance(3s);
    EXPECT_EQ(bench.mac().fan(2).mode, FanMode::automatic);
    EXPECT_EQ(told(bench.published).back(), "holding");
}

/// A controller that two fans refuse to leave, and that tries them again.
void holdTwoThatRefuse(ControllerBench& bench) {
    (void)bench.run(bench.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(3500)}})));
    for (const char* key : {"F0Md", "F1Md"}) {
        bench.mac().smc().add(refusal(key, 0, 0x86, 0s, 1s));
    }
    slowDown(bench, 5ms);
    (void)bench.run(bench.controller().automatic());
}

TEST_P(PlanRaces, aPlanThatArrivesDuringARetryOfPendingFansIsTheOneInForce) {
    std::size_t request = 1;
    for (;; ++request) {
        SCOPED_TRACE(fmt::format("at request {}", request));
        ControllerBench bench(steadyMachine(), options());
        holdTwoThatRefuse(bench);
        Answer plan;
        atRequest(bench, request, [&] {
            plan = bench.start(bench.controller().applyPlan(planOf({{0, rpm(4000)}})));
        });
        bench.advance(8s);
        if (!plan) break;
        EXPECT_EQ(*plan, ControlResult::applied());
        expectHeld(bench, 0, 4000);
        expectGivenBack(bench, 1);
        EXPECT_EQ(told(bench.published).back(), "holding");
    }
    EXPECT_EQ(request, 4u);  // force-test and two fans
}

TEST_P(PlanRaces, aPlanThatArrivesDuringARetryOfAllFansIsTheOneInForce) {
    std::size_t request = 1;
    for (;; ++request) {
        SCOPED_TRACE(fmt::format("at request {}", request));
        ControllerBench bench(steadyMachine(), options());
        (void)bench.run(bench.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(3500)}})));
        bench.mac().smc().add(refusal("Ftst", 0, 0x86, 0s, 1s));
        slowDown(bench, 5ms);
        (void)bench.run(bench.controller().automatic());
        Answer plan;
        atRequest(bench, request, [&] {
            plan = bench.start(bench.controller().applyPlan(planOf({{0, rpm(4000)}})));
        });
        bench.advance(8s);
        if (!plan) break;
        EXPECT_EQ(*plan, ControlResult::applied());
        expectHeld(bench, 0, 4000);
        expectGivenBack(bench, 1);
        EXPECT_EQ(told(bench.published).back(), "holding");
    }
    EXPECT_EQ(request, 5u);  // force-test twice and two fans
}

TEST(PlanDuringARetry, endsItAtItsNextFan) {
    ControllerBench bench(steadyMachine(), withoutJitter);
    holdTwoThatRefuse(bench);
    forget(bench);
    Answer plan;
    atWrite(bench, "F0Md", 0, 1, [&] {
        plan = bench.start(bench.controller().applyPlan(planOf({{0, rpm(4000)}, {1, rpm(4500)}})));
    });
    bench.advance(2300ms);
    EXPECT_EQ(*plan, ControlResult::applied());
    EXPECT_THAT(
        bench.writes,
        ElementsAre("Ftst=1", "F0Md=0",  // the retry gets no further
                                         // The plan claims only what the retry gave back.
                    "Ftst=1", "F0Md=1", "Ftst=1", "F0Md=1", "F0Tg=4000", "F1Md=1", "F1Tg=4500"));
    forget(bench);
    bench.advance(10s);
    EXPECT_THAT(bench.writes, testing::Not(testing::Contains(testing::EndsWith("Md=0"))));
}

/// Both plans ask for the fan, every 100 ms. The SMC takes the request of the newer one at 650 ms
/// and that of the older one at 700 ms.
TEST(PlanDuringAClaim, decidesHowTheFanIsPublishedThatTheOlderPlanIsGrantedLater) {
    ControllerBench bench(steadyMachine(1), withoutJitter);
    bench.mac().smc().add(refusal("F0Md", 1, 0x82, 0s, 620ms));
    const Answer older = bench.start(bench.controller().setPercent(0, 50));
    bench.advance(550ms);
    EXPECT_EQ(bench.run(bench.controller().setPercent(0, 100)), ControlResult::applied());
    bench.advance(5s);
    EXPECT_EQ(*older, ControlResult::applied());
    EXPECT_EQ(bench.mac().fan(0).target, 6000);
    EXPECT_EQ(bench.state().perFanMode.at(0), ControlMode::fullBlast);
}

/// The same with an older plan that has failed at another fan before, and ends behind the newer
/// one.
TEST(PlanDuringAClaim, isNotToldToHaveFailedWhenTheOlderPlanEndsBehindIt) {
    ControllerBench bench(steadyMachine(1), withoutJitter);
    bench.mac().smc().add(refusal("F0Md", 1, 0x82, 0s, 620ms));
    const Answer older =
        bench.start(bench.controller().applyPlan(planOf({{5, rpm(3000)}, {0, rpm(3000)}})));
    bench.advance(550ms);
    EXPECT_EQ(bench.run(bench.controller().applyPlan(planOf({{0, rpm(4000)}}))),
              ControlResult::applied());
    bench.advance(500ms);
    EXPECT_EQ(*older, ControlResult::failed("neither F5Md nor F5md exists on this machine"));
    EXPECT_THAT(told(bench.published), ElementsAre("holding", "holding"));
}

TEST_P(PlanRaces, aHeartbeatIsServedDuringAClaimOfTenSeconds) {
    ControllerBench bench(steadyMachine(1), options());
    bench.mac().smc().add(refusal("F0Md", 1, 0x82));
    const auto plan = bench.start(bench.controller().setManual(0, 3000));
    for (int second = 1; second <= 9; ++second) {
        bench.advance(1s);
        const auto before = bench.system.elapsed();
        bench.run(bench.controller().heartbeat());
        EXPECT_EQ(bench.state(), ControlState::idle());
        EXPECT_EQ(bench.system.elapsed(), before);
        EXPECT_EQ(*plan, std::nullopt);
    }
    bench.advance(12s);
    EXPECT_EQ(*plan, ControlResult::timedOut());
}

}  // namespace
}  // namespace airflow::control
