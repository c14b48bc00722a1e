#include <gtest/gtest.h>

#include "json/Decoder.h"
#include "json/Reasons.h"
#include "json/Texts.h"

namespace airflow::json {

namespace {

/// A record with a key of each kind.
struct Everything {
    double number = 0;
    Integer integer = 0;
    bool boolean = false;
    std::string text;
    std::vector<std::vector<Integer>> rows;
    std::optional<std::string> note;

    bool operator==(const Everything&) const = default;

    static Everything decode(const Decoder& decoder) {
        return {.number = decoder.required<double>("number"),
                .integer = decoder.required<Integer>("integer"),
                .boolean = decoder.required<bool>("boolean"),
                .text = decoder.required<std::string>("text"),
                .rows = decoder.required<std::vector<std::vector<Integer>>>("rows"),
                .note = decoder.optional<std::string>("note")};
    }
};

/// A list of lists of lists, as deep as the text goes.
struct Nest {
    static Nest decode(const Decoder& decoder) {
        decoder.forEachElement([](const Decoder& inner) { (void)inner.value<Nest>(); });
        return {};
    }
};

/// An object of which only the values are asked, whatever their keys.
struct Census {
    std::vector<std::string> keys;
    std::vector<Integer> values;

    static Census decode(const Decoder& decoder) {
        Census census;
        decoder.forEachMember([&census](std::string_view key, const Decoder& member) {
            census.keys.emplace_back(key);
            census.values.push_back(member.integer());
        });
        return census;
    }
};

/// A union of two cases.
struct Choice {
    std::string name;

