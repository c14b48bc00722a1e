#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

#include "json/Document.h"
#include "json/Texts.h"

namespace airflow::json {

namespace {

using Kind = Document::Kind;

Document parsed(std::string_view text) {
    Document document;
    EXPECT_TRUE(document.parse(text).has_value()) << text;
    return document;
}

double realOf(std::string_view text) {
    const Document document = parsed(text);
    EXPECT_EQ(document.node(0).kind, Kind::real) << text;
    return document.node(0).real;
}

std::string textOf(std::string_view json) {
    const Document document = parsed(json);
    EXPECT_EQ(document.node(0).kind, Kind::text) << json;
    return std::string(document.text(document.node(0)));
}

}  // namespace

TEST(Document, holdsEveryKindOfValue) {
    EXPECT_EQ(parsed("null").node(0).kind, Kind::null);
    EXPECT_EQ(parsed("true").node(0).kind, Kind::boolean);
    EXPECT_TRUE(parsed("true").node(0).boolean);
    EXPECT_FALSE(parsed("false").node(0).boolean);
    EXPECT_EQ(parsed("-7").node(0).kind, Kind::integer);
    EXPECT_EQ(parsed("-7").node(0).integer, -7);
    EXPECT_EQ(parsed("7").node(0).kind, Kind::natural);
    EXPECT_EQ(parsed("7").node(0).natural, 7u);
    EXPECT_EQ(realOf("7.5"), 7.5);
    EXPECT_EQ(textOf("\"seven\""), "seven");
    EXPECT_EQ(parsed("[]").node(0).kind, Kind::array);
    EXPECT_EQ(parsed("{}").node(0).kind, Kind::object);
}

TEST(Document, blanksAroundValuesMeanNothing) {
    const Document document = parsed(" \t\r\n[ 1 ,\n2 ] \n");
    EXPECT_EQ(document.node(0).end, 3u);
    EXPECT_EQ(document.node(2).natural, 2u);
}

TEST(Document, listsAContainerBeforeWhatItHolds) {
    const Document document = parsed(R"({"a":[1,{"b":[]},"x"],"c":null})");
    EXPECT_EQ(document.node(0).end, 7u);
    EXPECT_EQ(document.key(document.node(0)), "");
    EXPECT_EQ(document.node(1).kind, Kind::array);
    EXPECT_EQ(document.key(document.node(1)), "a");
    EXPECT_EQ(document.node(1).end, 6u);
    EXPECT_EQ(document.node(2).natural, 1u);
    EXPECT_EQ(document.key(document.node(2)), "");
    EXPECT_EQ(document.node(3).kind, Kind::object);
    EXPECT_EQ(document.node(3).end, 5u);
    EXPECT_EQ(document.key(document.node(4)), "b");
    EXPECT_EQ(document.node(4).end, 5u);
    EXPECT_EQ(document.text(document.node(5)), "x");
    EXPECT_EQ(document.key(document.node(6)), "c");
    EXPECT_EQ(document.node(6).kind, Kind::null);
}

TEST(Document, holdsTheTextParsedLast) {
    Document document;
    ASSERT_TRUE(document.parse(R"({"a":"first"})").has_value());
    ASSERT_TRUE(document.parse("\"second\"").has_value());
    EXPECT_EQ(document.text(document.node(0)), "second");
    ASSERT_FALSE(document.parse("[").has_value());
    ASSERT_TRUE(document.parse("3").has_value());
    EXPECT_EQ(document.node(0).natural, 3u);
}

TEST(Document, integersAreExactUpTo64Bits) {
    EXPECT_EQ(parsed("9223372036854775807").node(0).natural, 9223372036854775807u);
    EXPECT_EQ(parsed("18446744073709551615").node(0).natural, 18446744073709551615u);
    EXPECT_EQ(parsed("-9223372036854775808").node(0).integer,
              std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(parsed("9007199254740993").node(0).natural, 9007199254740993u);
}

TEST(Document, integersBeyond64BitsKeepTheNearestDouble) {
    for (const auto& [text, real] :
         {std::pair{"18446744073709551616", 18446744073709551616.0},
          std::pair{"-9223372036854775809", -9223372036854775808.0},
          std::pair{"123456789012345678901234567890", 123456789012345678901234567890.0}}) {
        EXPECT_EQ(parsed(text).node(0).kind, Kind::huge) << text;
        EXPECT_EQ(parsed(text).node(0).real, real) << text;
    }
}

TEST(Document, numbersWithFractionOrExponentAreReal) {
    EXPECT_EQ(realOf("0.1"), 0.1);
    EXPECT_EQ(realOf("2.0"), 2.0);
    EXPECT_EQ(realOf("1e2"), 100.0);
    EXPECT_EQ(realOf("1E+2"), 100.0);
    EXPECT_EQ(realOf("1e-2"), 0.01);
    EXPECT_EQ(realOf("-9223372036854775808.0"), -9223372036854775808.0);
}

TEST(Document, theLargestAndSmallestDoublesAreRead) {
    EXPECT_EQ(realOf("1.7976931348623157e308"), std::numeric_limits<double>::max());
    EXPECT_EQ(realOf("-1.7976931348623157e308"), std::numeric_limits<double>::lowest());
    EXPECT_EQ(realOf("2.2250738585072014e-308"), std::numeric_limits<double>::min());
    EXPECT_EQ(realOf("5e-324"), std::numeric_limits<double>::denorm_min());
}

TEST(Document, numbersTooSmallForADoubleAreZero) {
    EXPECT_EQ(realOf("1e-400"), 0.0);
    EXPECT_FALSE(std::signbit(realOf("1e-400")));
    EXPECT_TRUE(std::signbit(realOf("-1e-400")));
}

TEST(Document, numbersThatOnlySeemTooLargeAreRead) {
    EXPECT_EQ(realOf("0e999"), 0.0);
    EXPECT_EQ(realOf("0.0e99999999999999999999"), 0.0);
    EXPECT_EQ(realOf("1" + std::string(400, '0') + "e-200"), 1e200);
    EXPECT_EQ(realOf("0." + std::string(400, '0') + "1e401"), 1.0);
    // One more than the largest double, and nearer to it than to what would be the next.
    const std::string largest =
        "179769313486231570814527423731704356798070567525844996598917476803"
        "157260780028538760589558632766878171540458953514382464234321326889"
        "464182768467546703537516986049910576551282076245490090389328944075"
        "868508455133942304583236903222948165808559332123347764797926204144"
        "72316873817718091929988125040402618412485836";
    const Document document = parsed(largest + "9");
    EXPECT_EQ(document.node(0).kind, Kind::huge);
    EXPECT_EQ(document.node(0).real, std::numeric_limits<double>::max());
}

TEST(Document, theDoubleIsTheNearestOneHoweverManyDigitsDecide) {
    // Half-way between 1 and the next double, and a digit far behind that is more.
    const std::string half = "1.00000000000000011102230246251565404236316680908203125";
    EXPECT_EQ(realOf(half), 1.0);
    EXPECT_EQ(realOf(half + std::string(800, '0') + "1"), 1.0000000000000002);
    EXPECT_EQ(realOf("0.1234567890123456789012345678901234567890"), 0.12345678901234568);
    EXPECT_EQ(realOf("9007199254740993.0"), 9007199254740992.0);
    EXPECT_EQ(realOf("2.2250738585072011e-308"), 2.2250738585072011e-308);
}

TEST(Document, minusZeroKeepsItsSignHoweverWritten) {
    EXPECT_TRUE(std::signbit(realOf("-0")));
    EXPECT_TRUE(std::signbit(realOf("-0.0")));
    EXPECT_TRUE(std::signbit(realOf("-0e0")));
    EXPECT_EQ(parsed("0").node(0).kind, Kind::natural);
}

TEST(Document, escapesStandForTheirCharacters) {
    EXPECT_EQ(textOf(R"("\"\\\/\b\f\n\r\t")"), "\"\\/\b\f\n\r\t");
    EXPECT_EQ(textOf(R"("\u0041\u00e9\u20AC")"), "A\xC3\xA9\xE2\x82\xAC");
    EXPECT_EQ(textOf(R"("\uD83C\uDF00")"), "\xF0\x9F\x8C\x80");
    EXPECT_EQ(textOf(R"("a\u0000b")"), std::string("a\0b", 3));
    EXPECT_EQ(textOf("\"\x7F\""), "\x7F");
    EXPECT_EQ(textOf("\"\xEF\xBB\xBF\""), "\xEF\xBB\xBF");
}

TEST(Document, theCharactersNextToTheSurrogatesAreRead) {
    EXPECT_EQ(textOf("\"\xED\x9F\xBF\xEE\x80\x80\""), "\xED\x9F\xBF\xEE\x80\x80");
    EXPECT_EQ(textOf(R"("\uD7FF\uE000")"), "\xED\x9F\xBF\xEE\x80\x80");
    EXPECT_EQ(textOf(R"("\uD800\uDC00\uDBFF\uDFFF")"), "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF");
}

TEST(Document, keysAreTextsLikeAnyOther) {
    const Document document = parsed(R"({"\u0061\"":1,"":2})");
    EXPECT_EQ(document.key(document.node(1)), "a\"");
    EXPECT_EQ(document.key(document.node(2)), "");
}

TEST(Document, anEmptyTextIsAText) {
    EXPECT_EQ(textOf("\"\""), "");
}

}  // namespace airflow::json
