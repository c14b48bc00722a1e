// The end of the process: which fans it gives back that nobody has counted, and how often it asks
// one that refuses.
#include <fmt/format.h>
#include <gmock/gmock.h>

#include "ScenarioDiary.h"

namespace airflow::daemon {
namespace {

using testing::DoubleNear;
using testing::ElementsAre;

/// All fans are held, and fan 0 refuses to go back from 5 s on.
std::string refusingAtTheExit(const std::string& until, const std::string& exit) {
    return R"("machine":"laptop","duration":20,
        "faults":[{"key":"F0Md","value":0,"result":134,"from":4.9,"until":)" +
           until +
           R"(}],"events":[{"at":1,"call":"fullBlast"},{"at":2,"heartbeatEvery":2,"until":4},
                                   {"at":5,)" +
           exit + "}]";
}
const std::string sigterm = R"("signal":"SIGTERM")";
const std::string upgrade = R"("call":"shutdownForUpgrade")";

TEST(ExitRetries, ofASIGTERMGiveBackAFanThatRefusesForASecond) {
    for (std::uint64_t seed = 0; seed < 10; ++seed) {
        const ScenarioDiary run(refusingAtTheExit("6", sigterm), seed);
        EXPECT_FALSE(run.isAnyForced()) << "seed " << seed;
        EXPECT_THAT(run.statuses, ElementsAre(143));
        EXPECT_THAT(run.ends, ElementsAre(DoubleNear(6.25, 0.3)));
    }
}

TEST(ExitRetries, ofAnUpgradeGiveBackAFanThatRefusesForASecond) {
    for (std::uint64_t seed = 0; seed < 10; ++seed) {
        const ScenarioDiary run(refusingAtTheExit("6.2", upgrade), seed);
        EXPECT_FALSE(run.isAnyForced()) << "seed " << seed;
        EXPECT_THAT(run.statuses, ElementsAre(0));
        EXPECT_THAT(run.ends, ElementsAre(DoubleNear(6.45, 0.3)));
    }
}

TEST(ExitRetries, goOnUntilJustBeforeTheThreeSecondsAreOver) {
    const ScenarioDiary run(refusingAtTheExit("7.5", sigterm));
    EXPECT_FALSE(run.isAnyForced());
    EXPECT_THAT(run.ends, ElementsAre(DoubleNear(7.5, 0.1)));
}

TEST(ExitRetries, endWithTheThreeSecondsOfAnExit) {
    const ScenarioDiary run(refusingAtTheExit("19", sigterm));
    EXPECT_TRUE(run.isForced(0));
    EXPECT_FALSE(run.isForced(1));
    EXPECT_THAT(run.statuses, ElementsAre(143));
    EXPECT_THAT(run.ends, ElementsAre(DoubleNear(8, 0.01)));
}

/// The service manager starts it again, and that is soon enough.
TEST(ExitRetries, areNotMadeByAStartThatFails) {
    const ScenarioDiary run(R"("machine":"left-forced","duration":20,
        "faults":[{"key":"F0Md","value":0,"result":134,"until":1}])");
    EXPECT_TRUE(run.isForced(0));
    EXPECT_FALSE(run.isForced(1));
    EXPECT_THAT(run.statuses, ElementsAre(1));
    EXPECT_THAT(run.ends, ElementsAre(DoubleNear(0, 0.1)));
}

/// The guard looks for such fans 2 s after the start. The signal comes before that.
TEST(UncountedFans, thatAnEarlierProcessLeftForcedGoBackAtTheExit) {
    for (const int told : {0, 1}) {
        for (const char* at : {"0.2", "1", "1.9"}) {
            const ScenarioDiary run(fmt::format(
                R"("machine":"left-forced","duration":8,
                   "faults":[{{"key":"FNum","operation":"read","reading":{}}}],
                   "events":[{{"at":{},"signal":"SIGTERM"}}])",
                told, at));
            EXPECT_FALSE(run.isAnyForced()) << told << " told, signal at " << at;
            EXPECT_THAT(run.statuses, ElementsAre(143));
            EXPECT_THAT(run.log, testing::HasSubstr("listening"));
        }
    }
}

/// A start lasts 3 s at most, in which a slow SMC answers few requests.
TEST(UncountedFans, goBackWithinAFewStartsThatCannotCountThemThoughTheSMCIsSlow) {
    for (const double latency : {0.15, 0.2, 0.3}) {
        std::string slow;
        for (const char* operation : {"read", "write", "information"}) {
            slow +=
                fmt::format(R"(,{{"key":"*","operation":"{}","latency":{}}})", operation, latency);
        }
        const ScenarioDiary run(R"("machine":"left-forced","duration":25,"restartAfter":1,
            "faults":[{"key":"FNum","operation":"read","result":1})" +
                                slow + "]");
        EXPECT_FALSE(run.isAnyForced()) << latency << " s";
        EXPECT_THAT(run.statuses, testing::Each(1));
        EXPECT_GT(run.statuses.size(), 3U);
    }
}

}  // namespace
}  // namespace airflow::daemon
