// The daemon's process in simulate's output: connections, signals, ends and starts.
#include <gmock/gmock.h>

#include <sstream>

#include "ToolRun.h"

namespace airflow::tool {
namespace {

using testing::HasSubstr;
using testing::Not;

class SimulateDaemon : public testing::Test {
protected:
    ToolRun simulate(const std::string& events, std::vector<std::string> more = {},
                     const std::string& members = "") {
        const std::string scenario =
            R"({"machine":{"preset":"laptop","fans":[{}],"hid":{"CPU":50},"smc":{}},)"
            R"("duration":9,)" +
            members + R"("events":[)" + events + "]}";
        std::vector<std::string> arguments{"simulate", folder.write("s.json", scenario)};
        arguments.insert(arguments.end(), more.begin(), more.end());
        auto run = runTool(arguments);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, "");
        return run;
    }
    /// What the table tells, without samples and summary.
    std::string tableOf(const std::string& events, const std::string& members = "") {
        return linesOf(simulate(events, {}, members).out, [](const std::string& line) {
            return line.starts_with("  ") && line.find(" | ") == std::string::npos;
        });
    }
    /// The lines of the summary that count releases.
    std::string releasesIn(const std::string& events, const std::string& seed = "0",
                           const std::string& members = "") {
        return linesOf(simulate(events, {"--seed", seed}, members).out,
                       [](const std::string& line) { return line.starts_with("releases"); });
    }
    /// JSON lines, without those of the SMC and of states.
    std::string jsonOf(const std::string& events) {
        return linesOf(simulate(events, {"--format", "jsonl"}).out, [](const std::string& line) {
            return line.find("\"smc\"") == std::string::npos &&
                   line.find("\"state\"") == std::string::npos;
        });
    }

