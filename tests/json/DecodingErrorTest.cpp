#include <gtest/gtest.h>

#include "json/DecodingError.h"
#include "json/Texts.h"

namespace airflow::json {

TEST(DecodingError, ofAMalformedTextIsDescribedWithFileLineAndColumn) {
    const DecodingError error{
        .codingPath = {}, .description = "unexpected ']'", .position = Position{3, 14}};
    EXPECT_EQ(error.describe("quiet.json"), "quiet.json:3:14: unexpected ']'");
}

TEST(DecodingError, ofAWrongValueIsDescribedWithFileAndPath) {
    const DecodingError error{.codingPath = "fans[0].mode",
                              .description = "Expected an object but found null.",
                              .position = {}};
    EXPECT_EQ(error.describe("quiet.json"),
              "quiet.json: fans[0].mode: Expected an object but found null.");
}

TEST(DecodingError, ofTheRootIsDescribedWithFileAlone) {
    const DecodingError error{
        .codingPath = {}, .description = "Expected an object but found null.", .position = {}};
    EXPECT_EQ(error.describe("quiet.json"), "quiet.json: Expected an object but found null.");
}

TEST(DecodingError, isEqualOnlyWhenEveryFieldIs) {
    const DecodingError error{.codingPath = "a", .description = "b", .position = Position{1, 2}};
    EXPECT_EQ(error, (DecodingError{"a", "b", Position{1, 2}}));
    EXPECT_NE(error, (DecodingError{"x", "b", Position{1, 2}}));
    EXPECT_NE(error, (DecodingError{"a", "x", Position{1, 2}}));
    EXPECT_NE(error, (DecodingError{"a", "b", Position{9, 2}}));
    EXPECT_NE(error, (DecodingError{"a", "b", Position{1, 9}}));
    EXPECT_NE(error, (DecodingError{"a", "b", std::nullopt}));
}

TEST(EncodingError, isEqualOnlyWhenEveryFieldIs) {
    const EncodingError error{.codingPath = "a", .description = "b"};
    EXPECT_EQ(error, (EncodingError{"a", "b"}));
    EXPECT_NE(error, (EncodingError{"x", "b"}));
    EXPECT_NE(error, (EncodingError{"a", "x"}));
}

}  // namespace airflow::json
