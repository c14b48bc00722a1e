// The start and the end of the process: the smallest runs that break a property, and the same runs
// on the right side of its bound.
#include "OracleTrace.h"

namespace airflow::simulation {
namespace {

// exitRestoresFirst

class OracleExitTest : public OracleTrace {};

TEST_F(OracleExitTest, leavesNoFanForced) {
    serve();
    hold(1s);
    terminate(5s);
    end(8s - instant);
    expectViolation(Property::exitRestoresFirst, 8s - instant);
}

TEST_F(OracleExitTest, leavesNoneThatWasAskedAndForcedAgain) {
    serve();
    hold(1s);
    terminate(5s);
    giveBack(5s);
    force(5s);
    end(6s);
    expectViolation(Property::exitRestoresFirst, 6s);
}

TEST_F(OracleExitTest, mayLeaveOneWhenItsThreeSecondsAreOver) {
    serve();
    hold(1s);
    terminate(5s);
    end(8s);
    expectNoViolation();
}

TEST_F(OracleExitTest, mayLeaveOneThatRefuses) {
    serve();
    hold(1s);
    terminate(5s);
    refuse(5s);
    end(5s);
    expectNoViolation();
}

TEST_F(OracleExitTest, mayLeaveOneOfWhichTheSMCAnswersFalsely) {
    serve();
    hold(1s);
    terminate(5s);
    lie(5s);
    end(5s);
    expectNoViolation();
}

TEST_F(OracleExitTest, asksItselfWhatWasAskedBefore) {
    serve();
    hold(1s);
    leave(5s - instant);
    refuse(5s - instant);
    terminate(5s);
    end(5s);
    expectViolation(Property::exitRestoresFirst, 5s);
}

TEST_F(OracleExitTest, isNoneWithoutARestoration) {
    serve();
    hold(1s);
    end(5s, 0);
    expectViolation(Property::exitRestoresFirst, 5s);
}

TEST_F(OracleExitTest, findsTheFansThatTheStartHasNotFoundYet) {
    scenario.machine.fans[0].mode = 1;
    oracle().started(0s);
    terminate(1s);
    end(1s);
    expectViolation(Property::exitRestoresFirst, 1s);
}

TEST_F(OracleExitTest, findsThemWhenTheStartFails) {
    scenario.machine.fans[0].mode = 1;
    oracle().started(0s);
    access(0s, Fault::Operation::read, "FNum", 0, refusal);
    oracle().exitBegan(1s);
    end(1s, 1);
    expectViolation(Property::exitRestoresFirst, 1s);
}

TEST_F(OracleExitTest, cannotFindOneWhoseKeyCannotBeRead) {
    scenario.machine.fans[0].mode = 1;
    oracle().started(0s);
    terminate(1s);
    ask(1s, "F0Md", refusal);
    end(1s);
    expectNoViolation();
}

TEST_F(OracleExitTest, cannotFindOneThatAFaultHides) {
    scenario.machine.fans[0].mode = 1;
    scenario.faults.push_back(
        {.key = "*", .operation = Fault::Operation::information, .result = refusal});
    oracle().started(0s);
    terminate(1s);
    end(1s);
    expectNoViolation();
}

TEST_F(OracleExitTest, forcesNothing) {
    serve();
    (void)call(4s, manual());
    terminate(5s);
    poll(5s);
    expectNoViolation();  // may have been in the driver's queue
    poll(5s + instant);
    expectViolation(Property::exitRestoresFirst, 5s + instant);
}

TEST_F(OracleExitTest, isFollowedByNoListening) {
    start();
    terminate(1s);
    listen(2s);
    expectViolation(Property::exitRestoresFirst, 2s);
}

TEST_F(OracleExitTest, isNoneOfAKilledProcess) {
    serve();
    hold(1s);
    end(5s, 137, true);
    look(600s);
    expectNoViolation();
}

TEST_F(OracleExitTest, isJudgedByItsOwnBoundOnly) {
    serve();
    hold(1s);
    terminate(5s);
    look(7s);
    expectNoViolation();
}

// exitIsInTime

TEST_F(OracleExitTest, takesThreeSecondsAtMost) {
    serve();
    terminate(5s);
    end(8s);
    expectNoViolation();
    serve(10s);
    terminate(15s);
    end(18s + instant);
    expectViolation(Property::exitIsInTime, 18s + instant);
}

TEST_F(OracleExitTest, thatNeverEndsIsNotInTime) {
    serve();
    terminate(5s);
    expectViolationJustAfter(8s, Property::exitIsInTime);
}

// firstExitCounts

TEST_F(OracleExitTest, bySignalHasTheSignalsStatus) {
    serve();
    terminate(5s);
    end(6s, 1);
    expectViolation(Property::firstExitCounts, 6s);
}

TEST_F(OracleExitTest, bySIGINTHasItsOwn) {
    serve();
    oracle().signalled(5s, daemon::Signal::interrupt);
    oracle().exitBegan(5s);
    end(5s, 130);
    expectNoViolation();
    serve(10s);
    oracle().signalled(15s, daemon::Signal::interrupt);
    oracle().exitBegan(15s);
    end(15s, 143);
    expectViolation(Property::firstExitCounts, 15s);
}

TEST_F(OracleExitTest, byTwoSignalsAtOnceMayHaveTheStatusOfEither) {
    serve();
    oracle().signalled(5s, daemon::Signal::terminate);
    oracle().signalled(5s, daemon::Signal::interrupt);
    oracle().exitBegan(5s);
    end(5s, 130);
    expectNoViolation();
}

TEST_F(OracleExitTest, thatBeganBeforeTheSignalKeepsItsStatus) {
    serve();
    oracle().exitBegan(5s);
    oracle().signalled(6s, daemon::Signal::terminate);
    end(7s, 143);
    expectViolation(Property::firstExitCounts, 7s);
}

TEST_F(OracleExitTest, ofAStartThatFailsInTheMomentOfASignalMayHaveEitherStatus) {
    start();
    terminate(1s);
    end(1s, 1);
    expectNoViolation();
}

TEST_F(OracleExitTest, ofAnUpgradeInTheMomentOfASignalMayHaveEitherStatus) {
    serve();
    (void)call(1s, Method::shutdownForUpgrade);
    terminate(1200ms);
    end(1200ms, 0);
    expectNoViolation();
}

// inputNeverStopsTheProcess

TEST_F(OracleExitTest, asABugDoesIsNeverDueToInput) {
    serve();
    hold(1s);
    end(5s, 134);
    expectViolation(Property::inputNeverStopsTheProcess, 5s);
}

// recoveryComesFirst

class OracleRecoveryTest : public OracleTrace {
protected:
    OracleRecoveryTest() { scenario.machine.fans[0].mode = 1; }
};

TEST_F(OracleRecoveryTest, comesBeforeTheDaemonListens) {
    start();
    listen();
    expectViolation(Property::recoveryComesFirst, 0s);
}

TEST_F(OracleRecoveryTest, givesTheFanBack) {
    start();
    giveBack(0s);
    listen();
    expectNoViolation();
}

TEST_F(OracleRecoveryTest, looksForEveryModeKey) {
    oracle().started(0s);
    listen();
    expectViolation(Property::recoveryComesFirst, 0s);
}

TEST_F(OracleRecoveryTest, cannotFindAFanWhoseModeKeyCannotBeRead) {
    oracle().started(0s);
    ask(0s, "F0Md");
    access(0s, Fault::Operation::read, "F0Md", 0, refusal);
    listen(0s);
    expectNoViolation();
}

TEST_F(OracleRecoveryTest, cannotFindAFanThatTheCountConceals) {
    oracle().started(0s);
    read(0s, "FNum", 0);
    listen(0s);
    expectNoViolation();
}

TEST_F(OracleRecoveryTest, findsAFanThatTheCountTellsOf) {
    start();
    read(0s, "FNum", 1);
    listen(0s);
    expectViolation(Property::recoveryComesFirst, 0s);
}

TEST_F(OracleRecoveryTest, isNotDelayedByAFanOfWhichTheSMCAnswersFalsely) {
    start();
    lie(0s);
    listen();
    expectNoViolation();
}

TEST_F(OracleRecoveryTest, comesBeforeAnyAnswer) {
    scenario.machine.fans[0].mode = 0;
    start();
    const auto early = call(1s, Method::readState);
    reply(1s, early, Method::readState);
    expectViolation(Property::recoveryComesFirst, 1s);
}

TEST_F(OracleRecoveryTest, isFollowedByTheAnswersToWhatWasAskedBefore) {
    scenario.machine.fans[0].mode = 0;
    start();
    const auto early = call(1s, Method::readState);
    listen(2s);
    reply(2s, early, Method::readState);
    expectNoViolation();
}

}  // namespace
}  // namespace airflow::simulation
