// What airflow check finds, and that each finding is explained and has an example.
#include <gmock/gmock.h>

#include <map>
#include <set>

#include "ToolRun.h"
#include "json/Decoder.h"
#include "review/Finding.h"

namespace airflow::tool {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* speedPlan =
    R"({"fans":[{"fanID":0,"mode":{"fixedRPM":{"_0":2400}}}],"rules":[],"tuning":)"
    R"({"emaAlpha":0.3,"hysteresisCelsius":2,"maxDeltaRPMPerTick":400,"minDwellSeconds":3}})";
constexpr const char* planWithWarning =
    R"({"fans":[{"fanID":0,"mode":{"fixedPercent":{"_0":0}}}],"rules":[],"tuning":)"
    R"({"emaAlpha":0.3,"hysteresisCelsius":2,"maxDeltaRPMPerTick":400,"minDwellSeconds":3}})";
constexpr const char* planWithNote =
    R"({"fans":[{"fanID":0,"mode":{"fixedRPM":{"_0":2400}}}],"rules":[],"tuning":)"
    R"({"emaAlpha":0.3,"hysteresisCelsius":9,"maxDeltaRPMPerTick":400,"minDwellSeconds":3}})";

/// What --format json writes, as far as these tests look at it.
struct FoundThing {
    std::string severity;
    std::string identifier;

    static FoundThing decode(const json::Decoder& decoder) {
        return {.severity = decoder.required<std::string>("severity"),
                .identifier = decoder.required<std::string>("identifier")};
    }
};
struct CheckedFile {
    std::string file;
    std::vector<FoundThing> findings;

    static CheckedFile decode(const json::Decoder& decoder) {
        return {.file = decoder.required<std::string>("file"),
                .findings = decoder.required<std::vector<FoundThing>>("findings")};
    }
};
struct Checked {
    std::vector<CheckedFile> files;
    std::vector<std::int64_t> counts;

    static Checked decode(const json::Decoder& decoder) {
        return {.files = decoder.required<std::vector<CheckedFile>>("files"),
                .counts = {decoder.required<std::int64_t>("errors"),
                           decoder.required<std::int64_t>("warnings"),
                           decoder.required<std::int64_t>("notes")}};
    }
};

std::vector<std::string> identifiersIn(const std::string& path) {
    const auto run = runTool({"check", "--format", "json", "--machine", "laptop", path});
    std::vector<std::string> identifiers;
    const auto checked = json::decode<Checked>(run.out);
    if (!checked) return {run.out + run.err};
    for (const FoundThing& found : checked->files.at(0).findings) {
        identifiers.push_back(found.identifier);
    }
    return identifiers;
}

TEST(CheckFindings, everyExampleShowsTheFindingOfItsNameAndNoOther) {
    for (const auto& entry : std::filesystem::directory_iterator(example("plans/warnings"))) {
        EXPECT_THAT(identifiersIn(entry.path().string()), ElementsAre(entry.path().stem().string()))
            << entry.path();
    }
}

TEST(CheckFindings, everyFindingHasAnExampleUnlessItIsOfNoFile) {
    for (const auto& subject : review::subjects()) {
        const auto path = example("plans/warnings/" + std::string(subject.identifier) + ".json");
        EXPECT_EQ(std::filesystem::exists(path), subject.subject != review::Subject::unreadableFile)
            << path;
    }
}

TEST(CheckFindings, everyFindingHasASectionInTheDocumentationAndNoOtherHas) {
    const std::string page = contentOf(std::string(AIRFLOW_DOCS) + "/plan-warnings.md");
    std::set<std::string> sections;
    std::istringstream lines(page);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("### ")) sections.insert(line.substr(4));
    }
    std::set<std::string> identifiers;
    for (const auto& subject : review::subjects()) identifiers.emplace(subject.identifier);
    EXPECT_EQ(sections, identifiers);
}

