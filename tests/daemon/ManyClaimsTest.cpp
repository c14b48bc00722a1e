// Many commands of one client at once, against a slow SMC: each of them claims the same fans.
#include <fmt/format.h>
#include <gmock/gmock.h>

#include "ScenarioDiary.h"

namespace airflow::daemon {
namespace {

using testing::DoubleNear;
using testing::ElementsAre;
using testing::Lt;
using testing::Optional;

/// 200 times full speed from 1 s on, with 20 ms for each write; at 8 s all claims of fan 0 and some
/// of fan 1 were granted.
std::string flood(const std::string& end) {
    std::string events;
    for (int i = 0; i < 200; ++i) {
        events +=
            fmt::format(R"({{"at":{:.3f},"client":"app","call":"fullBlast"}},)", 1 + i * 1e-3);
    }
    return R"("machine":"laptop","duration":20,
        "faults":[{"key":"*","operation":"write","latency":0.02}],"events":[)" +
           events + R"({"at":8,)" + end + "}]";
}

/// Were each of the claims to give its fan back, the exit's own requests would wait for them.
TEST(ManyClaims, areGivenBackOnceForAllAtAnExit) {
    const ScenarioDiary run(flood(R"("signal":"SIGTERM")"));
    EXPECT_FALSE(run.isAnyForced());
    EXPECT_THAT(run.statuses, ElementsAre(143));
    EXPECT_THAT(run.ends, ElementsAre(DoubleNear(8, 1)));
}

TEST(ManyClaims, areGivenBackOnceForAllWhenTheirClientGoes) {
    const ScenarioDiary run(flood(R"("disconnect":"app")"));
    EXPECT_FALSE(run.isAnyForced());
    EXPECT_THAT(run.givenBack(0), Optional(Lt(9)));
    EXPECT_THAT(run.givenBack(1), Optional(Lt(9)));
}

}  // namespace
}  // namespace airflow::daemon
