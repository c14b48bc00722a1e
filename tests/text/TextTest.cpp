#include <gtest/gtest.h>

#include "text/Text.h"

namespace airflow::text {
namespace {

TEST(Text, plainNumbersHaveNoTrailingZeros) {
    EXPECT_EQ(plain(45), "45");
    EXPECT_EQ(plain(0.3), "0.3");
    EXPECT_EQ(plain(-12.5), "-12.5");
}

TEST(Text, fanModesHaveNames) {
    EXPECT_EQ(fanModeText(0), "automatic (0)");
    EXPECT_EQ(fanModeText(1), "forced (1)");
    EXPECT_EQ(fanModeText(2), "unknown (2)");
    EXPECT_EQ(fanModeText(3), "taken back (3)");
    EXPECT_EQ(fanModeText(-1), "unknown (-1)");
}

TEST(Text, controlCharactersCannotReachATerminal) {
    EXPECT_EQ(printable("a\x1B[31mb\n"), "a\xEF\xBF\xBD[31mb\xEF\xBF\xBD");
    EXPECT_EQ(printable("\x7F"), "\xEF\xBF\xBD");
    EXPECT_EQ(printable("\x1F"), "\xEF\xBF\xBD");
    EXPECT_EQ(printable(" ~"), " ~");
    EXPECT_EQ(printable("\xC2\x9B"
                        "31m"),
              "\xEF\xBF\xBD"
              "31m");  // C1's one-character CSI
    EXPECT_EQ(printable("\xC2\xA0\xC2\xB0"), "\xC2\xA0\xC2\xB0");
    EXPECT_EQ(printable("\xC2"), "\xC2");
    EXPECT_EQ(printable("a\u202Eb\u200Fc\u2066d\u2028e"), "a\uFFFDb\uFFFDc\uFFFDd\uFFFDe");
    EXPECT_EQ(printable("\u2014\u2026\u2030\u206A"), "\u2014\u2026\u2030\u206A");
}

TEST(Text, oneThingIsSingular) {
    EXPECT_EQ(counted(0, "fan"), "0 fans");
    EXPECT_EQ(counted(1, "fan"), "1 fan");
    EXPECT_EQ(counted(2, "fan"), "2 fans");
}

TEST(Text, paddingCountsCharactersAndNotBytes) {
    EXPECT_EQ(padded("ab", 4), "ab  ");
    EXPECT_EQ(padded("°C", 4), "°C  ");
    EXPECT_EQ(padded("abcd", 4), "abcd");
    EXPECT_EQ(padded("abcde", 4), "abc…");
    EXPECT_EQ(padded("°°°°°", 4), "°°°…");
    EXPECT_EQ(padded("", 2), "  ");
}

}  // namespace
}  // namespace airflow::text
