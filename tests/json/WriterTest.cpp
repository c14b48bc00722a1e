#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <limits>

#include "json/Decoder.h"
#include "json/Texts.h"
#include "json/Writer.h"
#include "support/Doubles.h"

namespace airflow::json {

namespace {

using Numbers = std::numeric_limits<double>;
using airflow::tests::finiteDoubles;
using airflow::tests::infinity;
using airflow::tests::notANumber;

template <typename T>
std::string written(const T& value) {
    return encode(value).value_or("(refused)");
}

/// How many digits of `text` count: without leading and trailing zeros, sign, point and exponent.
std::size_t significantDigits(std::string_view text) {
    std::string digits;
    for (const char character : text.substr(0, text.find('e'))) {
        if (character >= '0' && character <= '9') digits += character;
    }
    digits.erase(0, digits.find_first_not_of('0'));
    digits.erase(digits.find_last_not_of('0') + 1);
    return digits.size();
}

struct Leaf {
    double number = 0;
    std::string text;

    void encode(Writer& writer) const {
        writer.object([&] {
            writer.member("number", number);
            writer.member("text", text);
        });
    }
};

struct Tree {
    std::vector<Leaf> leaves;
    std::map<std::int64_t, Leaf> byIndex;
    std::optional<Leaf> last;

