#include <gmock/gmock.h>

#include <string>

#include "simulation/verification/SoakResult.h"

namespace airflow::simulation {
namespace {

using namespace std::chrono_literals;

SoakResult sample() {
    SoakResult result{.build = "1.0.3+6",
                      .asked = {{.first = 1, .last = 1000}},
                      .done = {{.first = 1, .last = 400}},
                      .simulated = 72'000'500ms,
                      .violations = {{.seed = 17, .property = "stateIsTrue", .message = "lie"},
                                     {.seed = 23, .property = "stuck", .message = "a\nb"}}};
    result.counts[0] = 3;
    result.counts.back() = 1'000'000;
    return result;
}

std::string replaced(const std::string& from, const std::string& to) {
    std::string text = json::encode(sample()).value();
    const auto at = text.find(from);
    if (at == std::string::npos) return "there is no " + from;
    return text.replace(at, from.size(), to);
}

std::string errorOf(const std::string& text) {
    const auto result = json::decode<SoakResult>(text);
    return result ? "no error" : result.error().describe("file");
}

TEST(SoakResult, isWrittenAndReadAgain) {
    const auto text = json::encode(sample());
    ASSERT_TRUE(text);
    EXPECT_TRUE(text->starts_with(
        R"({"format":"airflow soak","version":2,"build":"1.0.3+6","asked":[{"first":1,"last":1000}],)"
        R"("done":[{"first":1,"last":400}],"simulatedSeconds":72000.5,)"
        R"("violations":[{"seed":17,"property":"stateIsTrue","message":"lie"},)"))
        << *text;
    const auto again = json::decode<SoakResult>(*text);
    ASSERT_TRUE(again) << again.error().describe("file");
    EXPECT_EQ(*again, sample());
}

TEST(SoakResult, ofNothingIsWrittenAndReadAgain) {
    const SoakResult nothing{.build = "x", .asked = {{.first = 0, .last = SoakResult::lastSeed}}};
    EXPECT_EQ(json::decode<SoakResult>(json::encode(nothing).value()).value(), nothing);
    EXPECT_EQ(nothing.seeds(), 0U);
}

TEST(SoakResult, addsUpInAnyOrder) {
    SoakResult other{.build = "1.0.3+6",
                     .asked = {{.first = 401, .last = 1000}, {.first = 2001, .last = 3000}},
                     .done = {{.first = 401, .last = 1000}, {.first = 2001, .last = 2001}},
                     .simulated = 500ms,
                     .violations = {{.seed = 401, .property = "stateIsTrue", .message = "late"}}};
    other.counts[0] = 4;
    SoakResult sum = sample();
    sum.add(other);
    SoakResult reversed = other;
    reversed.add(sample());
    EXPECT_EQ(sum, reversed);
    EXPECT_EQ(sum.asked,
              (std::vector<SeedRange>{{.first = 1, .last = 1000}, {.first = 2001, .last = 3000}}));
    EXPECT_EQ(sum.done,
              (std::vector<SeedRange>{{.first = 1, .last = 1000}, {.first = 2001, .last = 2001}}));
    EXPECT_EQ(sum.seeds(), 1001U);
    EXPECT_EQ(sum.simulated, 72'001s);
    EXPECT_EQ(sum.violations.size(), 3U);
    EXPECT_EQ(sum.violations[2].seed, 401);
    EXPECT_EQ(sum.counts[0], 7U);
    EXPECT_EQ(json::decode<SoakResult>(json::encode(sum).value()).value(), sum);
}

TEST(SoakResult, ofAllSeedsIsCountedWithoutOverflow) {
    const SoakResult all{.done = {{.first = 0, .last = SoakResult::lastSeed}}};
    EXPECT_EQ(all.seeds(), std::uint64_t{1} << 63U);
}

TEST(SoakResult, ofAnotherFormatOrVersionIsRefusedBeforeAnythingElse) {
    EXPECT_EQ(errorOf(R"({"format":"airflow soak","version":3,"new":[]})"),
              "file: version: Expected version 2.");
    EXPECT_EQ(errorOf(R"({"format":"trace","version":1})"),
              "file: format: Expected \"airflow soak\".");
    EXPECT_EQ(errorOf(R"({"machine":"laptop"})"), "file: The required key \"format\" is missing.");
}

TEST(SoakResult, thatIsGarbageIsRefusedAtItsPlace) {
    EXPECT_EQ(errorOf(replaced(R"("first":1,"last":400)", R"("first":9,"last":8)")),
              "file: done[0]: The first seed comes before the last.");
    EXPECT_EQ(errorOf(replaced(R"("first":1,"last":400)", R"("first":-1,"last":8)")),
              "file: done[0]: A seed is 0 or more.");
    EXPECT_EQ(errorOf(replaced(R"("first":1,"last":400)", R"("first":1,"last":1001)")),
              "file: done: Nobody asked for the seeds 1..1001.");
    EXPECT_EQ(errorOf(replaced(R"([{"first":1,"last":400}])",
                               R"([{"first":1,"last":5},{"first":5,"last":9}])")),
              "file: done[1]: Ranges are listed in ascending order and do not overlap.");
    EXPECT_EQ(errorOf(replaced(R"("simulatedSeconds":72000.5)", R"("simulatedSeconds":-1)")),
              "file: simulatedSeconds: Expected seconds from 0 to 1000000000000.");
    EXPECT_EQ(errorOf(replaced("stateIsTrue", "stateIsFalse")),
              "file: violations[0].property: There is no property of this name.");
    EXPECT_EQ(errorOf(replaced(R"("seed":17)", R"("seed":401)")),
              "file: violations[0]: Its seed is none of those done.");
    EXPECT_EQ(errorOf(replaced(R"("seed":17)", R"("seed":24)")),
              "file: violations[1]: Violations are listed in ascending order of their seeds.");
    EXPECT_EQ(errorOf(replaced(R"("build":)", R"("built":)")), "file: built: Unknown key.");
    EXPECT_EQ(errorOf(replaced("airflow soak", "")), "file: format: Expected \"airflow soak\".");
}

TEST(SoakResult, countsExactlyTheSituationsThatThereAre) {
    const std::string first(sometimes.front());
    EXPECT_EQ(errorOf(replaced(first, "it rained")),
              "file: sometimes.it rained: This situation is not counted.");
    EXPECT_EQ(errorOf(replaced('"' + first + "\":3,", "")),
              "file: sometimes: The required key \"" + first + "\" is missing.");
    EXPECT_EQ(errorOf(replaced(first + "\":3", first + "\":-3")),
              "file: sometimes." + first + ": Expected a whole number from 0 to 1000000000000.");
}

}  // namespace
}  // namespace airflow::simulation
