// Which commands count as a client that is heard: one that may not have reached the hold loop is no
// heartbeat, and the silence goes on.
#include "OracleTrace.h"

namespace airflow::simulation {
namespace {

using control::ControlResult;
using control::HeartbeatLost;

/// The last heartbeat came at 1 s, and a command at 10 s.
class OracleHeardTest : public OracleTrace {
protected:
    void answer(Method method, ControlResult result) {
        serve();
        (void)call(1s, Method::heartbeat);
        const auto id = call(10s, Call{.method = method});
        reply(10s, id, method, std::move(result));
    }
    /// fullBlast asks for the count, which is refused, and fails.
    void failToCount(Duration refused) {
        serve();
        (void)call(1s, Method::heartbeat);
        if (refused < 10s) access(refused, Fault::Operation::read, "FNum", 0, refusal);
        const auto id = call(10s, Method::fullBlast);
        if (refused >= 10s) access(refused, Fault::Operation::read, "FNum", 0, refusal);
        reply(10s, id, Method::fullBlast, ControlResult::failed("could not read FNum"));
    }
    void expectSilenceOfFifteenSecondsAtSixteen() {
        publish(16s + instant, HeartbeatLost{});
        expectNoViolation();
    }
    void expectNoSilenceUntilTwentyFive() {
        publish(25s, HeartbeatLost{});
        expectViolation(Property::reasonsAreTrue, 25s);
    }
};

TEST_F(OracleHeardTest, isNoPlanThatWasRejected) {
    answer(Method::setManualRPM, ControlResult::rejected(255));
    expectSilenceOfFifteenSecondsAtSixteen();
}

TEST_F(OracleHeardTest, isNoPlanThatWasRejectedAtTheLimitOfTheSilence) {
    answer(Method::setManualRPM, ControlResult::rejected(255));
    publish(16s, HeartbeatLost{});
    expectViolation(Property::reasonsAreTrue, 16s);
}

TEST_F(OracleHeardTest, isAPlanThatFailed) {
    answer(Method::setManualRPM, ControlResult::failed("neither F0Md nor F0md exists"));
    expectNoSilenceUntilTwentyFive();
}

TEST_F(OracleHeardTest, isAPlanThatTimedOut) {
    answer(Method::setManualRPM, ControlResult::timedOut());
    expectNoSilenceUntilTwentyFive();
}

TEST_F(OracleHeardTest, isNoFullBlastThatCouldNotCountTheFans) {
    failToCount(10s);
    expectSilenceOfFifteenSecondsAtSixteen();
}

TEST_F(OracleHeardTest, isAFullBlastThatFailedAfterItsCount) {
    failToCount(9s);
    expectNoSilenceUntilTwentyFive();
}

/// A number that is none counts no fans either.
TEST_F(OracleHeardTest, isNoFullBlastThatReadNoNumber) {
    serve();
    (void)call(1s, Method::heartbeat);
    const auto id = call(10s, Method::fullBlast);
    oracle().access({.time = 10s,
                     .operation = Fault::Operation::read,
                     .key = "FNum",
                     .value = 0,
                     .isNumber = false});
    reply(10s, id, Method::fullBlast, ControlResult::failed("could not read FNum"));
    expectSilenceOfFifteenSecondsAtSixteen();
}

class OracleUncountedTest : public OracleTrace {};

/// A control step of its own time read the count that was refused.
TEST_F(OracleUncountedTest, fullBlastDelaysAReleaseWhenItAskedForTheFanAllTheSame) {
    serve();
    hold(1s);
    leave(5s);
    const auto id = call(5500ms, Method::fullBlast);
    access(5500ms, Fault::Operation::read, "FNum", 0, refusal);
    poll(5500ms);
    reply(5500ms, id, Method::fullBlast, ControlResult::failed("no mode key"));
    look(7s);
    expectNoViolation();
}

TEST_F(OracleUncountedTest, fullBlastIsJudgedByTheFewestFansThatTheSMCCountedMeanwhile) {
    addFan();
    serve();
    const auto id = call(2s, Method::fullBlast);
    read(2s, "FNum", 1);
    force(2s, 0);
    read(2s, "FNum", 2);
    reply(3s, id, Method::fullBlast);
    expectNoViolation();
}

TEST_F(OracleUncountedTest, fullBlastIsNotJudgedByWhatTheSMCCountedBefore) {
    addFan();
    serve();
    read(1s, "FNum", 1);
    const auto id = call(2s, Method::fullBlast);
    force(2s, 0);
    reply(3s, id, Method::fullBlast);
    expectViolation(Property::appliedIsTrue, 3s);
}

// Commands that came before the daemon listened

class OracleEarlyCommandTest : public OracleTrace {
protected:
    /// The client is gone when the daemon listens; its command is delivered all the same.
    void commandBeforeListening(bool isAnotherThere) {
        start(0s);
        if (isAnotherThere) connect(0s, "other");
        (void)call(100ms, {.client = "app", .method = Method::setManualRPM, .rpm = 3000});
        vanish(200ms, "app");
        listen(1s);
        force(1s);
    }
};

TEST_F(OracleEarlyCommandTest, mayForceWhileAnotherClientIsThere) {
    commandBeforeListening(true);
    look(3s);
    expectNoViolation();
}

TEST_F(OracleEarlyCommandTest, forcesNothingWhenAllClientsAreGone) {
    commandBeforeListening(false);
    expectViolationJustAfter(2s, Property::releaseBegins);
}

}  // namespace
}  // namespace airflow::simulation
