#include <gtest/gtest.h>

#include "plan/RecordChecks.h"
#include "plan/UUID.h"

namespace airflow::plan {

namespace {

const UUID counting{{0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0xFE, 0xDC, 0xBA, 0x98, 0x76,
                     0x54, 0x32, 0x10}};

}  // namespace

TEST(UUID, isReadInUpperLowerAndMixedCase) {
    EXPECT_EQ(UUID::parse("01234567-89AB-CDEF-FEDC-BA9876543210"), counting);
    EXPECT_EQ(UUID::parse("01234567-89ab-cdef-fedc-ba9876543210"), counting);
    EXPECT_EQ(UUID::parse("01234567-89aB-CdeF-fEdC-Ba9876543210"), counting);
}

TEST(UUID, isWrittenInUpperCase) {
    EXPECT_EQ(counting.text(), "01234567-89AB-CDEF-FEDC-BA9876543210");
    EXPECT_EQ(UUID{}.text(), "00000000-0000-0000-0000-000000000000");
    EXPECT_EQ(json::encode(counting), "\"01234567-89AB-CDEF-FEDC-BA9876543210\"");
}

TEST(UUID, ofAnyVersionIsRead) {
    EXPECT_EQ(UUID::parse("00000000-0000-0000-0000-000000000000"), UUID{});
    EXPECT_EQ(UUID::parse("ffffffff-ffff-ffff-ffff-ffffffffffff").value().text(),
              "FFFFFFFF-FFFF-FFFF-FFFF-FFFFFFFFFFFF");
}

TEST(UUID, ofAnotherLengthIsRefused) {
    EXPECT_EQ(UUID::parse(""), std::nullopt);
    EXPECT_EQ(UUID::parse("01234567-89AB-CDEF-FEDC-BA987654321"), std::nullopt);
    EXPECT_EQ(UUID::parse("01234567-89AB-CDEF-FEDC-BA98765432100"), std::nullopt);
    EXPECT_EQ(UUID::parse("0123456789ABCDEFFEDCBA9876543210"), std::nullopt);
    EXPECT_EQ(UUID::parse("{01234567-89AB-CDEF-FEDC-BA9876543210}"), std::nullopt);
    EXPECT_EQ(UUID::parse(" 01234567-89AB-CDEF-FEDC-BA9876543210"), std::nullopt);
}

TEST(UUID, withoutAHyphenWhereOneBelongsIsRefused) {
    for (const std::size_t position : {8u, 13u, 18u, 23u}) {
        for (const char other : {'0', ' ', '_'}) {
            std::string text = "01234567-89AB-CDEF-FEDC-BA9876543210";
            text[position] = other;
            EXPECT_EQ(UUID::parse(text), std::nullopt) << text;
        }
    }
}

TEST(UUID, withAnythingButAHexDigitIsRefused) {
    // The neighbours of the three ranges of hexadecimal digits, and a few others.
    for (const char other : {'/', ':', '@', 'G', '`', 'g', '-', ' ', '\0', '\xC3'}) {
        for (const std::size_t position : {0u, 7u, 9u, 24u, 35u}) {
            std::string text = "01234567-89AB-CDEF-FEDC-BA9876543210";
            text[position] = other;
            EXPECT_EQ(UUID::parse(text), std::nullopt) << text;
        }
    }
}

TEST(UUID, everyHexDigitIsRead) {
    EXPECT_EQ(UUID::parse("00112233-4455-6677-8899-AaBbCcDdEeFf").value().text(),
              "00112233-4455-6677-8899-AABBCCDDEEFF");
}

TEST(UUID, thatIsMalformedIsReported) {
    EXPECT_EQ(tests::errorOf<UUID>("\"not-a-uuid\""),
              (json::DecodingError{"", "Expected a UUID of 36 characters.", std::nullopt}));
    EXPECT_EQ(tests::errorOf<UUID>("7"),
              (json::DecodingError{"", "Expected a string but found a number.", std::nullopt}));
}

TEST(UUID, isOrderedByItsBytes) {
    UUID first;
    UUID second;
    first.bytes[15] = 0xFF;
    second.bytes[0] = 0x01;
    EXPECT_LT(UUID{}, first);
    EXPECT_LT(first, second);
    EXPECT_NE(first, second);
}

}  // namespace airflow::plan
