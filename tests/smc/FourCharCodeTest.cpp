#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "smc/FourCharCode.h"

namespace airflow::smc {
namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;

static_assert(fourCharCode("flt ") == 0x666C7420, "codes are usable as constants");

TEST(FourCharCode, theFirstCharacterIsTheMostSignificantByte) {
    EXPECT_EQ(fourCharCode("FNum"), 0x464E756Du);
    EXPECT_EQ(fourCharCode("flt "), 0x666C7420u);
    EXPECT_EQ(fourCharCode("#KEY"), 0x234B4559u);
}

TEST(FourCharCode, anyFourBytesWillDo) {
    EXPECT_EQ(fourCharCode("\0\0\0\0"sv), 0x00000000u);
    EXPECT_EQ(fourCharCode("\xFF\xFF\xFF\xFF"sv), 0xFFFFFFFFu);
    EXPECT_EQ(fourCharCode("\x80"
                           "A\x7F\0"sv),
              0x80417F00u);
}

TEST(FourCharCode, aTextOfFourBytesIsTakenWhateverItsCharacters) {
    EXPECT_EQ(fourCharCode("T\u00B0C"), 0x54C2B043u);
}

TEST(FourCharCode, theTextOfAKeyComesBack) {
    EXPECT_EQ(toString(fourCharCode("FNum")), "FNum");
    EXPECT_EQ(toString(0x666C7420), "flt ");
}

TEST(FourCharCode, unprintableAsciiComesBackToo) {
    EXPECT_EQ(toString(0x00000000), "\0\0\0\0"s);
    EXPECT_EQ(toString(0x54010A7F), "T\x01\n\x7F");
}

TEST(FourCharCode, oneByteBeyondAsciiMakesTheTextUnreadable) {
    EXPECT_EQ(toString(0x466E8000), "????");
    EXPECT_EQ(toString(0x80414141), "????");
    EXPECT_EQ(toString(0x41804141), "????");
    EXPECT_EQ(toString(0x41418041), "????");
    EXPECT_EQ(toString(0x41414180), "????");
    EXPECT_EQ(toString(0xFFFFFFFF), "????");
}

TEST(FourCharCode, theLastAsciiByteIsStillReadable) {
    EXPECT_EQ(toString(0x7F7F7F7F), "\x7F\x7F\x7F\x7F");
}

RC_GTEST_PROP(FourCharCode, packingAndUnpackingAsciiIsTheIdentity, ()) {
    const auto text = *rc::gen::container<std::string>(
        4,
        rc::gen::map(rc::gen::inRange(0, 128), [](int byte) { return static_cast<char>(byte); }));
    RC_ASSERT(toString(fourCharCode(text)) == text);
}

TEST(FourCharCodeDeathTest, aTextThatIsNotFourBytesStopsTheProcess) {
    EXPECT_DEATH((void)fourCharCode(""), "must be four bytes long, \"\" is 0");
    EXPECT_DEATH((void)fourCharCode("FNu"), "must be four bytes long, \"FNu\" is 3");
    EXPECT_DEATH((void)fourCharCode("FNums"), "must be four bytes long, \"FNums\" is 5");
}

TEST(FourCharCodeDeathTest, lengthIsCountedInBytesAndNotInCharacters) {
    EXPECT_DEATH((void)fourCharCode("TC0\u00B0"), "must be four bytes long, .* is 5");
}

}  // namespace
}  // namespace airflow::smc
