#include <limits>

#include "DaemonHarness.h"
#include "daemon/FanHelperService.h"

namespace airflow::daemon {
namespace {

using testing::Each;
using testing::ElementsAre;

constexpr const char* idle = R"({"perFanMode":{},"targets":{},"isHolding":false})";
constexpr const char* planForFan1 =
    R"({"fans":[{"fanID":1,"mode":{"fixedRPM":{"_0":2500}}}],"rules":[],"tuning":{"emaAlpha":0.3,)"
    R"("hysteresisCelsius":2,"maxDeltaRPMPerTick":400,"minDwellSeconds":3}})";

/// The answers to one call. Each call is answered once, so one has to come.
struct Codes {
    std::vector<std::int64_t> all;
    FanHelperService::CodeReply reply() {
        return [this](std::int64_t code) { all.push_back(code); };
    }
};

class FanHelperServiceTest : public DaemonSchedule {
protected:
    using Command = std::function<void(FanHelperService&, FanHelperService::CodeReply)>;

    void use(const std::string& machine, std::uint32_t userID = 0) {
        harness = std::make_unique<DaemonHarness>(GetParam(), machine, userID);
        harness->start();
        client = harness->daemon->listener.connect();
    }
    void SetUp() override { use("laptop"); }

    /// All answers to one command, `wait` later.
    std::vector<std::int64_t> codesOf(const Command& command, Duration wait = 12s) {
        const auto codes = std::make_shared<Codes>();
        client->send([command, codes](FanHelperService& service) {
            command(service, [codes](std::int64_t code) { codes->all.push_back(code); });
            EXPECT_THAT(codes->all, testing::IsEmpty()) << "it returns before it replies";
        });
        harness->advance(wait);
        return codes->all;
    }
    std::string state() { return harness->stateOf(client); }

    static Command manual(std::int64_t fan, std::int64_t rpm) {
        return [=](auto& service, auto reply) {
            service.setManualRPM(numbers::FanIndex(fan), numbers::WholeRPM(rpm), reply);
        };
    }
    static Command percent(std::int64_t fan, double share) {
        return [=](auto& service, auto reply) {
            service.setPercent(numbers::FanIndex(fan), numbers::Percent(share), reply);
        };
    }
    static Command apply(const std::string& document) {
        return [=](auto& service, auto reply) { service.applyConfig(document, reply); };
    }
    static inline const Command fullBlast = [](auto& service, auto reply) {
        service.fullBlast(reply);
    };
    static inline const Command automatic = [](auto& service, auto reply) {
        service.automatic(reply);
    };

