// What may be written to the SMC, and in which order: the smallest runs that break
// onlyAllowedWrites, forceTestIsLowered and forceTestComesFirst, and those that keep them.

#include "OracleTrace.h"
#include "support/Doubles.h"

namespace airflow::simulation {
namespace {

using tests::infinity;
using tests::notANumber;

struct WriteCase {
    const char* key;
    double value;
    bool isAllowed;
};

class OracleWriteTest : public OracleTrace, public testing::WithParamInterface<WriteCase> {};

TEST_P(OracleWriteTest, isAllowedOrNot) {
    const auto [key, value, isAllowed] = GetParam();
    serve();
    (void)call(1s, manual());
    read(1s, "F0Mn", 1200);
    read(1s, "F0Mx", 6000);
    write(2s, key, value);
    if (isAllowed)
        expectNoViolation();
    else
        expectViolation(Property::onlyAllowedWrites, 2s);
}

// The SMC's numbers are short: a target may be off by 1 RPM and a millionth of itself.
INSTANTIATE_TEST_SUITE_P(Keys, OracleWriteTest,
                         testing::Values(WriteCase{"F0Md", 0, true}, WriteCase{"F0Md", 1, true},
                                         WriteCase{"F0Md", 2, false}, WriteCase{"F0Md", 3, false},
                                         WriteCase{"F0Md", -1, false}, WriteCase{"F0md", 0, true},
                                         WriteCase{"F0md", 1, true}, WriteCase{"F0md", 2, false},
                                         WriteCase{"F1Md", 0, false}, WriteCase{"Ftst", 0, true},
                                         WriteCase{"Ftst", 1, true}, WriteCase{"Ftst", 2, false},
                                         WriteCase{"F0Mn", 0, false},
                                         WriteCase{"F0Mx", 6000, false},
                                         WriteCase{"F0Ac", 3000, false},
                                         WriteCase{"FS! ", 1, false}, WriteCase{"TC0P", 1, false}));
INSTANTIATE_TEST_SUITE_P(
    Targets, OracleWriteTest,
    testing::Values(WriteCase{"F0Tg", 0, true}, WriteCase{"F0Tg", 1198.9988, false},
                    WriteCase{"F0Tg", 1198.999, true}, WriteCase{"F0Tg", 1200, true},
                    WriteCase{"F0Tg", 3000, true}, WriteCase{"F0Tg", 6000, true},
                    WriteCase{"F0Tg", 6001.006, true}, WriteCase{"F0Tg", 6001.0061, false},
                    WriteCase{"F0Tg", -1, false}, WriteCase{"F0Tg", infinity, false},
                    WriteCase{"F0Tg", -infinity, false}, WriteCase{"F0Tg", notANumber, false},
                    WriteCase{"F1Tg", 0, false}));

// forceTestIsLowered

class OracleForceTestTest : public OracleTrace {
protected:
    /// The client has gone and its fan is back; "Ftst" was last written at 5 s, and is on.
    void leaveForceTestOn() {
        serve();
        ASSERT_TRUE(machine().smc().poke("Ftst", 1));
        hold(1s);
        vanish(5s);
        write(5s, "Ftst", 1);
        giveBack(5s);
    }
    /// "Ftst" is on, and the client goes at 10 s. Something was refused before.
    void leaveForceTestOnAfterRefusal(Duration refused) {
        serve();
        ASSERT_TRUE(machine().smc().poke("Ftst", 1));
        hold(1s);
        write(refused, "Ftst", 1, refusal);
        vanish(10s);
        write(10s, "Ftst", 1);
        giveBack(10s);
    }
};

TEST_F(OracleForceTestTest, isOffThreeSecondsAfterARelease) {
    leaveForceTestOn();
    expectViolationJustAfter(8s, Property::forceTestIsLowered);
}

TEST_F(OracleForceTestTest, mayBeOffAtOnce) {
    leaveForceTestOn();
    ASSERT_TRUE(machine().smc().poke("Ftst", 0));
    look(60s);
    expectNoViolation();
}

TEST_F(OracleForceTestTest, staysOnWhileAFanIsForced) {
    serve();
    ASSERT_TRUE(machine().smc().poke("Ftst", 1));
    hold(1s);
    leave(5s);
    refuse(6s);
    look(8s + instant);
    expectNoViolation();
}

TEST_F(OracleForceTestTest, mayStayOnAfterARefusal) {
    leaveForceTestOnAfterRefusal(5s + instant);
    look(600s);
    expectNoViolation();
}

TEST_F(OracleForceTestTest, mayStayOnAfterARefusalLongBeforeTheReleaseUnlessItWasLoweredSince) {
    serve();
    hold(1s);
    write(4s, "Ftst", 1, refusal);
    write(6s, "Ftst", 0);
    ASSERT_TRUE(machine().smc().poke("Ftst", 1));
    vanish(10s);
    write(10s, "Ftst", 1);
    giveBack(10s);
    expectViolationJustAfter(13s, Property::forceTestIsLowered);
}

/// Its key is asked about, which lowers nothing.
TEST_F(OracleForceTestTest, mayStayOnAfterARefusalSinceWhichItWasNotLowered) {
    serve();
    hold(1s);
    write(6s, "Ftst", 0);
    poll(7s);
    ask(8s, "Ftst");
    read(8s, "Ftst", 0);
    ASSERT_TRUE(machine().smc().poke("Ftst", 1));
    vanish(10s);
    write(10s, "Ftst", 1);
    giveBack(10s);
    look(600s);
    expectNoViolation();
}

// forceTestComesFirst

TEST_F(OracleForceTestTest, isRaisedBeforeTheFirstFanIsGivenBack) {
    serve();
    hold(1s);
    vanish(5s);
    giveBack(5s);
    expectViolation(Property::forceTestComesFirst, 5s);
}

TEST_F(OracleForceTestTest, isRaisedOnceForAllOfThem) {
    addFan();
    serve();
    hold(1s, 0);
    hold(1s, 1);
    vanish(5s);
    write(5s, "Ftst", 1, refusal);
    giveBack(5s, 0);
    giveBack(5s, 1);
    write(5s, "Ftst", 0);
    expectNoViolation();
}

TEST_F(OracleForceTestTest, isRaisedAgainForTheNextRelease) {
    serve();
    hold(1s);
    vanish(5s);
    write(5s, "Ftst", 1);
    giveBack(5s);
    write(5s, "Ftst", 0);
    hold(6s);
    vanish(7s);
    giveBack(7s);
    expectViolation(Property::forceTestComesFirst, 7s);
}

TEST_F(OracleForceTestTest, countsAsRaisedWhereItCannotBeWritten) {
    serve();
    hold(1s);
    vanish(5s);
    ask(5s, "Ftst", refusal);
    giveBack(5s);
    expectNoViolation();
}

/// The tick gives back a fan that it does not want.
TEST_F(OracleForceTestTest, isNotRaisedByATickThatIsUnderWayWhenTheReasonArises) {
    serve();
    hold(1s);
    read(4s, "FNum", 1);
    vanish(5s);
    giveBack(5s);
    expectNoViolation();
}

TEST_F(OracleForceTestTest, isNotRaisedByATickThatBeginsAfterTheReason) {
    serve();
    hold(1s);
    vanish(5s);
    read(5s, "FNum", 1);
    giveBack(5s);
    expectNoViolation();
}

TEST_F(OracleForceTestTest, isRaisedAgainWhenTheTickHasPublishedItsState) {
    serve();
    hold(1s);
    read(4s, "FNum", 1);
    publish(4s);
    vanish(5s);
    giveBack(5s);
    expectViolation(Property::forceTestComesFirst, 5s);
}

TEST_F(OracleForceTestTest, isRaisedWhateverTickAnEarlierLifeWasIn) {
    serve();
    read(2s, "FNum", 1);
    end(2s, 137, true);
    serve(3s);
    hold(4s);
    vanish(5s);
    giveBack(5s);
    expectViolation(Property::forceTestComesFirst, 5s);
}

TEST_F(OracleForceTestTest, mayHaveBeenRaisedByARetryThatIsInItsMiddle) {
    serve();
    hold(1s);
    leave(3s);
    refuse(3s);
    vanish(5s);
    refuse(5s);
    expectNoViolation();
}

}  // namespace
}  // namespace airflow::simulation
