#include <gtest/gtest.h>

#include "smc/SMCBytes.h"
#include "support/Doubles.h"

namespace airflow::smc {
namespace {

using tests::infinity;
using tests::notANumber;

// The payload that starts with the four given bytes and is zero from there on.
SMCBytes payload(std::uint8_t first, std::uint8_t second, std::uint8_t third, std::uint8_t fourth) {
    return {first, second, third, fourth, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
            0,     0,      0,     0,      0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
}

TEST(SMCBytes, areThirtyTwo) {
    EXPECT_EQ(sizeof(SMCBytes), 32u);
}

TEST(SMCBytes, theZeroPayloadIsAllZero) {
    for (const std::uint8_t byte : zeroSMCBytes) EXPECT_EQ(byte, 0);
}

TEST(EncodeUInt8, putsTheByteFirst) {
    EXPECT_EQ(encodeUInt8(1), payload(0x01, 0, 0, 0));
    EXPECT_EQ(encodeUInt8(0), payload(0, 0, 0, 0));
    EXPECT_EQ(encodeUInt8(255), payload(0xFF, 0, 0, 0));
}

TEST(EncodeFloat, isSinglePrecisionInLittleEndianOrder) {
    EXPECT_EQ(encodeFloat(2500.0), payload(0x00, 0x40, 0x1C, 0x45));
    EXPECT_EQ(encodeFloat(0.0), payload(0, 0, 0, 0));
    EXPECT_EQ(encodeFloat(-1.0), payload(0x00, 0x00, 0x80, 0xBF));
    EXPECT_EQ(encodeFloat(-0.0), payload(0x00, 0x00, 0x00, 0x80));
}

TEST(EncodeFloat, roundsToTheNearest) {
    EXPECT_EQ(encodeFloat(0.1), payload(0xCD, 0xCC, 0xCC, 0x3D));
    EXPECT_EQ(encodeFloat(16777217.0), payload(0x00, 0x00, 0x80, 0x4B));  // a tie: to even
    EXPECT_EQ(encodeFloat(16777219.0), payload(0x02, 0x00, 0x80, 0x4B));  // a tie: to even
    EXPECT_EQ(encodeFloat(1e-300), payload(0, 0, 0, 0));
    EXPECT_EQ(encodeFloat(1e-45), payload(0x01, 0x00, 0x00, 0x00));
}

TEST(EncodeFloat, theLargestFloatAndWhatRoundsToItIsFinite) {
    EXPECT_EQ(encodeFloat(0x1.fffffep+127), payload(0xFF, 0xFF, 0x7F, 0x7F));
    EXPECT_EQ(encodeFloat(0x1.fffffefffffffp+127), payload(0xFF, 0xFF, 0x7F, 0x7F));
    EXPECT_EQ(encodeFloat(-0x1.fffffep+127), payload(0xFF, 0xFF, 0x7F, 0xFF));
    EXPECT_EQ(encodeFloat(-0x1.fffffefffffffp+127), payload(0xFF, 0xFF, 0x7F, 0xFF));
}

TEST(EncodeFloat, whatIsTooLargeBecomesTheInfinityOfItsSign) {
    EXPECT_EQ(encodeFloat(0x1.ffffffp+127), payload(0x00, 0x00, 0x80, 0x7F));
    EXPECT_EQ(encodeFloat(-0x1.ffffffp+127), payload(0x00, 0x00, 0x80, 0xFF));
    EXPECT_EQ(encodeFloat(1e300), payload(0x00, 0x00, 0x80, 0x7F));
    EXPECT_EQ(encodeFloat(-1e300), payload(0x00, 0x00, 0x80, 0xFF));
}

TEST(EncodeFloat, infinitiesStay) {
    EXPECT_EQ(encodeFloat(infinity), payload(0x00, 0x00, 0x80, 0x7F));
    EXPECT_EQ(encodeFloat(-infinity), payload(0x00, 0x00, 0x80, 0xFF));
}

TEST(EncodeFloat, notANumberStaysNotANumber) {
    EXPECT_EQ(encodeFloat(notANumber), payload(0x00, 0x00, 0xC0, 0x7F));
}

}  // namespace
}  // namespace airflow::smc
