// Fans that only the guard can give back, and what it excuses: the smallest runs that break a
// property, and the same runs on the right side of its bound.
#include "OracleTrace.h"

namespace airflow::simulation {
namespace {

using control::ControlResult;

/// An earlier process has left the fan forced, and its mode key could not be read at the start.
class OracleUnfoundFanTest : public OracleTrace {
protected:
    OracleUnfoundFanTest() { scenario.machine.fans[0].mode = 1; }
    void serveWithoutFinding(Duration at = 0s) {
        oracle().started(at);
        ask(at, "F0Md", refusal);
        listen(at);
    }
};

TEST_F(OracleUnfoundFanTest, goesBackWithinTheGuardsLook) {
    serveWithoutFinding();
    refuse(500ms);
    want(1s, 0);
    vanish(5s);
    expectViolationJustAfter(7500ms, Property::releaseBegins);
}

/// The guard looks 5 s after the refusal, and later while claims put it off.
TEST_F(OracleUnfoundFanTest, goesBackLaterWhenItRefusedToBeForced) {
    serveWithoutFinding();
    const auto id = call(1s, manual());
    poll(1s);
    reply(1s, id, Method::setManualRPM, ControlResult::rejected(refusal));
    vanish(5s);
    expectViolationJustAfter(21500ms, Property::releaseBegins);
}

TEST_F(OracleUnfoundFanTest, goesBackWithEveryOtherOnceItTookForcedMode) {
    serveWithoutFinding();
    hold(1s);
    vanish(5s);
    expectViolationJustAfter(6s, Property::releaseBegins);
}

/// What an earlier life of the daemon has found, this one has not.
TEST_F(OracleUnfoundFanTest, isOneThatOnlyAnEarlierLifeHasFound) {
    start();
    giveBack(0s);
    listen();
    hold(500ms);
    end(1s, 137, true);
    serveWithoutFinding(2s);
    refuse(2500ms);
    want(3s, 0);
    vanish(5s);
    expectViolationJustAfter(7500ms, Property::releaseBegins);
}

class OracleSecretFanTest : public OracleTrace {};

/// The SMC refuses to force the fan, and does it all the same. In the moment of the refusal a
/// release comes, and claims put the guard off by ten seconds.
TEST_F(OracleSecretFanTest, goesBackLaterWhenTheRefusalIsTheLatest) {
    serve();
    connect(1s, "other");
    const auto id = call(5s, manual());
    oracle().modeChanged(5s, 0, FanMode::forced);
    poll(5s);
    reply(5s, id, Method::setManualRPM, ControlResult::rejected(refusal));
    leave(5s, "other");
    expectViolationJustAfter(21500ms, Property::hiddenFansAreFound);
}

// What the guard excuses

class OracleGuardedTest : public OracleTrace {
protected:
    /// In an ordinary run the guard has nothing to do.
    OracleGuardedTest() { scenario.hidHangs.push_back({.from = 600s, .until = 601s}); }
    void applyWithoutForcing(Duration at) {
        reply(at, call(at - 1s, manual()), Method::setManualRPM);
    }
};

TEST_F(OracleGuardedTest, aCommandMayBeAppliedWhoseFanTheGuardHasJustGivenBack) {
    serve();
    oracle().guarded(1s);
    applyWithoutForcing(11s - instant);
    expectNoViolation();
}

TEST_F(OracleGuardedTest, aCommandMayNotBeAppliedWhoseFanTheGuardGaveBackTenSecondsAgo) {
    serve();
    oracle().guarded(1s);
    applyWithoutForcing(11s);
    expectViolation(Property::appliedIsTrue, 11s);
}

// Hangs of the HID hub

class OracleHangTest : public OracleTrace {
protected:
    OracleHangTest() { scenario.hidHangs.push_back({.from = 4s, .until = 6s}); }
};

TEST_F(OracleHangTest, mayEndControlForFiveSecondsMore) {
    serve();
    hold(1s);
    check(2s, 10s);
    giveBack(11s - instant);
    expectNoViolation();
}

TEST_F(OracleHangTest, doesNotEndControlFiveSecondsLater) {
    serve();
    hold(1s);
    check(2s, 11s);
    giveBack(11s);
    expectViolation(Property::controlLasts, 11s);
}

TEST_F(OracleHangTest, doesNotEndControlBeforeItBegins) {
    serve();
    hold(1s);
    check(2s, 3s);
    giveBack(4s - instant);
    expectViolation(Property::controlLasts, 4s - instant);
}

/// Retries tell their states meanwhile, which are no checks.
TEST_F(OracleHangTest, leavesASilenceToTheGuard) {
    scenario.hidHangs.push_back({.from = 15s, .until = 60s});
    serve();
    hold(1s);
    check(2s, 25s);
    expectViolationJustAfter(25s, Property::silenceEndsControl);
}

TEST_F(OracleHangTest, leavesAFanToTheGuardsNextLookThatIsTakenAgainInASilence) {
    scenario.hidHangs.push_back({.from = 15s, .until = 60s});
    serve();
    hold(1s);
    check(2s, 23s);
    giveBack(23s);
    force(24s);
    expectViolationJustAfter(25500ms, Property::silenceEndsControl);
}

}  // namespace
}  // namespace airflow::simulation
