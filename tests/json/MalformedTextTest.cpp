// Every way in which a text is no JSON, with the exact place and reason.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "json/Document.h"
#include "json/Texts.h"

namespace airflow::json {

namespace {

using namespace std::string_literals;

struct Malformed {
    std::string text;
    Position position;
    std::string description;
};

void expectRefusals(const std::vector<Malformed>& table) {
    for (const auto& [text, position, description] : table) {
        Document document;
        const auto parsed = document.parse(text);
        ASSERT_FALSE(parsed.has_value()) << text;
        EXPECT_EQ(parsed.error(), (DecodingError{"", description, position})) << text;
        EXPECT_TRUE(tests::isUTF8(parsed.error().description)) << text;
    }
}

const std::string inValue = "syntax error while parsing value - ";
const std::string inArray = "syntax error while parsing array - ";
const std::string inObject = "syntax error while parsing object - ";
const std::string inKey = "syntax error while parsing object key - ";
const std::string inSeparator = "syntax error while parsing object separator - ";
const std::string valueExpected = "; expected '[', '{', or a literal";

}  // namespace

TEST(MalformedText, thatEndsTooEarlyIsRefusedAtItsEnd) {
    expectRefusals({
        {"", {1, 1}, "the document is empty"},
        {" \t\r\n ", {1, 1}, "the document is empty"},
        {"{", {1, 2}, inKey + "unexpected end of input; expected string literal"},
        {"{\"a\"", {1, 5}, inSeparator + "unexpected end of input; expected ':'"},
        {"{\"a\":", {1, 6}, inValue + "unexpected end of input" + valueExpected},
        {"{\"a\":1", {1, 7}, inObject + "unexpected end of input; expected '}'"},
        {"{\"a\":1,", {1, 8}, inKey + "unexpected end of input; expected string literal"},
        {"[", {1, 2}, inValue + "unexpected end of input" + valueExpected},
        {"[1", {1, 3}, inArray + "unexpected end of input; expected ']'"},
        {"[1,", {1, 4}, inValue + "unexpected end of input" + valueExpected},
        {"\"abc", {1, 5}, inValue + "invalid string: missing closing quote"},
    });
}

TEST(MalformedText, withATrailingCommaIsRefused) {
    expectRefusals({
        {"[1,]", {1, 4}, inValue + "unexpected ']'" + valueExpected},
        {"[1,\n]", {2, 1}, inValue + "unexpected ']'" + valueExpected},
        {"[1,\r]", {1, 5}, inValue + "unexpected ']'" + valueExpected},
        {"[1,\t]", {1, 5}, inValue + "unexpected ']'" + valueExpected},
        {"{\"a\":1,}", {1, 8}, inKey + "unexpected '}'; expected string literal"},
        {"1,", {1, 2}, inValue + "unexpected ','; expected end of input"},
    });
}

TEST(MalformedText, withWrongPunctuationIsRefusedWhereTheTokenStarts) {
    expectRefusals({
        {"]", {1, 1}, inValue + "unexpected ']'" + valueExpected},
        {"}", {1, 1}, inValue + "unexpected '}'" + valueExpected},
        {":", {1, 1}, inValue + "unexpected ':'" + valueExpected},
        {",", {1, 1}, inValue + "unexpected ','" + valueExpected},
        {"[1}", {1, 3}, inArray + "unexpected '}'; expected ']'"},
        {"{\"a\":1]", {1, 7}, inObject + "unexpected ']'; expected '}'"},
        {"{\"a\":}", {1, 6}, inValue + "unexpected '}'" + valueExpected},
        {"{\"a\" 1234}", {1, 6}, inSeparator + "unexpected number literal; expected ':'"},
        {"{1234:2}", {1, 2}, inKey + "unexpected number literal; expected string literal"},
        {"{a:1}", {1, 2}, inKey + "invalid literal; expected string literal"},
        {"[1 22]", {1, 4}, inArray + "unexpected number literal; expected ']'"},
        {"[1,\n  true\n  false]", {3, 3}, inArray + "unexpected false literal; expected ']'"},
        {"[1 true]", {1, 4}, inArray + "unexpected true literal; expected ']'"},
        {"[1 null]", {1, 4}, inArray + "unexpected null literal; expected ']'"},
        {"[\"x\",\n \"y\" \"z[[\"]", {2, 6}, inArray + "unexpected string literal; expected ']'"},
        {"{\"a\":1 \"bc\":2}", {1, 8}, inObject + "unexpected string literal; expected '}'"},
    });
}

TEST(MalformedText, withAnythingAfterTheValueIsRefused) {
    expectRefusals({
        {"1 22", {1, 3}, inValue + "unexpected number literal; expected end of input"},
        {"{} {}", {1, 4}, inValue + "unexpected '{'; expected end of input"},
        {"{}\n]", {2, 1}, inValue + "unexpected ']'; expected end of input"},
        {"{} x", {1, 4}, inValue + "invalid literal; expected end of input"},
        {"01", {1, 2}, inValue + "unexpected number literal; expected end of input"},
        {"0x10", {1, 2}, inValue + "invalid literal; expected end of input"},
    });
}

TEST(MalformedText, withUnknownWordsIsRefused) {
    expectRefusals({
        {"nul", {1, 4}, inValue + "invalid literal"},
        {"TRUE", {1, 1}, inValue + "invalid literal"},
        {"falsy", {1, 5}, inValue + "invalid literal"},
        {"NaN", {1, 1}, inValue + "invalid literal"},
        {"Infinity", {1, 1}, inValue + "invalid literal"},
        {"-Infinity", {1, 2}, inValue + "invalid number; expected digit after '-'"},
        {"'a'", {1, 1}, inValue + "invalid literal"},
        {"[1\f]", {1, 3}, inArray + "invalid literal; expected ']'"},
    });
}

TEST(MalformedText, withACommentIsRefused) {
    expectRefusals({
        {"// why\n1", {1, 1}, inValue + "invalid literal"},
        {"/* why */1", {1, 1}, inValue + "invalid literal"},
        {"[1 /* why */]", {1, 4}, inArray + "invalid literal; expected ']'"},
        {"# why\n1", {1, 1}, inValue + "invalid literal"},
    });
}

TEST(MalformedText, withAMalformedNumberIsRefused) {
    expectRefusals({
        {"-", {1, 2}, inValue + "invalid number; expected digit after '-'"},
        {"-a", {1, 2}, inValue + "invalid number; expected digit after '-'"},
        {"1.", {1, 3}, inValue + "invalid number; expected digit after '.'"},
        {"1.e3", {1, 3}, inValue + "invalid number; expected digit after '.'"},
        {".5", {1, 1}, inValue + "invalid literal"},
        {"+1", {1, 1}, inValue + "invalid literal"},
        {"1e", {1, 3}, inValue + "invalid number; expected '+', '-', or digit after exponent"},
        {"1e+", {1, 4}, inValue + "invalid number; expected digit after exponent sign"},
    });
}

TEST(MalformedText, withANumberBeyondDoublesIsRefusedWhereTheNumberStarts) {
    const std::string tooLarge = "number out of range of a 64-bit float";
    expectRefusals({
        {"1e400", {1, 1}, tooLarge},
        {"-1e400", {1, 1}, tooLarge},
        {"[1,\n  1.7976931348623159e308]", {2, 3}, tooLarge},
        {"{\"a\": -1.7976931348623159e308}", {1, 7}, tooLarge},
    });
}

TEST(MalformedText, withABadEscapeIsRefused) {
    const std::string forbidden = "invalid string: forbidden character after backslash";
    const std::string hex = "invalid string: '\\u' must be followed by 4 hex digits";
    expectRefusals({
        {R"("\x41")", {1, 3}, inValue + forbidden},
        {"\"\\", {1, 3}, inValue + forbidden},
        {R"("\u12G4")", {1, 6}, inValue + hex},
        {"\"\\u12", {1, 6}, inValue + hex},
        {R"("\uD800\u12G4")", {1, 12}, inValue + hex},
        {R"("\uD83C\uDF00\x")", {1, 15}, inValue + forbidden},
    });
}

TEST(MalformedText, withALoneSurrogateIsRefused) {
    const std::string high =
        "invalid string: surrogate U+D800..U+DBFF must be followed by U+DC00..U+DFFF";
    const std::string low = "invalid string: surrogate U+DC00..U+DFFF must follow U+D800..U+DBFF";
    expectRefusals({
        {R"("\uD800")", {1, 8}, inValue + high},
        {R"("\uDBFFx")", {1, 8}, inValue + high},
        {R"("\uD800\u0041")", {1, 13}, inValue + high},
        {R"("\uD800\n")", {1, 9}, inValue + high},
        {R"("\uDC00")", {1, 7}, inValue + low},
        {R"("\uDFFF\uD800")", {1, 7}, inValue + low},
        {R"("\uD7FF\uDC00")", {1, 13}, inValue + low},
        {R"({"\uDC00":1})", {1, 8}, inKey + low + "; expected string literal"},
        {R"([1,"a\\\"\uDC00\x"])", {1, 15}, inValue + low},
    });
}

