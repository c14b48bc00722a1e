#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "smc/FourCharCode.h"
#include "smc/SMCValue.h"

namespace airflow::smc {
namespace {

// A reply with the given bytes first; the others are not zero, so that reading too far shows.
SMCBytes reply(const std::vector<std::uint8_t>& first) {
    SMCBytes bytes;
    bytes.fill(0xA5);
    std::copy(first.begin(), first.end(), bytes.begin());
    return bytes;
}

SMCValue decode(std::string_view type, std::int64_t size, const std::vector<std::uint8_t>& bytes) {
    return decodeSMCValue(reply(bytes), size, fourCharCode(type));
}

TEST(SMCValue, theCasesComeInTheOrderFloatUintFixedPointRaw) {
    EXPECT_EQ(SMCValue::floating(1).value.index(), 0u);
    EXPECT_EQ(SMCValue::uint(1).value.index(), 1u);
    EXPECT_EQ(SMCValue::fixedPoint(1).value.index(), 2u);
    EXPECT_EQ(SMCValue::raw().value.index(), 3u);
}

TEST(SMCValue, theNumberOfEveryEncodingButRawIsItsPayload) {
    EXPECT_EQ(SMCValue::floating(41.5).numeric(), 41.5);
    EXPECT_EQ(SMCValue::uint(1200).numeric(), 1200.0);
    EXPECT_EQ(SMCValue::uint(4294967295).numeric(), 4294967295.0);
    EXPECT_EQ(SMCValue::fixedPoint(-0.25).numeric(), -0.25);
    EXPECT_EQ(SMCValue::raw().numeric(), std::nullopt);
}

TEST(SMCValue, onlyRawIsRaw) {
    EXPECT_TRUE(SMCValue::raw().isRaw());
    EXPECT_FALSE(SMCValue::floating(0).isRaw());
    EXPECT_FALSE(SMCValue::uint(0).isRaw());
    EXPECT_FALSE(SMCValue::fixedPoint(0).isRaw());
}

TEST(SMCValue, equalNumbersOfDifferentEncodingsAreDifferentValues) {
    EXPECT_NE(SMCValue::floating(1), SMCValue::fixedPoint(1));
    EXPECT_NE(SMCValue::floating(1), SMCValue::uint(1));
}

struct Row {
    std::string type;
    std::int64_t width;  // the least size at which the type is read
    std::vector<std::uint8_t> bytes;
    SMCValue expected;
};

std::ostream& operator<<(std::ostream& out, const Row& row) {
    return out << row.type;
}

class DecodeSMCValue : public testing::TestWithParam<Row> {};

TEST_P(DecodeSMCValue, readsTheValueAtItsWidthAndAbove) {
    const Row& row = GetParam();
    EXPECT_EQ(decode(row.type, row.width, row.bytes), row.expected);
    EXPECT_EQ(decode(row.type, row.width + 1, row.bytes), row.expected);
    EXPECT_EQ(decode(row.type, 32, row.bytes), row.expected);
}

TEST_P(DecodeSMCValue, aValueTooShortForItsTypeIsRaw) {
    const Row& row = GetParam();
    EXPECT_EQ(decode(row.type, row.width - 1, row.bytes), SMCValue::raw());
    EXPECT_EQ(decode(row.type, 0, row.bytes), SMCValue::raw());
}

TEST_P(DecodeSMCValue, aSizeAboveThirtyTwoCountsAsThirtyTwo) {
    const Row& row = GetParam();
    EXPECT_EQ(decode(row.type, 33, row.bytes), row.expected);
    EXPECT_EQ(decode(row.type, 4294967295, row.bytes), row.expected);
    EXPECT_EQ(decode(row.type, std::numeric_limits<std::int64_t>::max(), row.bytes), row.expected);
}

TEST_P(DecodeSMCValue, aNegativeSizeCountsAsNothing) {
    const Row& row = GetParam();
    EXPECT_EQ(decode(row.type, -1, row.bytes), SMCValue::raw());
    EXPECT_EQ(decode(row.type, std::numeric_limits<std::int64_t>::min(), row.bytes),
              SMCValue::raw());
}

INSTANTIATE_TEST_SUITE_P(
    EveryType, DecodeSMCValue,
    testing::Values(Row{"flt ", 4, {0x00, 0x00, 0xC8, 0x42}, SMCValue::floating(100.0)},
                    Row{"flt ", 4, {0x00, 0x00, 0x20, 0xC0}, SMCValue::floating(-2.5)},
                    Row{"flt ", 4, {0x00, 0x00, 0x80, 0x7F}, SMCValue::floating(INFINITY)},
                    Row{"ui8 ", 1, {0x00}, SMCValue::uint(0)},
                    Row{"ui8 ", 1, {0xFF}, SMCValue::uint(255)},
                    Row{"ui16", 2, {0x00, 0x7F}, SMCValue::uint(127)},
                    Row{"ui16", 2, {0xFF, 0xFE}, SMCValue::uint(65534)},
                    Row{"ui32", 4, {0x00, 0x00, 0x04, 0xB0}, SMCValue::uint(1200)},
                    Row{"ui32", 4, {0xFF, 0xFF, 0xFF, 0xFE}, SMCValue::uint(4294967294)},
                    Row{"fpe2", 2, {0x04, 0xB0}, SMCValue::fixedPoint(300.0)},
                    Row{"fpe2", 2, {0x00, 0x01}, SMCValue::fixedPoint(0.25)},
                    Row{"fpe2", 2, {0xFF, 0xFF}, SMCValue::fixedPoint(16383.75)},
                    Row{"sp78", 2, {0xE0, 0x00}, SMCValue::fixedPoint(-32.0)},
                    Row{"sp78", 2, {0xFF, 0x00}, SMCValue::fixedPoint(-1.0)},
                    Row{"sp78", 2, {0x7F, 0xFF}, SMCValue::fixedPoint(127.99609375)},
                    Row{"sp78", 2, {0x80, 0x00}, SMCValue::fixedPoint(-128.0)},
                    Row{"sp78", 2, {0x2A, 0x80}, SMCValue::fixedPoint(42.5)}));

TEST(DecodeSMCValueOf, aFloatOfTwoBytesIsRaw) {
    EXPECT_EQ(decode("flt ", 2, {0x00, 0x00, 0xC8, 0x42}), SMCValue::raw());
}

TEST(DecodeSMCValueOf, aByteOfSizeZeroIsRaw) {
    EXPECT_EQ(decode("ui8 ", 0, {0x01}), SMCValue::raw());
}

TEST(DecodeSMCValueOf, aFloatThatIsNotANumberStaysAFloat) {
    const SMCValue value = decode("flt ", 4, {0x00, 0x00, 0xC0, 0x7F});
    ASSERT_EQ(value.value.index(), 0u);
    EXPECT_TRUE(std::isnan(value.numeric().value()));
}

TEST(DecodeSMCValueOf, everyOtherTypeIsRaw) {
    for (const std::string_view type :
         {"ui64", "si8 ", "si16", "flag", "ch8*", "hex_", "{fds", "sp87", "fp88", "fpe1", "ioft"}) {
        EXPECT_EQ(decode(type, 8, {1, 2, 3, 4, 5, 6, 7, 8}), SMCValue::raw()) << type;
    }
}

TEST(DecodeSMCValueOf, typesAreMatchedByCaseAndWithTheirBlanks) {
    for (const std::string_view type : {"FLT ", "Flt ", "flt\0", " flt", "UI8 ", "ui8\t", " ui8",
                                        "UI16", "uI32", "FPE2", "SP78", "sP78"}) {
        const std::string four(type.size() == 4 ? std::string(type) : std::string(type) + '\0');
        EXPECT_EQ(decode(four, 4, {0x00, 0x00, 0xC8, 0x42}), SMCValue::raw()) << type;
    }
}

TEST(DecodeSMCValueOf, aTypeThatIsNoTextIsRaw) {
    EXPECT_EQ(decodeSMCValue(reply({1, 2, 3, 4}), 4, 0), SMCValue::raw());
    EXPECT_EQ(decodeSMCValue(reply({1, 2, 3, 4}), 4, 0xFFFFFFFF), SMCValue::raw());
    EXPECT_EQ(decodeSMCValue(reply({1, 2, 3, 4}), 4, 0x756938A0), SMCValue::raw());
}

RC_GTEST_PROP(DecodeSMCValueOf, aWrittenFloatIsReadBack, (float number)) {
    const SMCValue value = decodeSMCValue(encodeFloat(double{number}), 4, fourCharCode("flt "));
    RC_ASSERT(value == SMCValue::floating(double{number}));
}

RC_GTEST_PROP(DecodeSMCValueOf, aWrittenByteIsReadBack, (std::uint8_t byte)) {
    const SMCValue value = decodeSMCValue(encodeUInt8(byte), 1, fourCharCode("ui8 "));
    RC_ASSERT(value == SMCValue::uint(byte));
}

}  // namespace
}  // namespace airflow::smc
