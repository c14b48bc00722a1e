#include <gmock/gmock.h>
#include <signal.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

#include "ToolRun.h"
#include "daemon/BuildIdentity.h"
#include "simulation/runtime/SimulatedRuntime.h"
#include "simulation/verification/SoakResult.h"
#include "tool/simulation/SoakCommand.h"

namespace airflow::tool {
namespace {

using simulation::Property;
using simulation::SeedRange;
using simulation::SeedViolation;
using simulation::SoakResult;
using simulation::Verdict;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

SoakResult resultIn(const std::string& text) {
    auto result = json::decode<SoakResult>(text);
    EXPECT_TRUE(result) << result.error().describe("output") << '\n' << text;
    return result.value_or(SoakResult{});
}

class SoakCommand : public testing::Test {
protected:
    /// Runs with a judge of the test's.
    ToolRun judged(SoakOptions options, simulation::Judge judge) {
        options.failures = folder.path;
        options.judge = std::move(judge);
        std::ostringstream out;
        std::ostringstream err;
        const int status = soak(options, out, err);
        return {.status = status, .out = out.str(), .err = err.str()};
    }
    /// A result that some other soak gave.
    [[nodiscard]] std::string file(const std::string& name, std::int64_t first, std::int64_t last,
                                   std::vector<SeedViolation> violations = {}) const {
        SoakResult result{.build = std::string(daemon::BuildIdentity::text),
                          .asked = {{.first = first, .last = last}},
                          .done = {{.first = first, .last = last}},
                          .simulated = std::chrono::hours(1),
                          .violations = std::move(violations)};
        result.counts.fill(2);
        return folder.write(name, json::encode(result).value());
    }