    void encode(Writer& writer) const {
        writer.object([&] {
            writer.member("leaves", leaves);
            writer.objectMember("inner", [&] { writer.member("byIndex", byIndex); });
            writer.member("last", last);
        });
    }
};

}  // namespace

TEST(Writer, writesWholeDoublesWithoutAFraction) {
    EXPECT_EQ(written(0.0), "0");
    EXPECT_EQ(written(1800.0), "1800");
    EXPECT_EQ(written(-5.0), "-5");
    EXPECT_EQ(written(1e15), "1000000000000000");
    EXPECT_EQ(written(9007199254740993.0), "9007199254740992");
    EXPECT_EQ(written(1e18), "1000000000000000000");
    EXPECT_EQ(written(9223372036854774784.0), "9223372036854774784");
    EXPECT_EQ(written(-9223372036854774784.0), "-9223372036854774784");
}

TEST(Writer, writesDoublesFromTwoToThe63rdOnWithAnExponent) {
    EXPECT_EQ(written(9223372036854775808.0), "9.223372036854776e+18");
    EXPECT_EQ(written(-9223372036854775808.0), "-9.223372036854776e+18");
    EXPECT_EQ(written(1e19), "1e+19");
    EXPECT_EQ(written(1e300), "1e+300");
    EXPECT_EQ(written(Numbers::max()), "1.7976931348623157e+308");
    EXPECT_EQ(written(Numbers::lowest()), "-1.7976931348623157e+308");
}

TEST(Writer, writesOtherDoublesAsShortAsReadsBack) {
    EXPECT_EQ(written(0.1), "0.1");
    EXPECT_EQ(written(0.3), "0.3");
    EXPECT_EQ(written(0.1 + 0.2), "0.30000000000000004");
    EXPECT_EQ(written(-2.5), "-2.5");
    EXPECT_EQ(written(1.0 / 3), "0.3333333333333333");
    EXPECT_EQ(written(1e-7), "1e-07");
    EXPECT_EQ(written(Numbers::min()), "2.2250738585072014e-308");
    EXPECT_EQ(written(Numbers::denorm_min()), "5e-324");
}

TEST(Writer, keepsTheSignOfZero) {
    EXPECT_EQ(written(-0.0), "-0");
    const auto back = decode<double>("-0");
    ASSERT_TRUE(back.has_value());
    EXPECT_TRUE(std::signbit(*back));
}

TEST(Writer, refusesNumbersThatAreNotFinite) {
    const EncodingError refused{"", "A number that is not finite has no JSON form."};
    EXPECT_EQ(encode(infinity).error(), refused);
    EXPECT_EQ(encode(-infinity).error(), refused);
    EXPECT_EQ(encode(notANumber).error(), refused);
}

RC_GTEST_PROP(Writer, everyDoubleReadsBackBitForBit, ()) {
    const double number = *finiteDoubles();
    const auto back = decode<double>(written(number));
    RC_ASSERT(back.has_value());
    RC_ASSERT(std::bit_cast<std::uint64_t>(*back) == std::bit_cast<std::uint64_t>(number));
}

RC_GTEST_PROP(Writer, everyWholeDoubleReadsBackWithoutFractionOrExponent, ()) {
    const auto whole = *rc::gen::resize(rc::kNominalSize, rc::gen::arbitrary<std::int64_t>());
    const auto number = static_cast<double>(whole >> *rc::gen::inRange(1, 60));
    const std::string text = written(number);
    RC_ASSERT(text.find_first_not_of("-0123456789") == std::string::npos);
    RC_ASSERT(decode<double>(text).value_or(notANumber) == number);
}

RC_GTEST_PROP(Writer, noFewerDigitsWouldReadBack, ()) {
    const double number = *finiteDoubles();
    RC_PRE(std::trunc(number) != number || std::abs(number) >= 9223372036854775808.0);
    char shortest[32];
    const auto end = std::to_chars(std::begin(shortest), std::end(shortest), number,
                                   std::chars_format::scientific)
                         .ptr;
    RC_ASSERT(significantDigits(written(number)) == significantDigits({std::begin(shortest), end}));
}

TEST(Writer, writesEveryInteger) {
    using Integers = std::numeric_limits<std::int64_t>;
    EXPECT_EQ(written(std::int64_t{0}), "0");
    EXPECT_EQ(written(std::int64_t{-1}), "-1");
    EXPECT_EQ(written(Integers::max()), "9223372036854775807");
    EXPECT_EQ(written(Integers::min()), "-9223372036854775808");
}

TEST(Writer, writesBooleans) {
    EXPECT_EQ(written(true), "true");
    EXPECT_EQ(written(false), "false");
}

TEST(Writer, writesPlainTextAsItIs) {
    EXPECT_EQ(written(std::string()), R"("")");
    EXPECT_EQ(written(std::string("Hot spike / 95 ~")), R"("Hot spike / 95 ~")");
    EXPECT_EQ(written("a literal"), R"("a literal")");
}

TEST(Writer, escapesQuotesBackslashesAndControlCharacters) {
    EXPECT_EQ(written(std::string("a\"b\\c")), R"("a\"b\\c")");
    EXPECT_EQ(written(std::string("\b\f\n\r\t")), R"("\b\f\n\r\t")");
    EXPECT_EQ(written(std::string("\0\x01\x1F", 3)), R"("\u0000\u0001\u001f")");
    EXPECT_EQ(written(std::string("\x7F")), "\"\x7F\"");
}

TEST(Writer, writesOtherCharactersUnescaped) {
    EXPECT_EQ(written(std::string("\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x8C\x80")),
              "\"\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x8C\x80\"");
}

TEST(Writer, everyByteIsWrittenAsTheTextThatReadsBack) {
    for (int byte = 0; byte < 128; ++byte) {
        const std::string text{'<', static_cast<char>(byte), '>'};
        EXPECT_EQ(decode<std::string>(written(text)), text) << byte;
    }
}

TEST(Writer, refusesTextThatIsNotUTF8) {
    for (const std::string text : {"\xFF", "abc\x80", "\xC3", "\xC3(", "\xED\xA0\x80", "\xC0\x80",
                                   "\xF4\x90\x80\x80", "\xE2\x82"}) {
        const auto result = encode(text);
        ASSERT_FALSE(result.has_value()) << text;
        EXPECT_EQ(result.error(),
                  (EncodingError{"", "A text that is not UTF-8 has no JSON form."}));
    }
}

TEST(Writer, writesMembersInTheirOrderAndLeavesAbsentOnesOut) {
    EXPECT_EQ(written(Tree{}), R"({"leaves":[],"inner":{"byIndex":{}}})");
    EXPECT_EQ(written(Tree{.leaves = {{1, "a"}, {2.5, "b"}},
                           .byIndex = {{10, {3, ""}}, {-2, {4, ""}}},
                           .last = Leaf{5, "z"}}),
              R"({"leaves":[{"number":1,"text":"a"},{"number":2.5,"text":"b"}],)"
              R"("inner":{"byIndex":{"-2":{"number":4,"text":""},"10":{"number":3,"text":""}}},)"
              R"("last":{"number":5,"text":"z"}})");
}

TEST(Writer, writesACaseWithoutPayloadAsAnEmptyObject) {
    Writer writer;
    writer.emptyCase("automatic");
    EXPECT_EQ(writer.take(), R"({"automatic":{}})");
}

TEST(Writer, saysWhereSomethingHasNoJSONForm) {
    EXPECT_EQ(
        encode(Tree{.leaves = {{1, ""}, {notANumber, ""}}, .byIndex = {}, .last = {}}).error(),
        (EncodingError{"leaves[1].number", "A number that is not finite has no JSON form."}));
    EXPECT_EQ(encode(Tree{.leaves = {{1, "\xFF"}}, .byIndex = {}, .last = {}}).error(),
              (EncodingError{"leaves[0].text", "A text that is not UTF-8 has no JSON form."}));
    EXPECT_EQ(
        encode(Tree{.leaves = {}, .byIndex = {{7, {1, "\xFF"}}}, .last = {}}).error(),
        (EncodingError{"inner.byIndex.7.text", "A text that is not UTF-8 has no JSON form."}));
    EXPECT_EQ(
        encode(Tree{.leaves = {}, .byIndex = {}, .last = Leaf{-infinity, ""}}).error().codingPath,
        "last.number");
    EXPECT_EQ(encode(std::vector<double>{1, 2, infinity}).error().codingPath, "[2]");
}

TEST(Writer, reportsTheFirstThingThatHasNoJSONForm) {
    EXPECT_EQ(encode(Leaf{infinity, "\xFF"}).error(),
              (EncodingError{"number", "A number that is not finite has no JSON form."}));
}

TEST(Writer, startsAgainAfterTaking) {
    Writer writer;
    writer.write(infinity);
    EXPECT_FALSE(writer.take().has_value());
    writer.write(std::vector<std::int64_t>{1, 2});
    EXPECT_EQ(writer.take(), "[1,2]");
    EXPECT_EQ(writer.take(), "");
}

TEST(Writer, viewsWhatWasWrittenUntilItIsCleared) {
    Writer writer;
    writer.write(true);
    EXPECT_EQ(writer.view(), "true");
    EXPECT_EQ(writer.view(), "true");
    writer.write(notANumber);
    EXPECT_EQ(writer.view().error().description, "A number that is not finite has no JSON form.");
    writer.clear();
    EXPECT_EQ(writer.view(), "");
}

}  // namespace airflow::json
