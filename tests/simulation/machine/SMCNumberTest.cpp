#include <gmock/gmock.h>

#include <cmath>
#include <vector>

#include "simulation/machine/SMCNumber.h"
#include "support/Doubles.h"

namespace airflow::simulation {
namespace {

using tests::infinity;
using tests::notANumber;

std::vector<int> encoded(double number, const std::string& type) {
    const auto bytes = encodeNumber(number, type);
    return {bytes.begin(), bytes.begin() + sizeOfNumber(type)};
}

using V = std::vector<int>;

TEST(SMCNumber, integersAreBigEndianAndRounded) {
    EXPECT_EQ(encoded(200, "ui8 "), (V{0xC8}));
    EXPECT_EQ(encoded(1.5, "ui8 "), (V{0x02}));
    EXPECT_EQ(encoded(127, "ui16"), (V{0x00, 0x7F}));
    EXPECT_EQ(encoded(305419896, "ui32"), (V{0x12, 0x34, 0x56, 0x78}));
}

TEST(SMCNumber, fixedPointNumbersKeepTheirFractionBits) {
    EXPECT_EQ(encoded(300, "fpe2"), (V{0x04, 0xB0}));
    EXPECT_EQ(encoded(0.25, "fpe2"), (V{0x00, 0x01}));
    EXPECT_EQ(encoded(-32, "sp78"), (V{0xE0, 0x00}));
    EXPECT_EQ(encoded(-1, "sp78"), (V{0xFF, 0x00}));
}

TEST(SMCNumber, floatsAreLittleEndian) {
    EXPECT_EQ(encoded(100, "flt "), (V{0x00, 0x00, 0xC8, 0x42}));
    EXPECT_EQ(encoded(infinity, "flt "), (V{0x00, 0x00, 0x80, 0x7F}));
}

TEST(SMCNumber, whatDoesNotFitIsBroughtIntoTheRange) {
    EXPECT_EQ(encoded(-1, "ui8 "), (V{0x00}));
    EXPECT_EQ(encoded(256, "ui8 "), (V{0xFF}));
    EXPECT_EQ(encoded(65536, "ui16"), (V{0xFF, 0xFF}));
    EXPECT_EQ(encoded(infinity, "ui32"), (V{0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(encoded(20000, "fpe2"), (V{0xFF, 0xFF}));
    EXPECT_EQ(encoded(128, "sp78"), (V{0x7F, 0xFF}));
    EXPECT_EQ(encoded(-129, "sp78"), (V{0x80, 0x00}));
    EXPECT_EQ(encoded(notANumber, "ui16"), (V{0x00, 0x00}));
}

TEST(SMCNumber, aNumberReadsBack) {
    EXPECT_EQ(decodeNumber(encodeNumber(16383.75, "fpe2"), 2, "fpe2"), 16383.75);
    EXPECT_EQ(decodeNumber(encodeNumber(-0.5, "sp78"), 2, "sp78"), -0.5);
    EXPECT_EQ(decodeNumber(encodeNumber(4e9, "ui32"), 4, "ui32"), 4e9);
    EXPECT_TRUE(std::isnan(*decodeNumber(encodeNumber(notANumber, "flt "), 4, "flt ")));
}

TEST(SMCNumber, otherTypesHoldNone) {
    EXPECT_EQ(decodeNumber({}, 6, "ch8*"), std::nullopt);
    EXPECT_EQ(decodeNumber({}, 1, "ui16"), std::nullopt);
    EXPECT_EQ(sizeOfNumber("ch8*"), 0u);
}

}  // namespace
}  // namespace airflow::simulation
