// Releases that arrive while the controller claims, holds or gives back, at each request in turn
// and under several schedules. Whether anybody still watches is asked of the machine.
#include "HoldHarness.h"

namespace airflow::control {
namespace {

using Answer = std::shared_ptr<std::optional<ControlResult>>;
using Failure = std::shared_ptr<std::optional<std::optional<std::string>>>;

using concurrency::Task;

/// A command that releases every fan.
struct Release {
    const char* name;
    Task<ControlResult> (*perform)(LocalFanController&);

    friend void PrintTo(const Release& release, std::ostream* out) { *out << release.name; }
};

Task<ControlResult> automatic(LocalFanController& controller) {
    co_return co_await controller.automatic();
}
Task<ControlResult> restoreAuto(LocalFanController& controller) {
    const auto failure = co_await controller.restoreAuto();
    co_return failure ? ControlResult::failed(*failure) : ControlResult::applied();
}

constexpr Release releases[]{{"automatic", automatic}, {"restoreAuto", restoreAuto}};

class ReleaseRaces : public testing::TestWithParam<std::uint64_t> {
protected:
    [[nodiscard]] static simulation::SimulatedSystem::Options options() {
        return {.seed = GetParam(), .jitter = 0};
    }
};

INSTANTIATE_TEST_SUITE_P(Seeds, ReleaseRaces, testing::Range<std::uint64_t>(0, 8));

/// A machine whose fans are claimed after a few polls.
simulation::MachineDescription busyMachine() {
    auto machine = steadyMachine();
    machine.busy = 250ms;
    return machine;
}

void expectAllGivenBack(ControllerHarness& harness) {
    for (std::size_t fan = 0; fan < harness.mac().fanCount(); ++fan) {
        EXPECT_EQ(harness.mac().fan(fan).mode, FanMode::automatic) << "fan " << fan;
    }
    EXPECT_FALSE(harness.published.back().isHolding);
}

/// Nobody asks the SMC for anything, however long one waits.
void expectNobodyWatches(ControllerHarness& harness) {
    forget(harness);
    harness.advance(120s);
    EXPECT_THAT(harness.reads, IsEmpty());
    EXPECT_THAT(harness.writes, IsEmpty());
}

/// The first thing that a snapshot reads: the claims of a plan are over by then.
bool hasTakenItsSnapshot(const ControllerHarness& harness) {
    return std::ranges::find(harness.reads, "FNum") != harness.reads.end();
}

TEST_P(ReleaseRaces, automaticDuringAPlanGivesEveryFanBack) {
    std::size_t request = 1;
    for (;; ++request) {
        SCOPED_TRACE(fmt::format("at request {}", request));
        ControllerHarness harness(busyMachine(), options());
        slowDown(harness, 5ms);
        Answer released;
        bool isClaiming = false;
        atRequest(harness, request, [&] {
            released = harness.start(harness.controller().automatic());
            isClaiming = !hasTakenItsSnapshot(harness);
        });
        const auto plan =
            harness.run(harness.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(4000)}})));
        EXPECT_EQ(plan, isClaiming ? ControlResult::rejected(255) : ControlResult::applied());
        if (!released) break;
        harness.advance(1s);  // the release ends, too
        EXPECT_EQ(*released, ControlResult::applied());
        expectAllGivenBack(harness);
        expectNobodyWatches(harness);
    }
    EXPECT_GT(request, 20u);
}

TEST_P(ReleaseRaces, restoreAutoDuringAPlanThatGivesBackGivesEveryFanBack) {
    std::size_t request = 1;
    for (;; ++request) {
        SCOPED_TRACE(fmt::format("at request {}", request));
        ControllerHarness harness(busyMachine(), options());
        (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
        forget(harness);
        slowDown(harness, 5ms);
        Failure failure;
        bool isClaiming = false;
        atRequest(harness, request, [&] {
            failure = harness.start(harness.controller().restoreAuto());
            isClaiming = !hasTakenItsSnapshot(harness);
        });
        const auto plan = harness.run(harness.controller().applyPlan(planOf({{1, rpm(4000)}})));
        EXPECT_EQ(plan, isClaiming ? ControlResult::rejected(255) : ControlResult::applied());
        if (!failure) break;
        harness.advance(5s);  // a retry of what the plan gave back ends, too
        EXPECT_EQ(**failure, std::nullopt);
        expectAllGivenBack(harness);
        expectNobodyWatches(harness);
    }
    EXPECT_GT(request, 15u);
}

void expectTheLastWordDuringATick(const Release& release,
                                  simulation::SimulatedSystem::Options options) {
    for (std::size_t request = 1; request <= 20; ++request) {
        SCOPED_TRACE(fmt::format("{} at request {}", release.name, request));
        ControllerHarness harness(steadyMachine(), options);
        (void)harness.run(harness.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(4000)}})));
        slowDown(harness, 5ms);
        harness.advance(1s);
        forget(harness);
        Answer released;
        atRequest(harness, request,
                  [&] { released = harness.start(release.perform(harness.controller())); });
        harness.advance(3s);
        EXPECT_EQ(*released, ControlResult::applied());
        for (const char* fan : {"F0Md", "F1Md"}) {
            const auto givenBack = std::ranges::find(harness.writes, fmt::format("{}=0", fan));
            EXPECT_EQ(std::count(givenBack, harness.writes.end(), fmt::format("{}=1", fan)), 0);
        }
        expectAllGivenBack(harness);
        expectNobodyWatches(harness);
    }
}

TEST_P(ReleaseRaces, aReleaseDuringATickIsTheLastWord) {
    for (const Release& release : releases) expectTheLastWordDuringATick(release, options());
}