    ScratchFolder folder;

private:
    template <typename Wanted>
    static std::string linesOf(const std::string& out, Wanted isWanted) {
        std::string lines;
        std::istringstream text(out);
        for (std::string line; std::getline(text, line);) {
            if (isWanted(line)) lines += line + '\n';
        }
        return lines;
    }
};

constexpr const char* upAndListening =
    "       0.0  log: [com.brisquell.helper] listening on com.brisquell.helper (build 1.0.3+6)\n";

TEST_F(SimulateDaemon, theTableShowsConnections) {
    EXPECT_EQ(tableOf(R"({"at":1,"connect":"app"},{"at":2,"disconnect":"app"})"),
              std::string(upAndListening) +
                  "       1.0  app connects\n"
                  "       2.0  app is gone\n");
}

TEST_F(SimulateDaemon, theTableShowsThatAnUntrustedPeerIsRefused) {
    EXPECT_EQ(tableOf(R"({"at":1,"connect":"other","stranger":true},
                         {"at":2,"client":"other","call":"fullBlast"})"),
              std::string(upAndListening) +
                  "       1.0  other connects\n"
                  "       2.0  other: fullBlast\n"
                  "       2.0  other is gone\n");
}

TEST_F(SimulateDaemon, theTableShowsSignals) {
    EXPECT_EQ(tableOf(R"({"at":1,"signal":"SIGTERM"},{"at":2,"signal":"SIGTERM"})"),
              std::string(upAndListening) +
                  "       1.0  SIGTERM\n"
                  "       1.0  log: [com.brisquell.helper] SIGTERM: restoring Auto...\n"
                  "       1.0  the daemon exits with status 143\n");
    EXPECT_EQ(tableOf(R"({"at":1,"signal":"SIGINT"})"),
              std::string(upAndListening) +
                  "       1.0  SIGINT\n"
                  "       1.0  log: [com.brisquell.helper] SIGINT: restoring Auto...\n"
                  "       1.0  the daemon exits with status 130\n");
}

TEST_F(SimulateDaemon, theTableShowsKillsAndStarts) {
    EXPECT_EQ(tableOf(R"({"at":1,"kill":true},{"at":2,"call":"readState"},{"at":3,"start":true})"),
              std::string(upAndListening) +
                  "       1.0  the daemon is killed\n"
                  "       3.0  the daemon starts\n"
                  "       3.0  log: [com.brisquell.helper] listening on com.brisquell.helper "
                  "(build 1.0.3+6)\n");
}

TEST_F(SimulateDaemon, theTableShowsADaemonThatASignalEndsBeforeItsHandlersAreInstalled) {
    EXPECT_EQ(tableOf(R"({"at":0,"signal":"SIGTERM","afterSteps":1})"),
              "       0.0  SIGTERM\n"
              "       0.0  the daemon is killed\n");
}

TEST_F(SimulateDaemon, theTableShowsHowLongADocumentIs) {
    EXPECT_EQ(tableOf(R"({"at":1,"call":"applyConfig","document":"no plan"})"),
              std::string(upAndListening) +
                  "       1.0  app connects\n"
                  "       1.0  app: applyConfig (7 bytes)\n"
                  "       1.0  app: applyConfig → failed\n");
}

TEST_F(SimulateDaemon, anErrorOfAnEarlierLifeIsNotGoneButForgotten) {
    const std::string table = tableOf(R"({"at":1,"call":"setManualRPM","fan":5,"rpm":1},
        {"at":2,"kill":true},{"at":3,"start":true})");
    EXPECT_THAT(table, HasSubstr("lastError: "));
    EXPECT_THAT(table, Not(HasSubstr("lastError is gone")));
}

TEST_F(SimulateDaemon, jsonLinesShowConnections) {
    EXPECT_EQ(jsonOf(R"({"at":1,"connect":"app"},{"at":2,"disconnect":"app"})"),
              R"x({"time":0,"daemon":"started"}
{"time":0,"log":"[com.brisquell.helper] listening on com.brisquell.helper (build 1.0.3+6)"}
{"time":1,"client":"app","connection":"open"}
{"time":2,"client":"app","connection":"ended"}
)x");
}

TEST_F(SimulateDaemon, jsonLinesShowSignalsEndsAndStarts) {
    EXPECT_EQ(jsonOf(R"({"at":1,"signal":"SIGTERM"},{"at":2,"start":true},{"at":3,"kill":true},
                        {"at":4,"start":true},{"at":5,"signal":"SIGINT"})"),
              R"x({"time":0,"daemon":"started"}
{"time":0,"log":"[com.brisquell.helper] listening on com.brisquell.helper (build 1.0.3+6)"}
{"time":1,"signal":"SIGTERM"}
{"time":1,"log":"[com.brisquell.helper] SIGTERM: restoring Auto..."}
{"time":1,"daemon":"exited","status":143}
{"time":2,"daemon":"started"}
{"time":2,"log":"[com.brisquell.helper] listening on com.brisquell.helper (build 1.0.3+6)"}
{"time":3,"daemon":"killed","status":137}
{"time":4,"daemon":"started"}
{"time":4,"log":"[com.brisquell.helper] listening on com.brisquell.helper (build 1.0.3+6)"}
{"time":5,"signal":"SIGINT"}
{"time":5,"log":"[com.brisquell.helper] SIGINT: restoring Auto..."}
{"time":5,"daemon":"exited","status":130}
)x");
}

TEST_F(SimulateDaemon, aStopIsShownWithItsLine) {
    const std::string events = R"({"at":1,"stop":true},{"at":2,"start":true})";
    EXPECT_EQ(tableOf(events),
              std::string(upAndListening) +
                  "       1.0  log: [com.brisquell.helper] A bug: the scenario asked for one.\n"
                  "       1.0  the daemon stops itself\n"
                  "       2.0  the daemon starts\n"
                  "       2.0  log: [com.brisquell.helper] listening on com.brisquell.helper "
                  "(build 1.0.3+6)\n");
    EXPECT_EQ(jsonOf(events), R"x({"time":0,"daemon":"started"}
{"time":0,"log":"[com.brisquell.helper] listening on com.brisquell.helper (build 1.0.3+6)"}
{"time":1,"log":"[com.brisquell.helper] A bug: the scenario asked for one."}
{"time":1,"daemon":"stopped","status":134}
{"time":2,"daemon":"started"}
{"time":2,"log":"[com.brisquell.helper] listening on com.brisquell.helper (build 1.0.3+6)"}
)x");
}

/// A count of fans or keys that a machine gets wrong from 3 s on, as a number of type "flt ".
class SimulateDaemonCounts : public SimulateDaemon,
                             public testing::WithParamInterface<std::string> {
protected:
    std::string timelineOf(const std::string& key, const std::string& members) {
        const std::string fault = R"({"from":3,"key":")" + key + R"(",)";
        const std::string faults = R"("faults":[)" + fault +
                                   R"("operation":"information","type":"flt ","size":4},)" + fault +
                                   R"("operation":"read","reading":)" + GetParam() + "}],";
        return tableOf(R"({"at":1,"call":"setManualRPM","fan":0,"rpm":3000},
                          {"at":6,"call":"automatic"},{"at":7,"call":"readState"})",
                       members + faults);
    }
};