    std::unique_ptr<DaemonHarness> harness;
    DaemonHarness::Connection client;
};

TEST_P(FanHelperServiceTest, aCommandThatIsAppliedIsAnsweredWith0Once) {
    EXPECT_THAT(codesOf(manual(0, 3000), 1s), ElementsAre(0));
    EXPECT_EQ(harness->mac.fan(0).mode, FanMode::forced);
    EXPECT_EQ(harness->mac.fan(0).target, 3000);
    EXPECT_THAT(codesOf(percent(1, 50), 1s), ElementsAre(0));
    EXPECT_EQ(harness->mac.fan(1).target, 3700);
    EXPECT_THAT(codesOf(apply(planForFan1), 1s), ElementsAre(0));
    EXPECT_EQ(harness->mac.fan(0).mode, FanMode::automatic);
    EXPECT_THAT(codesOf(fullBlast, 1s), ElementsAre(0));
    EXPECT_EQ(harness->mac.fan(0).target, 6000);
    EXPECT_THAT(codesOf(automatic, 1s), ElementsAre(0));
    EXPECT_THAT(harness->modes(), Each(FanMode::automatic));
}

TEST_P(FanHelperServiceTest, aClaimThatTheSMCKeepsBusyIsAnsweredWith2) {
    const auto keepBusy = [this] {
        use("laptop");
        harness->mac.smc().add({.key = "F0Md", .value = 1, .result = std::uint8_t{0x82}});
    };
    for (const Command& command : {manual(0, 3000), percent(0, 50), fullBlast}) {
        keepBusy();
        EXPECT_THAT(codesOf(command, 25s), ElementsAre(2));  // its first step claims, too
    }
}

TEST_P(FanHelperServiceTest, aFirmRefusalIsAnsweredWith4) {
    harness->mac.smc().add({.key = "F1Md", .value = 1, .result = std::uint8_t{0x86}});
    EXPECT_THAT(codesOf(manual(1, 3000)), ElementsAre(4));
    EXPECT_THAT(codesOf(percent(1, 50)), ElementsAre(4));
    EXPECT_THAT(codesOf(fullBlast), ElementsAre(4));
    EXPECT_THAT(codesOf(apply(planForFan1)), ElementsAre(4));
}

TEST_P(FanHelperServiceTest, withoutRootEveryCommandIsAnsweredWith5) {
    use("laptop", 501);
    for (const Command& command :
         {manual(0, 3000), percent(0, 50), fullBlast, automatic, apply(planForFan1)}) {
        EXPECT_THAT(codesOf(command, 1s), ElementsAre(5));
    }
    EXPECT_THAT(harness->modes(), Each(FanMode::automatic));
}

TEST_P(FanHelperServiceTest, aFailureIsAnsweredWith7AndItsReasonIsInTheState) {
    (void)codesOf(manual(0, 3000), 1s);
    harness->mac.smc().add({.key = "F0Md", .value = 0, .result = std::uint8_t{0x86}});
    EXPECT_THAT(codesOf(automatic, 1s), ElementsAre(7));
    EXPECT_THAT(state(),
                testing::HasSubstr(
                    R"x("lastError":"failed to restore Auto: F0Md=0 rejected (SMC 0x86)")x"));
}

TEST_P(FanHelperServiceTest, fansThatCannotBeCountedFailFullBlastWith7) {
    harness->mac.smc().add(
        {.key = "FNum", .operation = Fault::Operation::read, .result = std::uint8_t{0x84}});
    EXPECT_THAT(codesOf(fullBlast, 1s), ElementsAre(7));
    EXPECT_EQ(state(), idle);
}

TEST_P(FanHelperServiceTest, dataThatIsNoPlanIsAnsweredWith7AndChangesNothing) {
    for (const bool isHolding : {false, true}) {
        if (isHolding) {
            EXPECT_THAT(codesOf(manual(0, 3000), 1s), ElementsAre(0));
        }
        const std::string before = state();
        const auto writesBefore = harness->journal;
        for (const std::string& document :
             {std::string(), std::string("no JSON"), std::string("\xff\xfe\0", 3),
              std::string("{}"), std::string("[]"), std::string("null"),
              std::string(R"({"fans":[],"rules":[]})"), std::string(planForFan1) + "}"}) {
            EXPECT_THAT(codesOf(apply(document), 0s), ElementsAre(7))
                << testing::PrintToString(document);
            EXPECT_EQ(state(), before) << testing::PrintToString(document);
        }
        EXPECT_EQ(harness->journal, writesBefore);
    }
}

TEST_P(FanHelperServiceTest, theStateOfAFreshDaemonIsIdle) {
    EXPECT_EQ(state(), R"({"perFanMode":{},"targets":{},"isHolding":false})");
}

TEST_P(FanHelperServiceTest, theStateTellsWhatIsHeld) {
    (void)codesOf(manual(1, 3000), 1s);
    EXPECT_EQ(state(),
              R"({"perFanMode":{"1":{"manual":{}}},"targets":{"1":3000},"isHolding":true})");
}

TEST_P(FanHelperServiceTest, theStateIsAnsweredOnceAndNotBeforeTheCallReturns) {
    int answers = 0;
    client->send([&answers](FanHelperService& service) {
        service.readState([&answers](std::string_view) { ++answers; });
        EXPECT_EQ(answers, 0);
    });
    harness->advance(1s);
    EXPECT_EQ(answers, 1);
}

TEST_P(FanHelperServiceTest, theVersionIsAnsweredBeforeTheCallReturnsHoweverBusyTheController) {
    use("busy");
    Codes codes;
    client->send([&](FanHelperService& service) { service.fullBlast(codes.reply()); });
    harness->advance(1s);
    std::vector<std::string> versions;
    client->send([&versions](FanHelperService& service) {
        const auto keep = [&versions](std::string_view text) { versions.emplace_back(text); };
        service.helperVersion(keep);
        EXPECT_THAT(versions, ElementsAre("1.0.3+6"));
    });
    harness->daemon->runtime.settle();
    EXPECT_THAT(versions, ElementsAre("1.0.3+6"));
    EXPECT_THAT(codes.all, testing::IsEmpty());  // still claiming
}

TEST_P(FanHelperServiceTest, theVersionNeedsNoSMCThatAnswers) {
    harness->mac.smc().add({.operation = Fault::Operation::read, .latency = 1h});
    Codes codes;
    client->send([&](FanHelperService& service) { service.fullBlast(codes.reply()); });
    harness->advance(1s);
    std::string version;
    client->send([&version](FanHelperService& service) {
        service.helperVersion([&version](std::string_view text) { version = text; });
    });
    harness->daemon->runtime.settle();
    EXPECT_EQ(version, "1.0.3+6");
}

TEST_P(FanHelperServiceTest, restoreAutoIsAcknowledgedOnceWhenTheFansAreBack) {
    (void)codesOf(fullBlast, 1s);
    harness->mac.smc().add({.key = "F1Md", .value = 0, .latency = 500ms});
    int acknowledgements = 0;
    client->send([&](FanHelperService& service) {
        service.restoreAuto([&] {
            ++acknowledgements;
            EXPECT_THAT(harness->modes(), Each(FanMode::automatic));
        });
    });
    harness->advance(499ms);
    EXPECT_EQ(acknowledgements, 0);
    harness->advance(1ms);
    EXPECT_EQ(acknowledgements, 1);
    harness->advance(10s);
    EXPECT_EQ(acknowledgements, 1);
    EXPECT_EQ(state(), idle);
}

TEST_P(FanHelperServiceTest, restoreAutoIsAcknowledgedEvenWhenAFanRefuses) {
    (void)codesOf(fullBlast, 1s);
    harness->mac.smc().add({.key = "F1Md", .value = 0, .result = std::uint8_t{0x86}});
    int acknowledgements = 0;
    client->send([&acknowledgements](FanHelperService& service) {
        service.restoreAuto([&acknowledgements] { ++acknowledgements; });
    });
    harness->advance(10s);
    EXPECT_EQ(acknowledgements, 1);
    EXPECT_THAT(harness->modes(), ElementsAre(FanMode::automatic, FanMode::forced));
}

TEST_P(FanHelperServiceTest, heartbeatsKeepFansHeld) {
    (void)codesOf(fullBlast, 1s);
    for (int beat = 0; beat < 4; ++beat) {
        harness->advance(14s);
        client->send([](FanHelperService& service) { service.heartbeat(); });
    }
    harness->advance(14s);
    EXPECT_THAT(harness->modes(), Each(FanMode::forced));
    harness->advance(3s);
    EXPECT_THAT(harness->modes(), Each(FanMode::automatic));
}

TEST_P(FanHelperServiceTest, fansThatTheMachineDoesNotHaveAreForTheControllerToRefuse) {
    constexpr auto lowest = std::numeric_limits<std::int64_t>::min();
    constexpr auto highest = std::numeric_limits<std::int64_t>::max();
    for (const Command& command :
         {manual(2, highest), manual(9, lowest), percent(2, 1e300), percent(9, -1)}) {
        EXPECT_THAT(codesOf(command), ElementsAre(7));
        EXPECT_THAT(harness->modes(), Each(FanMode::automatic));
    }
}

TEST_P(FanHelperServiceTest, manyCommandsAtOnceAreEachAnsweredOnce) {
    use("unlock");
    std::map<std::string, int> answers;
    const auto other = harness->daemon->listener.connect();
    for (const auto& each : {client, other, client, other}) {
        each->send([&answers](FanHelperService& service) {
            const auto count = [&answers](const std::string& name) {
                return [&answers, name](auto...) { ++answers[name]; };
            };
            service.setManualRPM(0_fan, 3000_rpm, count("setManualRPM"));
            service.setPercent(1_fan, 40_percent, count("setPercent"));
            service.fullBlast(count("fullBlast"));
            service.automatic(count("automatic"));
            service.applyConfig(planForFan1, count("applyConfig"));
            service.restoreAuto(count("restoreAuto"));
            service.heartbeat();
            service.readState(count("readState"));
            service.helperVersion(count("helperVersion"));
        });
    }
    harness->advance(1min);
    EXPECT_EQ(answers.size(), 8U);
    for (const auto& [name, count] : answers) EXPECT_EQ(count, 4) << name;
    EXPECT_THAT(harness->modes(), Each(FanMode::automatic));  // no heartbeat any more
}

INSTANTIATE_TEST_SUITE_P(Seeds, FanHelperServiceTest,
                         testing::Range(std::uint64_t{0}, std::uint64_t{21}));

}  // namespace
}  // namespace airflow::daemon
