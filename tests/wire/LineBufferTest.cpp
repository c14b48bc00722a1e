#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include <string>
#include <vector>

#include "wire/LineBuffer.h"

namespace airflow::wire {
namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> linesOf(LineBuffer& buffer) {
    std::vector<std::string> lines;
    while (const auto line = buffer.next()) lines.emplace_back(*line);
    return lines;
}

TEST(LineBuffer, isEmptyAtFirst) {
    LineBuffer buffer(8);
    EXPECT_THAT(linesOf(buffer), IsEmpty());
    EXPECT_FALSE(buffer.hasRest());
    EXPECT_FALSE(buffer.isTooLong());
}

TEST(LineBuffer, aLineMayComeInPieces) {
    LineBuffer buffer(8);
    buffer.append("ab");
    EXPECT_THAT(linesOf(buffer), IsEmpty());
    EXPECT_TRUE(buffer.hasRest());
    buffer.append("cd");
    EXPECT_THAT(linesOf(buffer), IsEmpty());
    buffer.append("\n");
    EXPECT_THAT(linesOf(buffer), ElementsAre("abcd"));
    EXPECT_FALSE(buffer.hasRest());
}

TEST(LineBuffer, manyLinesMayComeAtOnce) {
    LineBuffer buffer(8);
    buffer.append("ab\n\ncd\ne");
    EXPECT_THAT(linesOf(buffer), ElementsAre("ab", "", "cd"));
    EXPECT_TRUE(buffer.hasRest());
    buffer.append("f\n");
    EXPECT_THAT(linesOf(buffer), ElementsAre("ef"));
}

TEST(LineBuffer, carriageReturnsAndNulBytesBelongToTheLine) {
    LineBuffer buffer(8);
    buffer.append("ab\r\nc\0d\n"s);
    EXPECT_THAT(linesOf(buffer), ElementsAre("ab\r", "c\0d"s));
}

TEST(LineBuffer, aLineAsLongAsTheLimitIsALine) {
    LineBuffer buffer(4);
    buffer.append("abcd");
    EXPECT_THAT(linesOf(buffer), IsEmpty());
    EXPECT_FALSE(buffer.isTooLong());
    buffer.append("\n");
    EXPECT_THAT(linesOf(buffer), ElementsAre("abcd"));
    EXPECT_FALSE(buffer.isTooLong());
}

TEST(LineBuffer, aLineOneByteLongerIsTooLongBeforeItsEndIsSeen) {
    LineBuffer buffer(4);
    buffer.append("a\nabcde");
    EXPECT_THAT(linesOf(buffer), ElementsAre("a"));
    EXPECT_TRUE(buffer.isTooLong());
}

TEST(LineBuffer, aLineOneByteLongerIsTooLongWithItsEndToo) {
    LineBuffer buffer(4);
    buffer.append("abcde\nab\n");
    EXPECT_THAT(linesOf(buffer), IsEmpty());
    EXPECT_TRUE(buffer.isTooLong());
}

RC_GTEST_PROP(LineBuffer, piecesMakeNoDifference, (std::vector<std::string> pieces)) {
    constexpr std::size_t limit = 6;
    std::string whole;
    LineBuffer buffer(limit);
    std::vector<std::string> found;
    for (std::string& piece : pieces) {
        for (char& byte : piece) {
            if (byte % 4 == 0) byte = '\n';
        }
        whole += piece;
        buffer.append(piece);
        for (const std::string& line : linesOf(buffer)) found.push_back(line);
    }
    std::vector<std::string> expected;
    bool isTooLong = false;
    std::string line;
    for (const char byte : whole) {
        if (byte != '\n') {
            line += byte;
            isTooLong = line.size() > limit;
            if (isTooLong) break;
        } else {
            expected.push_back(line);
            line.clear();
        }
    }
    RC_ASSERT(found == expected);
    RC_ASSERT(buffer.isTooLong() == isTooLong);
    RC_ASSERT(isTooLong || buffer.hasRest() == !line.empty());
}

}  // namespace
}  // namespace airflow::wire