TEST(MalformedText, withARawControlCharacterInATextIsRefused) {
    const std::string mustBeEscaped = "invalid string: control character ";
    expectRefusals({
        {"\"a\nb\"",
         {1, 3},
         inValue + mustBeEscaped + "U+000A (LF) must be escaped to \\u000A or \\n"},
        {"\"\b\"",
         {1, 2},
         inValue + mustBeEscaped + "U+0008 (BS) must be escaped to \\u0008 or \\b"},
        {"\"\t\"",
         {1, 2},
         inValue + mustBeEscaped + "U+0009 (HT) must be escaped to \\u0009 or \\t"},
        {"\"\v\"", {1, 2}, inValue + mustBeEscaped + "U+000B (VT) must be escaped to \\u000B"},
        {"\"\f\"",
         {1, 2},
         inValue + mustBeEscaped + "U+000C (FF) must be escaped to \\u000C or \\f"},
        {"\"\r\"",
         {1, 2},
         inValue + mustBeEscaped + "U+000D (CR) must be escaped to \\u000D or \\r"},
        {"\"\x01\"", {1, 2}, inValue + mustBeEscaped + "U+0001 (SOH) must be escaped to \\u0001"},
        {"\"\x1F\"", {1, 2}, inValue + mustBeEscaped + "U+001F (US) must be escaped to \\u001F"},
    });
}