    static Choice decode(const Decoder& decoder) {
        return {std::string(decoder.soleCase({"left", "right"}).value_or("none"))};
    }
};

struct AnyObject {
    static AnyObject decode(const Decoder& decoder) {
        decoder.anyObject();
        return {};
    }
};

constexpr std::string_view everything =
    R"({"number":1.5,"integer":-2,"boolean":true,"text":"x","rows":[[1,2],[],[3]],"note":"y"})";

}  // namespace

TEST(Decoder, readsARecordOfEveryKind) {
    EXPECT_EQ(decode<Everything>(everything),
              (Everything{1.5, -2, true, "x", {{1, 2}, {}, {3}}, "y"}));
}

TEST(Decoder, aNumberIsRefusedInAnyOtherKind) {
    EXPECT_EQ(reasonOf<double>("null"), "Expected a number but found null.");
    EXPECT_EQ(reasonOf<double>("true"), "Expected a number but found a boolean.");
    EXPECT_EQ(reasonOf<double>("\"1\""), "Expected a number but found a string.");
    EXPECT_EQ(reasonOf<double>("[1]"), "Expected a number but found an array.");
    EXPECT_EQ(reasonOf<double>("{}"), "Expected a number but found an object.");
}

TEST(Decoder, anIntegerIsRefusedInAnyOtherKind) {
    EXPECT_EQ(reasonOf<Integer>("null"), "Expected a whole number but found null.");
    EXPECT_EQ(reasonOf<Integer>("false"), "Expected a whole number but found a boolean.");
    EXPECT_EQ(reasonOf<Integer>("\"1\""), "Expected a whole number but found a string.");
    EXPECT_EQ(reasonOf<Integer>("[1]"), "Expected a whole number but found an array.");
    EXPECT_EQ(reasonOf<Integer>("{}"), "Expected a whole number but found an object.");
}

TEST(Decoder, aBooleanIsRefusedInAnyOtherKind) {
    EXPECT_EQ(reasonOf<bool>("null"), "Expected a boolean but found null.");
    EXPECT_EQ(reasonOf<bool>("1"), "Expected a boolean but found a number.");
    EXPECT_EQ(reasonOf<bool>("-1"), "Expected a boolean but found a number.");
    EXPECT_EQ(reasonOf<bool>("0.5"), "Expected a boolean but found a number.");
    EXPECT_EQ(reasonOf<bool>("18446744073709551616"), "Expected a boolean but found a number.");
    EXPECT_EQ(reasonOf<bool>("\"true\""), "Expected a boolean but found a string.");
    EXPECT_EQ(reasonOf<bool>("[]"), "Expected a boolean but found an array.");
    EXPECT_EQ(reasonOf<bool>("{}"), "Expected a boolean but found an object.");
}

TEST(Decoder, aTextIsRefusedInAnyOtherKind) {
    EXPECT_EQ(reasonOf<std::string>("null"), "Expected a string but found null.");
    EXPECT_EQ(reasonOf<std::string>("true"), "Expected a string but found a boolean.");
    EXPECT_EQ(reasonOf<std::string>("1"), "Expected a string but found a number.");
    EXPECT_EQ(reasonOf<std::string>("[]"), "Expected a string but found an array.");
    EXPECT_EQ(reasonOf<std::string>("{}"), "Expected a string but found an object.");
}

TEST(Decoder, aListIsRefusedInAnyOtherKind) {
    using List = std::vector<Integer>;
    EXPECT_EQ(reasonOf<List>("null"), "Expected an array but found null.");
    EXPECT_EQ(reasonOf<List>("true"), "Expected an array but found a boolean.");
    EXPECT_EQ(reasonOf<List>("1"), "Expected an array but found a number.");
    EXPECT_EQ(reasonOf<List>("\"\""), "Expected an array but found a string.");
    EXPECT_EQ(reasonOf<List>("{}"), "Expected an array but found an object.");
}

TEST(Decoder, aRecordIsRefusedInAnyOtherKind) {
    for (const auto& [text, kind] :
         {std::pair{"null", "null"}, std::pair{"true", "a boolean"}, std::pair{"1", "a number"},
          std::pair{"\"\"", "a string"}, std::pair{"[]", "an array"}}) {
        const std::string reason = std::string("Expected an object but found ") + kind + ".";
        EXPECT_EQ(errorOf<Everything>(text), (DecodingError{"", reason, std::nullopt}));
        EXPECT_EQ(errorOf<Choice>(text), (DecodingError{"", reason, std::nullopt}));
        EXPECT_EQ(errorOf<Census>(text), (DecodingError{"", reason, std::nullopt}));
        EXPECT_EQ(errorOf<AnyObject>(text), (DecodingError{"", reason, std::nullopt}));
    }
    EXPECT_TRUE(decode<AnyObject>(R"({"whatever":1})").has_value());
}

TEST(Decoder, aMissingKeyIsReportedAtItsRecord) {
    EXPECT_EQ(errorOf<Everything>(R"({"number":1,"integer":2,"text":""})"),
              (DecodingError{"", "The required key \"boolean\" is missing.", std::nullopt}));
    EXPECT_EQ(errorOf<std::vector<Everything>>("[" + std::string(everything) + ",{}]"),
              (DecodingError{"[1]", "The required key \"number\" is missing.", std::nullopt}));
}

TEST(Decoder, aWrongValueIsReportedWithItsPath) {
    EXPECT_EQ(
        errorOf<Everything>(
            R"({"number":1,"integer":2,"boolean":true,"text":"","rows":[[1],[2,3,"x"]]})"),
        (DecodingError{"rows[1][2]", "Expected a whole number but found a string.", std::nullopt}));
    EXPECT_EQ(errorOf<std::vector<Everything>>(R"([{"number":null}])"),
              (DecodingError{"[0].number", "Expected a number but found null.", std::nullopt}));
    EXPECT_EQ(errorOf<Everything>(
                  R"({"number":1,"integer":2,"boolean":true,"text":"","rows":[],"note":7})"),
              (DecodingError{"note", "Expected a string but found a number.", std::nullopt}));
}

TEST(Decoder, theFirstErrorInDeclarationOrderIsReported) {
    EXPECT_EQ(
        errorOf<Everything>(R"({"rows":1,"text":2,"boolean":3,"integer":"4","number":5})"),
        (DecodingError{"integer", "Expected a whole number but found a string.", std::nullopt}));
}

TEST(Decoder, nullAndAMissingKeyAreBothAnAbsentOptional) {
    const auto without =
        decode<Everything>(R"({"number":1,"integer":2,"boolean":true,"text":"","rows":[]})");
    const auto null = decode<Everything>(
        R"({"number":1,"integer":2,"boolean":true,"text":"","rows":[],"note":null})");
    ASSERT_TRUE(without.has_value());
    EXPECT_FALSE(without->note.has_value());
    EXPECT_EQ(without, null);
}

TEST(Decoder, unknownKeysAreIgnored) {
    EXPECT_EQ(decode<Everything>(
                  R"({"x":{"number":9},"number":1,"integer":2,"boolean":true,"y":[[]],"text":"",)"
                  R"("rows":[],"Note":"z"})"),
              (Everything{1, 2, true, "", {}, std::nullopt}));
}

TEST(Decoder, theLastOfDuplicateKeysCounts) {
    EXPECT_EQ(
        decode<Everything>(
            R"({"number":"wrong","integer":1,"integer":2,"boolean":true,"text":"a","rows":[],)"
            R"("text":"b","number":1,"note":"c","note":null})"),
        (Everything{1, 2, true, "b", {}, std::nullopt}));
}

TEST(Decoder, membersAreVisitedInTheTextsOrder) {
    const auto census = decode<Census>(R"({"b":1,"a":2,"b":3})");
    ASSERT_TRUE(census.has_value());
    EXPECT_EQ(census->keys, (std::vector<std::string>{"b", "a", "b"}));
    EXPECT_EQ(census->values, (std::vector<Integer>{1, 2, 3}));
}

TEST(Decoder, visitingEndsAtTheFirstError) {
    EXPECT_EQ(errorOf<Census>(R"({"a":1,"b":"x","c":"y"})"),
              (DecodingError{"b", "Expected a whole number but found a string.", std::nullopt}));
    EXPECT_EQ(errorOf<std::vector<Integer>>("[1,true,null]"),
              (DecodingError{"[1]", "Expected a whole number but found a boolean.", std::nullopt}));
}

TEST(Decoder, aUnionHasExactlyOneKeyThatIsACaseName) {
    EXPECT_EQ(decode<Choice>(R"({"left":{}})").value().name, "left");
    EXPECT_EQ(decode<Choice>(R"({"right":{}})").value().name, "right");
    EXPECT_EQ(decode<Choice>(R"({"up":1,"right":{},"down":2})").value().name, "right");
    EXPECT_EQ(decode<Choice>(R"({"left":1,"left":2})").value().name, "left");
    const DecodingError invalid{"", "Invalid number of keys found, expected one.", std::nullopt};
    EXPECT_EQ(errorOf<Choice>("{}"), invalid);
    EXPECT_EQ(errorOf<Choice>(R"({"up":{}})"), invalid);
    EXPECT_EQ(errorOf<Choice>(R"({"Left":{}})"), invalid);
    EXPECT_EQ(errorOf<Choice>(R"({"left":{},"right":{}})"), invalid);
    EXPECT_EQ(errorOf<std::vector<Choice>>(R"([{"left":{}},{}])").codingPath, "[1]");
}

TEST(Decoder, aMalformedTextIsReportedWithItsPosition) {
    EXPECT_EQ(errorOf<Everything>("{\n  nope\n}"),
              (DecodingError{"",
                             "syntax error while parsing object key - invalid literal; expected "
                             "string literal",
                             Position{2, 4}}));
}

TEST(Decoder, limitsApplyToTheWholeText) {
    EXPECT_TRUE(decode<Integer>("12", {.bytes = 2}).has_value());
    EXPECT_FALSE(decode<Integer>("123", {.bytes = 2}).has_value());
    EXPECT_FALSE(decode<Nest>("[[]]", {.bytes = 10, .depth = 1}).has_value());
}

TEST(Decoder, theDeepestTextIsDecoded) {
    EXPECT_TRUE(decode<Nest>(tests::repeat("[", 512) + tests::repeat("]", 512)).has_value());
    EXPECT_EQ(errorOf<Nest>(tests::repeat("[", 512) + "1" + tests::repeat("]", 512)),
              (DecodingError{tests::repeat("[0]", 512), "Expected an array but found a number.",
                             std::nullopt}));
}

TEST(Decoder, aVeryLongKeyIsShortenedInThePath) {
    const auto pathOf = [](const std::string& key) {
        return errorOf<Census>("{\"" + key + "\":true}").codingPath;
    };
    EXPECT_EQ(pathOf(tests::repeat("k", 64)), tests::repeat("k", 64));
    EXPECT_EQ(pathOf(tests::repeat("k", 65)), tests::repeat("k", 64) + "...");
    EXPECT_EQ(pathOf(tests::repeat("k", 1000000)), tests::repeat("k", 64) + "...");
    // Never in the middle of a character.
    EXPECT_EQ(pathOf(tests::repeat("k", 63) + "\xE2\x82\xAC"), tests::repeat("k", 63) + "...");
    EXPECT_EQ(pathOf(tests::repeat("k", 62) + "\xF0\x9F\x8C\x80"), tests::repeat("k", 62) + "...");
    EXPECT_EQ(pathOf(tests::repeat("k", 61) + "\xE2\x82\xAC" + "k"),
              tests::repeat("k", 61) + "\xE2\x82\xAC...");
}

}  // namespace airflow::json