TEST_P(SimulateDaemonCounts, aCountOfFansThatIsWrongStopsNothing) {
    const std::string timeline = timelineOf("FNum", "");
    EXPECT_THAT(timeline, HasSubstr("       1.0  fan 0 forced\n"));
    EXPECT_THAT(timeline, HasSubstr("       6.0  app: automatic → applied\n"));
    EXPECT_THAT(timeline, HasSubstr("       7.0  app: readState → not holding\n"));
    EXPECT_THAT(timeline, Not(HasSubstr("stops itself")));
}

TEST_P(SimulateDaemonCounts, aCountOfKeysThatIsWrongStopsNothing) {
    // Without HID temperatures the keys are enumerated; they are first when these vanish.
    const std::string timeline =
        timelineOf("#KEY", R"("temperatures":[{"at":4,"hid":null}],"restartAfter":1,)");
    EXPECT_THAT(timeline, HasSubstr("falling back to curated SMC temp keys"));
    EXPECT_THAT(timeline, HasSubstr("       7.0  app: readState → not holding\n"));
    EXPECT_THAT(timeline, Not(HasSubstr("stops itself")));
}

INSTANTIATE_TEST_SUITE_P(, SimulateDaemonCounts,
                         testing::Values("300", "3e9", R"("inf")", R"("-inf")", R"("nan")", "-5"));

class SimulateDaemonReleases : public SimulateDaemon,
                               public testing::WithParamInterface<std::string> {};

TEST_P(SimulateDaemonReleases, theEndOfAConnectionReleases) {
    EXPECT_EQ(releasesIn(R"({"at":1,"call":"fullBlast"},{"at":3,"disconnect":"app"})", GetParam()),
              "releases         1 × the end of a connection\n");
}

TEST_P(SimulateDaemonReleases, aRefusedUntrustedPeerReleases) {
    EXPECT_EQ(releasesIn(R"({"at":1,"call":"fullBlast"},{"at":2,"connect":"x","stranger":true},
                            {"at":3,"client":"x","call":"heartbeat"})",
                         GetParam()),
              "releases         1 × the end of a connection\n");
}

TEST_P(SimulateDaemonReleases, aSignalReleases) {
    EXPECT_EQ(releasesIn(R"({"at":1,"call":"fullBlast"},{"at":3,"signal":"SIGTERM"})", GetParam()),
              "releases         1 × SIGTERM\n");
    EXPECT_EQ(releasesIn(R"({"at":1,"call":"fullBlast"},{"at":3,"signal":"SIGINT"})", GetParam()),
              "releases         1 × SIGINT\n");
}

TEST_P(SimulateDaemonReleases, theStartAfterAStopReleases) {
    EXPECT_EQ(
        releasesIn(R"({"at":1,"call":"fullBlast"},{"at":3,"stop":true},{"at":4,"start":true})",
                   GetParam()),
        "releases         1 × start-up recovery\n");
}

TEST_P(SimulateDaemonReleases, recoveryReleasesAfterARestart) {
    EXPECT_EQ(
        releasesIn(R"({"at":1,"call":"fullBlast"},{"at":3,"kill":true},{"at":4,"start":true})",
                   GetParam()),
        "releases         1 × start-up recovery\n");
}

TEST_P(SimulateDaemonReleases, recoveryReleasesWhatRefusedAnEarlierLife) {
    EXPECT_EQ(releasesIn(R"({"at":1,"call":"fullBlast"},{"at":3,"call":"automatic"},
                            {"at":4,"kill":true},{"at":6,"start":true})",
                         GetParam(), R"("faults":[{"from":2,"until":5,"key":"F0Md",
                            "operation":"write","value":0,"result":134}],)"),
              "releases         1 × start-up recovery\n");
}

TEST_P(SimulateDaemonReleases, commandsOfALaterLifeReleaseAsThoseOfTheFirst) {
    EXPECT_EQ(releasesIn(R"({"at":1,"call":"fullBlast"},{"at":2,"signal":"SIGTERM"},
                            {"at":3,"start":true},{"at":4,"call":"fullBlast"},
                            {"at":5,"call":"restoreAuto"},{"at":6,"call":"fullBlast"},
                            {"at":7,"disconnect":"app"})",
                         GetParam()),
              "releases         1 × SIGTERM\n"
              "releases         1 × restoreAuto\n"
              "releases         1 × the end of a connection\n");
}

INSTANTIATE_TEST_SUITE_P(Seeds, SimulateDaemonReleases,
                         testing::Values("0", "1", "2", "3", "4", "5"));

}  // namespace
}  // namespace airflow::tool