TEST(MalformedText, thatIsNotUTF8IsRefusedAtTheByte) {
    const std::string illFormed = inValue + "invalid string: ill-formed UTF-8 byte";
    expectRefusals({
        {"\"a\xFF\"", {1, 3}, illFormed},
        {"[\"a\",\n  \"\xC3\x28\"]", {2, 5}, illFormed},
        {"\"\x80\"", {1, 2}, illFormed},
        {"\"\xC0\x80\"", {1, 2}, illFormed},          // an overlong NUL
        {"\"\xE0\x80\x80\"", {1, 3}, illFormed},      // overlong
        {"\"\xED\xA0\x80\"", {1, 3}, illFormed},      // a surrogate
        {"\"\xF4\x90\x80\x80\"", {1, 3}, illFormed},  // beyond U+10FFFF
        {"\"\xF5\x80\x80\x80\"", {1, 2}, illFormed},
        {"\"\xE2\x82", {1, 4}, illFormed},
        {"\xC3\xA9", {1, 1}, inValue + "invalid literal"},
        {"[\xFF]", {1, 2}, inValue + "invalid literal"},
    });
}

TEST(MalformedText, isNeverQuotedNotEvenWhereItImitatesTheReason) {
    const std::string illFormed = "invalid string: ill-formed UTF-8 byte";
    expectRefusals({
        {"\"; expected abc\xFF\"", {1, 16}, inValue + illFormed},
        {"\"number overflow\xFF\"", {1, 17}, inValue + illFormed},
        {"\"; last read: '\xFF\"", {1, 16}, inValue + illFormed},
        {"{\": '; expected \xFF\":1}", {1, 17}, inKey + illFormed + "; expected string literal"},
        {"\" - unexpected number literal\xFF\"", {1, 30}, inValue + illFormed},
        {"[1 \"number overflow\"]", {1, 4}, inArray + "unexpected string literal; expected ']'"},
    });
}

TEST(MalformedText, withAByteOrderMarkIsRefused) {
    expectRefusals({
        {"\xEF\xBB\xBF{}", {1, 1}, "a byte-order mark is not allowed"},
        {"\xEF\xBB\xBF", {1, 1}, "a byte-order mark is not allowed"},
        {" \xEF\xBB\xBF{}", {1, 2}, inValue + "invalid literal"},
        {"{}\xEF\xBB\xBF", {1, 3}, inValue + "invalid literal; expected end of input"},
    });
    Document document;
    EXPECT_FALSE(document.parse("\xEF\xBB").has_value());
}

TEST(MalformedText, withPartOfAByteOrderMarkIsRefusedWhereTheMarkEnds) {
    const std::string invalid = inValue + "invalid BOM; must be 0xEF 0xBB 0xBF if given";
    expectRefusals({
        {"\xEF", {1, 2}, invalid},
        {"\xEF{}", {1, 2}, invalid},
        {"\xEF\xBB", {1, 3}, invalid},
        {"\xEF\xBB{}", {1, 3}, invalid},
    });
}

TEST(MalformedText, withANulByteIsRefused) {
    const std::string notAllowed = "a NUL byte is not allowed";
    expectRefusals({
        {"\0"s, {1, 1}, notAllowed},
        {"{}\0"s, {1, 3}, notAllowed},
        {"{}\n\0]"s, {2, 1}, notAllowed},
        {"\"a\0b\""s, {1, 3}, notAllowed},
        {"[1,\0 2]"s, {1, 4}, notAllowed},
    });
}

TEST(MalformedText, thatIsUTF16IsRefused) {
    expectRefusals({
        {"{\0}\0"s, {1, 2}, "a NUL byte is not allowed"},
        {"\0{\0}"s, {1, 1}, "a NUL byte is not allowed"},
        {"\xFF\xFE{\0}\0"s, {1, 4}, "a NUL byte is not allowed"},
        {"\xFE\xFF\0{\0}"s, {1, 3}, "a NUL byte is not allowed"},
        {"\xFF\xFE", {1, 1}, inValue + "invalid literal"},
    });
}

TEST(MalformedText, columnsCountBytesAndLinesEndWithALineFeed) {
    expectRefusals({
        {"[\"\xC3\xA9\xC3\xA9\", x]", {1, 10}, inValue + "invalid literal"},
        {"[1,\r\n2,\r\n x]", {3, 2}, inValue + "invalid literal"},
        {"[1,\r2,\r x]", {1, 9}, inValue + "invalid literal"},
    });
}

}  // namespace airflow::json
