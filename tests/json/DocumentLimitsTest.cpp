// What a hostile text may try: size and depth, at each limit and on both sides of it.
#include <gtest/gtest.h>

#include "json/Document.h"
#include "json/Texts.h"

namespace airflow::json {

namespace {

using tests::repeat;

constexpr std::size_t mebibyte = 1048576;

std::string arrays(std::size_t depth) {
    return repeat("[", depth) + repeat("]", depth);
}

std::string objects(std::size_t depth) {
    return repeat(R"({"a":)", depth) + "1" + repeat("}", depth);
}

DecodingError errorOf(std::string_view text, const Limits& limits = {}) {
    Document document;
    const auto parsed = document.parse(text, limits);
    EXPECT_FALSE(parsed.has_value());
    return parsed ? DecodingError{} : parsed.error();
}

bool reads(std::string_view text, const Limits& limits = {}) {
    Document document;
    return document.parse(text, limits).has_value();
}

}  // namespace

TEST(DocumentLimits, arraysAreReadUpTo512LevelsDeep) {
    EXPECT_TRUE(reads(arrays(511)));
    EXPECT_TRUE(reads(arrays(512)));
    EXPECT_EQ(errorOf(arrays(513)),
              (DecodingError{"", "nested more than 512 levels deep", Position{1, 513}}));
}

TEST(DocumentLimits, objectsAreReadUpTo512LevelsDeep) {
    EXPECT_TRUE(reads(objects(511)));
    EXPECT_TRUE(reads(objects(512)));
    // Each level has the five bytes {"a": before the next brace.
    EXPECT_EQ(errorOf(objects(513)),
              (DecodingError{"", "nested more than 512 levels deep", Position{1, 2561}}));
}

TEST(DocumentLimits, arraysAndObjectsCountTogether) {
    EXPECT_TRUE(reads(repeat(R"([{"a":)", 256) + "1" + repeat("}]", 256)));
    EXPECT_EQ(errorOf("[" + repeat(R"([{"a":)", 256) + "1" + repeat("}]", 256) + "]").description,
              "nested more than 512 levels deep");
}

TEST(DocumentLimits, levelsThatAreClosedDoNotCount) {
    EXPECT_TRUE(reads("[" + repeat("[],{},", 2000) + "[]]"));
    EXPECT_EQ(errorOf("[[],{},\n" + arrays(512) + "]"),
              (DecodingError{"", "nested more than 512 levels deep", Position{2, 512}}));
}

TEST(DocumentLimits, bracketsInTextsAreNoLevels) {
    EXPECT_TRUE(reads("[\"" + repeat("[{", 1000) + "\"]"));
    const std::string_view texts = R"("[{", "\"[", "\\", "]}", "\\\"[")";
    EXPECT_EQ(errorOf("[" + std::string(texts) + ",\n\n" + arrays(512) + "]"),
              (DecodingError{"", "nested more than 512 levels deep", Position{3, 512}}));
}

TEST(DocumentLimits, theDepthIsLimitedEvenWhenTheRestIsMalformed) {
    EXPECT_EQ(errorOf(repeat("[", mebibyte)),
              (DecodingError{"", "nested more than 512 levels deep", Position{1, 513}}));
    EXPECT_EQ(errorOf(repeat(R"({"a":)", 200000)).description, "nested more than 512 levels deep");
}

TEST(DocumentLimits, anotherDepthCanBeAskedFor) {
    const Limits flat{.bytes = 100, .depth = 1};
    EXPECT_TRUE(reads("1", {.bytes = 100, .depth = 0}));
    EXPECT_EQ(errorOf("[]", {.bytes = 100, .depth = 0}),
              (DecodingError{"", "nested more than 0 levels deep", Position{1, 1}}));
    EXPECT_TRUE(reads("[1]", flat));
    EXPECT_EQ(errorOf("[ []]", flat),
              (DecodingError{"", "nested more than 1 levels deep", Position{1, 3}}));
}

TEST(DocumentLimits, textsOfUpToAMebibyteAreRead) {
    EXPECT_TRUE(reads("\"" + repeat("a", mebibyte - 3) + "\""));
    EXPECT_TRUE(reads("\"" + repeat("a", mebibyte - 2) + "\""));
    EXPECT_EQ(errorOf("\"" + repeat("a", mebibyte - 1) + "\""),
              (DecodingError{"", "the document has more than 1048576 bytes", std::nullopt}));
}

TEST(DocumentLimits, blanksCountAsBytes) {
    EXPECT_TRUE(reads("1" + repeat(" ", mebibyte - 1)));
    EXPECT_FALSE(reads("1" + repeat(" ", mebibyte)));
}

TEST(DocumentLimits, theSizeIsJudgedBeforeTheText) {
    EXPECT_EQ(errorOf(std::string(mebibyte + 1, '\0')).description,
              "the document has more than 1048576 bytes");
}

TEST(DocumentLimits, anotherSizeCanBeAskedFor) {
    EXPECT_TRUE(reads("1234", {.bytes = 4}));
    EXPECT_EQ(errorOf("12345", {.bytes = 4}).description, "the document has more than 4 bytes");
}

TEST(DocumentLimits, aMebibyteOfValuesIsRead) {
    const std::string text = "[" + repeat("1,", mebibyte / 2 - 1) + "1";
    ASSERT_EQ(text.size(), mebibyte);
    EXPECT_EQ(errorOf(text).position, (Position{1, 1048577}));
    EXPECT_TRUE(reads(text.substr(0, text.size() - 2) + "]"));
}

TEST(DocumentLimits, aVeryLongNumberIsReadOrRefusedWithoutHarm) {
    EXPECT_EQ(errorOf(repeat("9", mebibyte)),
              (DecodingError{"", "number out of range of a 64-bit float", Position{1, 1}}));
    Document document;
    ASSERT_TRUE(document.parse("0." + repeat("3", mebibyte - 2)).has_value());
    EXPECT_EQ(document.node(0).real, 1.0 / 3);
}

TEST(DocumentLimits, aVeryLongTextThatIsMalformedIsNotQuoted) {
    const DecodingError error = errorOf("\"" + repeat("; expected ", 90000) + "\xFF\"");
    EXPECT_EQ(error,
              (DecodingError{
                  "", "syntax error while parsing value - invalid string: ill-formed UTF-8 byte",
                  Position{1, 990002}}));
}

TEST(DocumentLimits, aVeryLongKeyThatIsMalformedIsNotQuoted) {
    const DecodingError error = errorOf("{\"" + repeat("; last read: '", 70000) + "\xFF\":1}");
    EXPECT_EQ(error, (DecodingError{"",
                                    "syntax error while parsing object key - invalid string: "
                                    "ill-formed UTF-8 byte; expected string literal",
                                    Position{1, 980003}}));
}

}  // namespace airflow::json