TEST(CheckFindings, thePlansOfTheExamplesHaveNoWarningsForTheirMachines) {
    const std::map<std::string, std::string> machines{{"quiet", "laptop"},
                                                      {"cool", "laptop"},
                                                      {"balanced", "no-hid"},
                                                      {"curve-and-rules", "no-hid"}};
    for (const auto& [name, machine] : machines) {
        const auto path = example("plans/" + name + ".json");
        const auto run = runTool({"check", "--strict", "--machine", machine, path});
        EXPECT_EQ(run.status, 0) << run.out;
        EXPECT_THAT(run.out, testing::Not(HasSubstr("warning:")));
        EXPECT_EQ(
            runTool({"check", "--strict", "--trace", example("traces/build-burst.jsonl"), path})
                .status,
            0)
            << name;
    }
}

TEST(CheckFindings, aWarningFailsAStrictCheckOnly) {
    const ScratchFolder folder;
    const auto path = folder.write("plan.json", planWithWarning);
    EXPECT_EQ(runTool({"check", path}).status, 0);
    EXPECT_EQ(runTool({"check", "--strict", path}).status, 1);
    EXPECT_EQ(runTool({"check", "--strict", "--format", "json", path}).status, 1);
}

TEST(CheckFindings, aNoteFailsNoCheck) {
    const ScratchFolder folder;
    const auto run = runTool({"check", "--strict", folder.write("plan.json", planWithNote)});
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out, HasSubstr(": note: "));
}

TEST(CheckFindings, anErrorInAnyFileFailsTheCheck) {
    const ScratchFolder folder;
    const auto good = folder.write("good.json", speedPlan);
    const auto bad = folder.write("bad.json", "{}");
    EXPECT_EQ(runTool({"check", "--format", "json", bad, good}).status, 1);
    EXPECT_EQ(runTool({"check", "--format", "json", good, bad}).status, 1);
    EXPECT_EQ(runTool({"check", "--format", "json", good, good}).status, 0);
}

TEST(CheckFindings, ofAllFilesAreOneObjectInJSON) {
    const ScratchFolder folder;
    const auto good = folder.write("good.json", speedPlan);
    const auto warned = folder.write("warned.json", planWithWarning);
    const auto noted = folder.write("noted.json", planWithNote);
    const auto run =
        runTool({"check", "--format", "json", good, "/no/such/plan.json", warned, noted});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(
        run.out,
        R"({"files":[{"file":")" + good +
            R"(","findings":[]},{"file":"/no/such/plan.json","findings":[{"severity":"error",)"
            R"("identifier":"unreadable-file","pointer":"","reason":"It cannot be read: No such )"
            R"(file or directory.","advice":"Name a file that you may read."}]},{"file":")" +
            warned +
            R"(","findings":[{"severity":"warning","identifier":"fixed-zero",)"
            R"("pointer":"/fans/0/mode/fixedPercent/_0","line":1,"column":50,"reason":"0 % stops )"
            R"(the fan after 10 s, and only a rule starts it again before all fans are given back )"
            R"(at the ceiling.","advice":"Write a percentage above 0, or a curve that rises with )"
            R"(the temperature."}]},{"file":")" +
            noted +
            R"(","findings":[{"severity":"note","identifier":"unread-value",)"
            R"("pointer":"/tuning/hysteresisCelsius","line":1,"column":111,"reason":"Nothing )"
            R"(reads hysteresisCelsius: the daemon only keeps it.","advice":"Write the standard )"
            R"(value, 2; the key itself is required."}]}],"errors":1,"warnings":1,"notes":1})"
            "\n");
}

TEST(CheckFindings, standardInputIsCalledSo) {
    const auto run = runTool({"check", "-"}, planWithWarning);
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out, AllOf(StartsWith("standard input:1:50: warning: "),
                               HasSubstr("standard input: 1 fan, 0 rules\n")));
    EXPECT_EQ(runTool({"check", "-"}, "").status, 1);
    EXPECT_EQ(runTool({"check", "-"}, std::string(1024 * 1024 + 1, ' ')).status, 1);
}

