// What the oracle lets pass when a release overtakes a claim, which then succeeds, and nobody
// watches the fan; and what it does not let pass although it looks like that.
#include "OracleTrace.h"

namespace airflow::simulation {
namespace {

using control::ControlResult;

class OracleOvertakenTest : public OracleTrace {
protected:
    static Call emptyPlan() { return {.method = Method::applyConfig}; }

    /// The client's command is under way when it goes, and forces its fan a second later.
    void forceAfterTheClientHasGone() {
        serve();
        const auto id = call(4s, manual());
        leave(5s);
        force(6s);
        claim = id;
    }

    std::uint64_t claim = 0;
};

TEST_F(OracleOvertakenTest, aFanThatAControlStepForcesAfterAReleaseIsWatchedByNobody) {
    serve();
    hold(1s);
    leave(5s);
    giveBack(5s);
    force(6s);
    look(600s);
    expectNoViolation();
}

TEST_F(OracleOvertakenTest, aFanThatACommandForcesAfterAReleaseIsWatchedByItsLoop) {
    forceAfterTheClientHasGone();
    reply(7s, claim, Method::setManualRPM);
    expectViolationJustAfter(37s, Property::silenceEndsControl);
}

TEST_F(OracleOvertakenTest, butNotIfTheCommandFailedInTheEnd) {
    forceAfterTheClientHasGone();
    reply(7s, claim, Method::setManualRPM, ControlResult::timedOut());
    look(600s);
    expectNoViolation();
}

TEST_F(OracleOvertakenTest, norAfterAPlanWithoutFans) {
    forceAfterTheClientHasGone();
    reply(7s, claim, Method::setManualRPM);
    reply(8s, call(8s, emptyPlan()), Method::applyConfig);
    look(600s);
    expectNoViolation();
}

TEST_F(OracleOvertakenTest, aFanThatWasForcedBeforeTheReleaseIsNotOvertaken) {
    serve();
    const auto id = call(4s, manual());
    force(5s);
    leave(5s);
    reply(5s, id, Method::setManualRPM);
    expectViolationJustAfter(6s, Property::releaseBegins);
}

TEST_F(OracleOvertakenTest, commandsUnderWayMayGoOnClaimingAfterARelease) {
    addFan();
    serve();
    const auto id = call(4s, Method::fullBlast);
    leave(5s);
    write(6s, "F0Md", 1, refusal);
    write(6s, "F1Md", 1, refusal);
    expectNoViolation();
    reply(7s, id, Method::fullBlast, ControlResult::rejected(134));
    leave(8s);
    write(8s, "F0Md", 0);
    write(9s, "F0Md", 1, refusal);
    write(9s, "F1Md", 1, refusal);
    expectViolation(Property::releaseLasts, 9s);
}

TEST_F(OracleOvertakenTest, aNewerCommandMayForceWhateverItWants) {
    addFan();
    serve();
    leave(5s);
    hold(60s, 0);
    hold(61s, 1);
    expectNoViolation();
}

TEST_F(OracleOvertakenTest, aStateTellsOfAFanThatTheSMCSaidItHadForcedAndHadNot) {
    serve();
    hold(1s);
    leave(5s);
    giveBack(5s);
    write(6s, "F0Md", 1);
    tellState(60s, {.perFanMode = {{0, control::ControlMode::manual}},
                    .targets = {},
                    .isHolding = true,
                    .lastError = {},
                    .stoppedFans = {}});
    expectNoViolation();
}

TEST_F(OracleOvertakenTest, aPlanWithoutFansStartsNoLoopForWhatAControlStepForcesBehindIt) {
    serve();
    hold(1s);
    const auto id = call(5s, emptyPlan());
    giveBack(5s);
    force(6s);
    reply(7s, id, Method::applyConfig);
    look(600s);
    expectNoViolation();
}

TEST_F(OracleOvertakenTest,
       aFanThatWasForcedWhenTheCommandCameIsClaimedByItsStepBehindTheLoopsEnd) {
    serve();
    hold(1s);
    const auto id = call(4s, manual());
    leave(5s);
    giveBack(5s);
    force(6s);
    reply(7s, id, Method::setManualRPM);
    look(600s);
    expectNoViolation();
}

TEST_F(OracleOvertakenTest, soIsOneThatTheCommandHasForcedOnce) {
    serve();
    const auto id = call(4s, manual());
    force(4500ms);
    leave(5s);
    giveBack(5s);
    force(6s);
    reply(7s, id, Method::setManualRPM);
    look(600s);
    expectNoViolation();
}

TEST_F(OracleOvertakenTest, soIsOneThatWentBackLessThanASecondBefore) {
    serve();
    hold(1s);
    leave(3s);
    giveBack(3s + instant);  // by a release that may not be over yet
    const auto id = call(4s, manual());
    leave(5s);
    force(6s);
    reply(7s, id, Method::setManualRPM);
    look(600s);
    expectNoViolation();
}

TEST_F(OracleOvertakenTest, oneThatWentBackASecondBeforeIsClaimedByTheCommandItself) {
    serve();
    hold(1s);
    leave(3s);
    giveBack(3s);
    const auto id = call(4s, manual());
    leave(5s);
    force(6s);
    reply(7s, id, Method::setManualRPM);
    expectViolationJustAfter(37s, Property::silenceEndsControl);
}

TEST_F(OracleOvertakenTest, aCommandThatStillCountedAtOneReleaseIsOvertakenByTheNext) {
    serve();
    const auto id = call(4s, Method::fullBlast);
    leave(4s);  // may be before the plan
    leave(5s);
    reply(6s, id, Method::fullBlast);
    force(7s);
    look(600s);
    expectNoViolation();
}

TEST_F(OracleOvertakenTest, butNotByTheOneAtWhichItCounted) {
    serve();
    const auto id = call(4s, Method::fullBlast);
    leave(4s);
    reply(6s, id, Method::fullBlast);
    force(7s);
    expectViolationJustAfter(36s, Property::silenceEndsControl);
}

TEST_F(OracleOvertakenTest, ofTwoCommandsAtOnceTheOlderMayForceBehindARelease) {
    serve();
    const auto older = call(4s, manual());
    const auto newer = call(5s, manual());
    leave(5s);  // may be before the newer
    reply(6s, newer, Method::setManualRPM);
    force(8s);
    reply(9s, older, Method::setManualRPM);
    look(600s);
    expectNoViolation();
}

TEST_F(OracleOvertakenTest, withoutAReleaseItIsWatched) {
    serve();
    const auto older = call(4s, manual());
    const auto newer = call(5s, manual());
    reply(6s, newer, Method::setManualRPM);
    force(8s);
    reply(9s, older, Method::setManualRPM);
    expectViolationJustAfter(39s, Property::silenceEndsControl);
}

class OracleClaimsUnderWayTest : public OracleOvertakenTest {
protected:
    OracleClaimsUnderWayTest() {
        addFan();
        addFan();
        serve();
        hold(1s, 2);
    }
    void poll(Duration at, std::size_t fan) { write(at, upperModeKey(fan), 1, refusal); }
};

TEST_F(OracleClaimsUnderWayTest, ofSeveralControlStepsAllGoOnAfterARelease) {
    poll(4850ms, 0);
    poll(4990ms, 1);
    leave(5s);
    giveBack(5s, 2);
    poll(5050ms, 1);
    poll(5060ms, 0);
    expectNoViolation();
    poll(5070ms, 2);
    expectViolation(Property::releaseLasts, 5070ms);
}

/// The driver takes one request at a time: what it does before the release's own was asked before.
TEST_F(OracleClaimsUnderWayTest, mayHaveAskedBeforeTheReleaseDid) {
    leave(5s);
    force(5100ms, 0);
    force(5200ms, 1);
    giveBack(5300ms, 0);
    giveBack(5300ms, 1);
    giveBack(5300ms, 2);
    poll(5400ms, 0);
    expectNoViolation();
    poll(5500ms, 1);
    expectViolation(Property::releaseLasts, 5500ms);
}

TEST_F(OracleClaimsUnderWayTest, pollEveryTenthOfASecond) {
    poll(4850ms - instant, 0);
    poll(4990ms, 1);
    leave(5s);
    giveBack(5s, 2);
    poll(5050ms, 1);
    expectNoViolation();
    poll(5060ms, 0);
    expectViolation(Property::releaseLasts, 5060ms);
}

TEST_F(OracleClaimsUnderWayTest, endWhenTheFanIsForced) {
    poll(4900ms, 0);
    force(4950ms, 0);
    poll(4990ms, 1);
    leave(5s);
    giveBack(5s, 0);
    giveBack(5s, 2);
    poll(5050ms, 1);
    expectNoViolation();
    poll(5060ms, 0);
    expectViolation(Property::releaseLasts, 5060ms);
}

}  // namespace
}  // namespace airflow::simulation