    ScratchFolder folder;
};

SoakOptions jsonOf(std::int64_t first, std::int64_t last) {
    return {.seeds = {.first = first, .last = last},
            .minutes = {},
            .report = {.format = SoakFormat::json}};
}

TEST_F(SoakCommand, tellsARangesResultAsOneDocument) {
    const auto run = runTool({"soak", "--seeds", "5..14", "--format", "json"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    const SoakResult result = resultIn(run.out);
    EXPECT_EQ(result.build, daemon::BuildIdentity::text);
    EXPECT_THAT(result.asked, ElementsAre(SeedRange{.first = 5, .last = 14}));
    EXPECT_EQ(result.done, result.asked);
    EXPECT_GE(result.simulated, std::chrono::minutes(30));
    EXPECT_THAT(result.violations, IsEmpty());
}

TEST_F(SoakCommand, tellsTheSameHoweverManyThreadsThereAre) {
    const std::vector<std::string> one{"soak", "--seeds", "1..40", "--format", "json"};
    std::vector<std::string> four = one;
    four.insert(four.end(), {"--jobs", "4"});
    EXPECT_EQ(runTool(one).out, runTool(four).out);
}

TEST_F(SoakCommand, partsOfARangeAddUpToTheWhole) {
    const auto whole = runTool({"soak", "--seeds", "1..30", "--format", "json"});
    const auto first = runTool({"soak", "--seeds", "1..13", "--format", "json"});
    const auto second = runTool({"soak", "--seeds", "14..30", "--format", "json"});
    const auto sum =
        runTool({"soak", "--format", "json", "--merge", folder.write("b.json", second.out),
                 folder.write("a.json", first.out)});
    EXPECT_EQ(sum.status, 0);
    EXPECT_EQ(sum.err, "");
    EXPECT_EQ(sum.out, whole.out);
}

TEST_F(SoakCommand, namesTheSeedsThatViolateAndFails) {
    const auto run = judged(jsonOf(1, 30), [](const auto&, std::uint64_t seed) -> Verdict {
        if (seed == 9) throw simulation::Stuck("nothing goes on");
        if (seed != 20) return {};
        return {.violation = simulation::Violation{
                    .property = Property::stateIsTrue, .time = {}, .what = "a lie"}};
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(
        resultIn(run.out).violations,
        ElementsAre(SeedViolation{.seed = 9, .property = "stuck", .message = "nothing goes on"},
                    SeedViolation{.seed = 20, .property = "stateIsTrue", .message = "a lie"}));
    EXPECT_THAT(run.err, HasSubstr("seed 9: nothing goes on\n"));
    EXPECT_THAT(run.err, HasSubstr("seed 20: stateIsTrue: a lie\n"));
    EXPECT_TRUE(std::filesystem::exists(folder.path / "soak-stateIsTrue-20.json"));
}

TEST_F(SoakCommand, endsWithTheTenthViolationAndTellsHowFarItCame) {
    const auto run = judged(jsonOf(1, 30), [](const auto&, std::uint64_t seed) -> Verdict {
        throw simulation::Stuck("at " + std::to_string(seed));
    });
    EXPECT_EQ(run.status, 1);
    const SoakResult result = resultIn(run.out);
    EXPECT_EQ(result.violations.size(), 10U);
    EXPECT_THAT(result.done, ElementsAre(SeedRange{.first = 1, .last = 10}));
    EXPECT_THAT(result.asked, ElementsAre(SeedRange{.first = 1, .last = 30}));
}

TEST_F(SoakCommand, thatIsInterruptedTellsTheResultUpToThere) {
    for (const int number : {SIGINT, SIGTERM}) {
        const auto run =
            judged(jsonOf(1, 30), [number](const auto&, std::uint64_t seed) -> Verdict {
                if (seed == 7) raise(number);
                return {};
            });
        EXPECT_EQ(run.status, 128 + number);
        const SoakResult result = resultIn(run.out);
        EXPECT_THAT(result.asked, ElementsAre(SeedRange{.first = 1, .last = 30}));
        EXPECT_THAT(result.done, ElementsAre(SeedRange{.first = 1, .last = 7}));
    }
    struct sigaction after{};
    sigaction(SIGINT, nullptr, &after);
    EXPECT_EQ(after.sa_handler, SIG_DFL);
}

TEST_F(SoakCommand, thatIsInterruptedAfterAViolationFailsAsOneWithAViolation) {
    const auto run = judged(jsonOf(1, 30), [](const auto&, std::uint64_t seed) -> Verdict {
        if (seed == 3) throw simulation::Stuck("nothing goes on");
        if (seed == 7) raise(SIGINT);
        return {};
    });
    EXPECT_EQ(run.status, 1);
}

TEST_F(SoakCommand, whoseInterruptionIsIgnoredGoesOn) {
    const auto before = signal(SIGINT, SIG_IGN);
    const auto run = judged(jsonOf(1, 10), [](const auto&, std::uint64_t seed) -> Verdict {
        if (seed == 7) raise(SIGINT);
        return {};
    });
    EXPECT_EQ(signal(SIGINT, before), SIG_IGN);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(resultIn(run.out).done, resultIn(run.out).asked);
}

TEST_F(SoakCommand, withoutTimeForASingleRunTellsThatNothingIsDone) {
    SoakOptions options = jsonOf(1, 30);
    options.minutes = 1e-12;
    const auto run = judged(options, [](const auto&, std::uint64_t) { return Verdict{}; });
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(resultIn(run.out).done, IsEmpty());
}

TEST_F(SoakCommand, failsWhenASituationIsRequiredThatNeverCameUp) {
    const auto run = runTool({"soak", "--seeds", "1", "--format", "json", "--everything"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "something that has to happen in a soak never did\n");
    EXPECT_THAT(resultIn(run.out).done, ElementsAre(SeedRange{.first = 1, .last = 1}));
}

TEST_F(SoakCommand, tellsPeopleTheSum) {
    const auto run =
        runTool({"soak", "--merge", file("a.json", 1, 10), file("b.json", 11, 30), "--everything"});
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out, StartsWith("30 seeds, 2.0 simulated hours, 0 violations\n"
                                    "         4 × a fan refused ten times"));
}

TEST_F(SoakCommand, failsWhenAnyOfTheResultsHasAViolation) {
    const auto run =
        runTool({"soak", "--merge", file("a.json", 1, 10),
                 file("b.json", 11, 30,
                      {{.seed = 12, .property = "stateIsTrue", .message = "a \x1b[31m lie"}})});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "30 seeds, 2.0 simulated hours, 1 violation\n");
    EXPECT_EQ(run.err, "seed 12: stateIsTrue: a \uFFFD[31m lie\n");
}

TEST_F(SoakCommand, refusesToCountASeedTwice) {
    const std::string a = file("a.json", 1, 10);
    const std::string b = file("b.json", 11, 30);
    const std::string c = file("c.json", 30, 40);
    const auto run = runTool({"soak", "--merge", a, b, c});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, c + ": done[0]: 30..40 overlaps 11..30 of " + b + ".\n");
    EXPECT_EQ(runTool({"soak", "--merge", a, a}).status, 1);
}

TEST_F(SoakCommand, addsUpTheRestOfARangeThatWasInterrupted) {
    const auto part = [this](const std::string& name, SeedRange asked, SeedRange done) {
        const SoakResult result{
            .build = std::string(daemon::BuildIdentity::text), .asked = {asked}, .done = {done}};
        return folder.write(name, json::encode(result).value());
    };
    const auto run = runTool({"soak", "--format", "json", "--merge",
                              part("a", {.first = 1, .last = 100}, {.first = 1, .last = 40}),
                              part("b", {.first = 41, .last = 100}, {.first = 41, .last = 100})});
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(resultIn(run.out).done, ElementsAre(SeedRange{.first = 1, .last = 100}));
    EXPECT_EQ(resultIn(run.out).asked, resultIn(run.out).done);
}

TEST_F(SoakCommand, refusesResultsOfDifferentBuilds) {
    const SoakResult other{.build = "9.9.9+9", .asked = {{.first = 20, .last = 20}}, .done = {}};
    const std::string a = file("a.json", 1, 10);
    const std::string b = folder.write("b.json", json::encode(other).value());
    const auto run = runTool({"soak", "--merge", a, b});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, b + ": build: 9.9.9+9 made " + b + ", and " +
                           std::string(daemon::BuildIdentity::text) + " made " + a + ".\n");
}

TEST_F(SoakCommand, namesTheFileAndThePlaceOfGarbage) {
    const std::string good = file("good.json", 1, 10);
    const auto errorOf = [&](const std::string& content) {
        const auto run = runTool({"soak", "--merge", good, folder.write("bad.json", content)});
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.out, "");
        const std::string prefix = (folder.path / "bad.json").string();
        EXPECT_THAT(run.err, StartsWith(prefix));
        return run.err.substr(std::min(prefix.size(), run.err.size()));
    };
    EXPECT_EQ(errorOf(R"({"format":"airflow soak","version":3})"),
              ": version: Expected version 2.\n");
    EXPECT_THAT(errorOf(""), StartsWith(":1:1: "));
    EXPECT_THAT(errorOf("10 seeds, 0 violations\n"), StartsWith(":1:"));
    EXPECT_THAT(errorOf(std::string(1000, '[')), StartsWith(":1:17: "));
    EXPECT_THAT(errorOf("[]"), StartsWith(": "));
    EXPECT_THAT(errorOf(std::string("\0\xff", 2)), StartsWith(":1:1: "));
    std::ifstream whole(good);
    const std::string text{std::istreambuf_iterator<char>(whole), {}};
    EXPECT_THAT(errorOf(text.substr(0, text.size() / 2)), StartsWith(":1:"));
    EXPECT_THAT(errorOf(text + text), StartsWith(":1:"));
}

TEST_F(SoakCommand, saysWhyAFileCannotBeRead) {
    const std::string missing = (folder.path / "missing.json").string();
    const auto run = runTool({"soak", "--merge", missing});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, missing + ": cannot be read: No such file or directory\n");
}

TEST_F(SoakCommand, acceptsOneWayOnlyToChooseItsSeeds) {
    for (const char* seeds : {"", "x", "-5", "1..", "..5", "5..1", "1..2..3", "1 ..2", "0x5",
                              "9223372036854775808", "1..18446744073709551616"}) {
        EXPECT_EQ(runTool({"soak", "--seeds", seeds}).status, 2) << seeds;
    }
    EXPECT_EQ(runTool({"soak", "--seeds", "9223372036854775807"}).status, 0);
}

TEST_F(SoakCommand, eitherRunsOrAddsUp) {
    const std::string a = file("a.json", 1, 10);
    EXPECT_EQ(runTool({"soak", "--merge", a, "--seeds", "1"}).status, 2);
    EXPECT_EQ(runTool({"soak", "--merge", a, "--hashes"}).status, 2);
    EXPECT_EQ(runTool({"soak", "--merge"}).status, 2);
    EXPECT_EQ(runTool({"soak", "--seeds", "1", "--hashes", "--format", "json"}).status, 2);
    EXPECT_EQ(runTool({"soak", "--format", "jsonl"}).status, 2);
}

}  // namespace
}  // namespace airflow::tool