void expectAllGivenBackDuringAPendingRelease(const Release& release,
                                             simulation::SimulatedSystem::Options options) {
    std::size_t request = 1;
    for (;; ++request) {
        SCOPED_TRACE(fmt::format("{} at request {}", release.name, request));
        ControllerHarness harness(steadyMachine(), options);
        (void)harness.run(harness.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(4000)}})));
        harness.mac().smc().add(refusal("F0Md", 0, 0x86, 0s, 1s));
        harness.mac().smc().add(refusal("F1Md", 0, 0x86, 0s, 1s));
        slowDown(harness, 5ms);
        (void)harness.run(harness.controller().automatic());
        Answer released;
        atRequest(harness, request,
                  [&] { released = harness.start(release.perform(harness.controller())); });
        harness.advance(8s);
        if (!released) break;
        EXPECT_EQ(*released, ControlResult::applied());
        expectAllGivenBack(harness);
        expectNobodyWatches(harness);
    }
    EXPECT_EQ(request, 4u);
}

TEST_P(ReleaseRaces, aReleaseDuringAPendingOneGivesEveryFanBack) {
    for (const Release& release : releases) {
        expectAllGivenBackDuringAPendingRelease(release, options());
    }
}

/// The release lowers force-test, and the claim, which would need it, asks no more.
TEST(ReleaseDuringAClaim, endsItWithoutWaitingForForceTest) {
    auto machine = steadyMachine(1);
    machine.forceTestDelay = 250ms;
    ControllerHarness harness(machine, withoutJitter);
    const Answer plan = harness.start(harness.controller().setManual(0_fan, 3000_rpm));
    harness.advance(150ms);
    EXPECT_EQ(harness.run(harness.controller().automatic()), ControlResult::applied());
    forget(harness);
    harness.advance(1s);
    EXPECT_EQ(*plan, ControlResult::rejected(255));
    EXPECT_THAT(harness.writes, IsEmpty());
    EXPECT_THAT(harness.published, IsEmpty());
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
}

/// A step with a plan, called by itself, that a release supersedes when it writes this.
class SupersededStep : public testing::TestWithParam<Release> {
protected:
    std::vector<std::int64_t> step(const std::vector<std::pair<std::int64_t, Mode>>& fans) {
        auto snapshot = harness.run(harness.system.sensors.snapshot());
        forget(harness);
        auto reverted = harness.run(harness.controller().assertPlanOnce(
            planOf(fans), std::move(snapshot), harness.system.runtime.date()));
        harness.advance(1s);  // the release ends, too
        return reverted;
    }
    void supersedeAt(const std::string& key, double value, std::size_t count = 1) {
        slowDown(harness, 5ms);
        atWrite(harness, key, value, count,
                [this] { released = harness.start(GetParam().perform(harness.controller())); });
    }

    void expectReleased() {
        EXPECT_EQ(*released, ControlResult::applied());
        expectAllGivenBack(harness);
    }

    ControllerHarness harness{steadyMachine(), withoutJitter};
    Answer released;
};

INSTANTIATE_TEST_SUITE_P(ByEachCommand, SupersededStep, testing::ValuesIn(releases),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(SupersededStep, whileItReleasesStopsBeforeTheNextFan) {
    (void)step({{0, rpm(3000)}, {1, rpm(4000)}});
    supersedeAt("F0Md", 0);
    (void)step({});
    EXPECT_THAT(harness.writes, ElementsAre("F0Md=0", "Ftst=1", "F0Md=0", "F1Md=0", "Ftst=0"));
    expectReleased();
}

TEST_P(SupersededStep, whileItClaimsGivesItsFanBackAndStops) {
    supersedeAt("F0Md", 1);
    (void)step({{0, rpm(3000)}, {1, rpm(4000)}});
    EXPECT_THAT(harness.writes,
                ElementsAre("Ftst=1", "F0Md=1", "Ftst=1", "F0Md=0", "F0Md=0", "Ftst=0"));
    expectReleased();
}

TEST_P(SupersededStep, whileItHoldsStopsBeforeTheNextFanAndReportsNothing) {
    (void)step({{0, rpm(3000)}, {1, rpm(4000)}});
    harness.mac().smc().add(misreading("F0Md", 3));
    supersedeAt("F0Md", 1);
    EXPECT_THAT(step({{0, rpm(3000)}, {1, rpm(4000)}}), IsEmpty());
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=1", "Ftst=1", "F0Tg=3000", "F0Md=0",
                                            "F1Md=0", "Ftst=0"));
    expectReleased();
}

TEST_P(SupersededStep, whileItRaisesForceTestDoesNothingMore) {
    (void)step({{0, rpm(3000)}, {1, rpm(4000)}});
    supersedeAt("Ftst", 1);
    EXPECT_THAT(step({{0, rpm(3000)}, {1, rpm(4000)}}), IsEmpty());
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "Ftst=1", "F0Md=0", "F1Md=0", "Ftst=0"));
    expectReleased();
}

TEST_P(SupersededStep, afterItsLastFanEndsAsIfNothingHadHappened) {
    (void)step({{0, rpm(3000)}});
    supersedeAt("F0Tg", 3000);
    EXPECT_THAT(step({{0, rpm(3000)}}), IsEmpty());
    EXPECT_THAT(harness.writes,
                ElementsAre("Ftst=1", "F0Md=1", "F0Tg=3000", "Ftst=1", "F0Md=0", "Ftst=0"));
    expectReleased();
}

}  // namespace
}  // namespace airflow::control
