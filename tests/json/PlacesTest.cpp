#include <gtest/gtest.h>

#include <string_view>

#include "json/Places.h"

namespace airflow::json {
namespace {

struct Located {
    explicit Located(std::string_view json) : text(json) {}

    std::string_view text;
    Document document;
    Places places{parsed(), text};

private:
    const Document& parsed() {
        EXPECT_TRUE(document.parse(text).has_value()) << text;
        return document;
    }
};

Position valueAt(std::string_view json, std::string_view pointer) {
    Located located(json);
    const auto node = located.places.find(pointer);
    return node ? located.places.ofValue(*node) : Position{0, 0};
}

Position keyAt(std::string_view json, std::string_view pointer) {
    Located located(json);
    const auto node = located.places.find(pointer);
    return node ? located.places.ofKey(*node) : Position{0, 0};
}

constexpr Position nowhere{0, 0};

TEST(Places, theEmptyPointerNamesTheRoot) {
    EXPECT_EQ(valueAt(" \n  7", ""), (Position{2, 3}));
    EXPECT_EQ(keyAt(" \n  7", ""), (Position{2, 3}));
}

TEST(Places, aMemberHasThePlacesOfItsKeyAndOfItsValue) {
    constexpr std::string_view json = "{\"a\": 1,\n \"b\"\t:\n  [true]}";
    EXPECT_EQ(keyAt(json, "/a"), (Position{1, 2}));
    EXPECT_EQ(valueAt(json, "/a"), (Position{1, 7}));
    EXPECT_EQ(keyAt(json, "/b"), (Position{2, 2}));
    EXPECT_EQ(valueAt(json, "/b"), (Position{3, 3}));
}

TEST(Places, anElementIsNamedByItsIndex) {
    constexpr std::string_view json = R"([{"x":[1,-2]},"s",null,[[]],3e2])";
    EXPECT_EQ(valueAt(json, "/0/x/1"), (Position{1, 10}));
    EXPECT_EQ(keyAt(json, "/0/x/1"), (Position{1, 10}));
    EXPECT_EQ(valueAt(json, "/1"), (Position{1, 15}));
    EXPECT_EQ(valueAt(json, "/2"), (Position{1, 19}));
    EXPECT_EQ(valueAt(json, "/3/0"), (Position{1, 25}));
    EXPECT_EQ(valueAt(json, "/4"), (Position{1, 29}));
}

TEST(Places, quotesColonsAndBackslashesInsideStringsDoNotCount) {
    constexpr std::string_view json = R"({"a\":[":"\\","b":"x\\\":{", "c":":"})";
    EXPECT_EQ(valueAt(json, "/a\":["), (Position{1, 10}));
    EXPECT_EQ(valueAt(json, "/b"), (Position{1, 19}));
    EXPECT_EQ(keyAt(json, "/c"), (Position{1, 30}));
    EXPECT_EQ(valueAt(json, "/c"), (Position{1, 34}));
}

TEST(Places, ofMembersWithOneKeyTheLastIsNamed) {
    EXPECT_EQ(valueAt(R"({"a":1,"a":2})", "/a"), (Position{1, 12}));
}

TEST(Places, slashesAndTildesOfKeysAreEscapedInPointers) {
    EXPECT_EQ(pointerTo("/x", "a/b~c"), "/x/a~1b~0c");
    EXPECT_EQ(pointerTo("", "~1"), "/~01");
    EXPECT_EQ(pointerTo("/x", 12), "/x/12");
    constexpr std::string_view json = R"({"a/b~c":{"~1":1,"":2}})";
    EXPECT_EQ(valueAt(json, pointerTo(pointerTo("", "a/b~c"), "~1")), (Position{1, 16}));
    EXPECT_EQ(valueAt(json, pointerTo(pointerTo("", "a/b~c"), "")), (Position{1, 21}));
}

TEST(Places, aPointerToNothingFindsNothing) {
    for (const char* const pointer : {"a", "/c", "/a/2", "/a/", "/a/-1", "/a/x", "/a/0x", "/a/0/0",
                                      "/b/x", "//", "/a/99999999999999999999"}) {
        EXPECT_EQ(valueAt(R"({"a":[1,2],"b":null})", pointer), nowhere) << pointer;
    }
}

TEST(Places, linesEndInLineFeedsAlone) {
    EXPECT_EQ(valueAt("[\r\n\"ä\", 2\r\n]", "/1"), (Position{2, 7}));
}

}  // namespace
}  // namespace airflow::json
