#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "control/ControlResult.h"

namespace airflow::control {
namespace {

using namespace std::string_literals;

TEST(ControlResult, everyOutcomeHasItsNumber) {
    EXPECT_EQ(ControlResult::applied().xpcCode(), 0);
    EXPECT_EQ(ControlResult::acquiring().xpcCode(), 1);
    EXPECT_EQ(ControlResult::timedOut().xpcCode(), 2);
    EXPECT_EQ(ControlResult::reclaimed().xpcCode(), 3);
    EXPECT_EQ(ControlResult::rejected(0).xpcCode(), 4);
    EXPECT_EQ(ControlResult::notPrivileged().xpcCode(), 5);
    EXPECT_EQ(ControlResult::noHelper().xpcCode(), 6);
    EXPECT_EQ(ControlResult::failed("no fans").xpcCode(), 7);
}

RC_GTEST_PROP(ControlResult, rejectedIsFourForEveryCode, (std::uint8_t code)) {
    RC_ASSERT(ControlResult::rejected(code).xpcCode() == 4);
}

RC_GTEST_PROP(ControlResult, failedIsSevenForEveryText, (const std::string& text)) {
    RC_ASSERT(ControlResult::failed(text).xpcCode() == 7);
}

TEST(ControlResult, everyNumberBelowSevenIsItsOutcome) {
    EXPECT_EQ(ControlResult::fromXPCCode(0), ControlResult::applied());
    EXPECT_EQ(ControlResult::fromXPCCode(1), ControlResult::acquiring());
    EXPECT_EQ(ControlResult::fromXPCCode(2), ControlResult::timedOut());
    EXPECT_EQ(ControlResult::fromXPCCode(3), ControlResult::reclaimed());
    EXPECT_EQ(ControlResult::fromXPCCode(5), ControlResult::notPrivileged());
    EXPECT_EQ(ControlResult::fromXPCCode(6), ControlResult::noHelper());
}

TEST(ControlResult, theCodeOfARejectionDoesNotCrossTheBoundary) {
    EXPECT_EQ(ControlResult::fromXPCCode(4), ControlResult::rejected(0));
    EXPECT_EQ(ControlResult::fromXPCCode(ControlResult::rejected(134).xpcCode()),
              ControlResult::rejected(0));
}

TEST(ControlResult, theTextOfAFailureDoesNotCrossTheBoundary) {
    EXPECT_EQ(ControlResult::fromXPCCode(ControlResult::failed("no fans").xpcCode()),
              ControlResult::failed("xpc: unrecognized result code 7"));
}

TEST(ControlResult, anyOtherNumberIsAFailureThatNamesIt) {
    EXPECT_EQ(ControlResult::fromXPCCode(7),
              ControlResult::failed("xpc: unrecognized result code 7"));
    EXPECT_EQ(ControlResult::fromXPCCode(8),
              ControlResult::failed("xpc: unrecognized result code 8"));
    EXPECT_EQ(ControlResult::fromXPCCode(-1),
              ControlResult::failed("xpc: unrecognized result code -1"));
    EXPECT_EQ(ControlResult::fromXPCCode(std::numeric_limits<std::int64_t>::max()),
              ControlResult::failed("xpc: unrecognized result code 9223372036854775807"));
    EXPECT_EQ(ControlResult::fromXPCCode(std::numeric_limits<std::int64_t>::min()),
              ControlResult::failed("xpc: unrecognized result code -9223372036854775808"));
}

TEST(ControlResult, aNumberThatOnlyEndsLikeAnOutcomeIsNone) {
    EXPECT_EQ(ControlResult::fromXPCCode(256),
              ControlResult::failed("xpc: unrecognized result code 256"));
    EXPECT_EQ(ControlResult::fromXPCCode(4294967296),
              ControlResult::failed("xpc: unrecognized result code 4294967296"));
}

RC_GTEST_PROP(ControlResult, aNumberStaysTheSameOnItsWayThroughAnOutcomeUnlessItIsNone,
              (std::int64_t code)) {
    const bool isKnown = code >= 0 && code <= 6;
    RC_CLASSIFY(isKnown);
    RC_ASSERT(ControlResult::fromXPCCode(code).xpcCode() == (isKnown ? code : 7));
}

TEST(ControlResult, anOutcomeGivesItsPayload) {
    EXPECT_EQ(ControlResult::rejected(134).outcome(), ControlResult::Case::rejected);
    EXPECT_EQ(ControlResult::rejected(134).rejectionCode(), 134);
    EXPECT_EQ(ControlResult::rejected(134).failureReason(), "");
    EXPECT_EQ(ControlResult::failed("no fans").outcome(), ControlResult::Case::failed);
    EXPECT_EQ(ControlResult::failed("no fans").failureReason(), "no fans");
    EXPECT_EQ(ControlResult::failed("no fans").rejectionCode(), 0);
}

TEST(ControlResult, onlyAppliedIsApplied) {
    EXPECT_TRUE(ControlResult::applied().isApplied());
    EXPECT_FALSE(ControlResult::acquiring().isApplied());
    EXPECT_FALSE(ControlResult::rejected(0).isApplied());
    EXPECT_FALSE(ControlResult::failed("").isApplied());
}

TEST(ControlResult, outcomesAndPayloadsAreDistinguished) {
    EXPECT_EQ(ControlResult::rejected(255), ControlResult::rejected(255));
    EXPECT_NE(ControlResult::rejected(254), ControlResult::rejected(255));
    EXPECT_EQ(ControlResult::failed("a"), ControlResult::failed("a"));
    EXPECT_NE(ControlResult::failed("a"), ControlResult::failed("b"));
    EXPECT_NE(ControlResult::failed(""), ControlResult::rejected(0));
    EXPECT_NE(ControlResult::applied(), ControlResult::acquiring());
}

TEST(ControlResult, anOutcomeWithoutPayloadDescribesItselfByName) {
    EXPECT_EQ(ControlResult::applied().description(), "applied");
    EXPECT_EQ(ControlResult::acquiring().description(), "acquiring");
    EXPECT_EQ(ControlResult::timedOut().description(), "timedOut");
    EXPECT_EQ(ControlResult::reclaimed().description(), "reclaimed");
    EXPECT_EQ(ControlResult::notPrivileged().description(), "notPrivileged");
    EXPECT_EQ(ControlResult::noHelper().description(), "noHelper");
}

TEST(ControlResult, aRejectionDescribesItsCodeInDecimal) {
    EXPECT_EQ(ControlResult::rejected(0).description(), "rejected(code: 0)");
    EXPECT_EQ(ControlResult::rejected(134).description(), "rejected(code: 134)");
    EXPECT_EQ(ControlResult::rejected(255).description(), "rejected(code: 255)");
}

TEST(ControlResult, aFailureDescribesItsTextInQuotes) {
    EXPECT_EQ(ControlResult::failed("neither F1Md nor F1md exists on this machine").description(),
              R"(failed("neither F1Md nor F1md exists on this machine"))");
    EXPECT_EQ(ControlResult::failed("").description(), R"(failed(""))");
}

TEST(ControlResult, quotesAndBackslashesAreEscaped) {
    EXPECT_EQ(ControlResult::failed(R"(fan "left" \ right)").description(),
              R"(failed("fan \"left\" \\ right"))");
}

TEST(ControlResult, controlCharactersWithAShortFormAreEscapedByIt) {
    EXPECT_EQ(ControlResult::failed("a\nb\rc\td\0e"s).description(), R"(failed("a\nb\rc\td\0e"))");
}

TEST(ControlResult, otherControlCharactersAreEscapedByNumber) {
    EXPECT_EQ(ControlResult::failed("\x01\x1B\x1F\x7F").description(),
              R"(failed("\u{01}\u{1B}\u{1F}\u{7F}"))");
}

TEST(ControlResult, whatIsNoControlCharacterStaysAsItIs) {
    EXPECT_EQ(ControlResult::failed(" ~it's 95 °C").description(), R"(failed(" ~it's 95 °C"))");
}

RC_GTEST_PROP(ControlResult, aDescriptionIsASingleLineWithoutControlCharacters,
              (const std::string& text)) {
    const std::string description = ControlResult::failed(text).description();
    for (const char character : description) {
        const auto byte = static_cast<unsigned char>(character);
        RC_ASSERT(byte >= 0x20);
        RC_ASSERT(byte != 0x7F);
    }
}

}  // namespace
}  // namespace airflow::control