TEST(CheckFindings, aNamedMachineShowsWhatItLacks) {
    const auto path = example("plans/balanced.json");
    EXPECT_THAT(runTool({"check", "--machine", "laptop", path}).out,
                HasSubstr("There is no sensor \"SMC-TG0D\" on the machine laptop: the fan goes "
                          "back to the firmware. [sensor-not-on-machine]"));
    EXPECT_THAT(runTool({"check", "--machine", "fanless", path}).out,
                HasSubstr("There is no fan 1 on the machine fanless."));
    EXPECT_THAT(runTool({"check", path}).out, testing::Not(HasSubstr("on-machine")));
}

TEST(CheckFindings, aTraceShowsWhatItsMachineLacks) {
    const ScratchFolder folder;
    const auto trace = folder.write(
        "trace.jsonl", R"({"time":0,"fans":[{"id":0,"minRPM":2500,"maxRPM":2600}],"temps":[]})"
                       "\n"
                       R"({"time":1,"fans":[{"id":0,"minRPM":2450,"maxRPM":2550}],"temps":[]})"
                       "\n");
    const auto plan = folder.write("plan.json", speedPlan);
    EXPECT_THAT(runTool({"check", "--trace", trace, plan}).out,
                HasSubstr("2400 RPM is outside the fan's range on the machine of the trace, 2450 "
                          "to 2600 RPM, and counts as 2450 RPM."));
}

TEST(CheckFindings, aSensorThatATraceHasForAWhileIsThere) {
    const auto run =
        runTool({"check", "--strict", "--trace", example("traces/vanishing-sensor.jsonl"),
                 example("plans/balanced.json")});
    EXPECT_EQ(run.status, 0) << run.out;
}

TEST(CheckFindings, aBadTraceFailsTheCheck) {
    const ScratchFolder folder;
    const auto plan = folder.write("plan.json", speedPlan);
    const auto trace = folder.write("trace.jsonl", "{}\n");
    const auto bad = runTool({"check", "--trace", trace, plan});
    EXPECT_EQ(bad.status, 1);
    EXPECT_EQ(bad.out, "");
    EXPECT_EQ(bad.err, trace + ":1: The required key \"time\" is missing.\n");
    EXPECT_EQ(runTool({"check", "--trace", "/no/such/trace", plan}).err,
              "/no/such/trace: cannot be read: No such file or directory\n");
}

TEST(CheckFindings, anUnknownMachineAndAMachineBesideATraceAreWrongUsage) {
    const auto path = example("plans/cool.json");
    EXPECT_EQ(runTool({"check", "--machine", "toaster", path}).status, 2);
    EXPECT_EQ(runTool({"check", "--machine", "laptop", "--trace",
                       example("traces/build-burst.jsonl"), path})
                  .status,
              2);
    EXPECT_EQ(runTool({"check", "--format", "xml", path}).status, 2);
}

TEST(CheckFindings, garbageIsAnErrorWithAPlace) {
    const ScratchFolder folder;
    const std::map<std::string, std::string> garbage{
        {"brackets", std::string(1024 * 1024, '[')},
        {"binary", std::string("\x7F"
                               "ELF\x02\x01\x01\0\0\0\xFF",
                               11)},
        {"random", "\x89PNG\r\n\x1A\n"},
        {"quotes", std::string(4096, '"')},
        {"empty", ""}};
    for (const auto& [name, content] : garbage) {
        const auto path = folder.write(name, content);
        const auto run = runTool({"check", path});
        EXPECT_EQ(run.status, 1) << name;
        EXPECT_EQ(run.out, "") << name;
        EXPECT_THAT(run.err, AllOf(StartsWith(path + ":1:"), HasSubstr("[malformed-json]")))
            << name;
    }
}

TEST(CheckFindings, namesOfKeysCannotUpsetATerminal) {
    const auto run =
        runTool({"check", "-"}, R"({"\u001b[2J":1,)" + std::string(speedPlan).substr(1));
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out, AllOf(HasSubstr("[unknown-key]"), testing::Not(HasSubstr("\x1B"))));
}

}  // namespace
}  // namespace airflow::tool
