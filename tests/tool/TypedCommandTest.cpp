#include <gmock/gmock.h>

#include <sstream>
#include <variant>

#include "ToolRun.h"
#include "tool/client/TypedCommand.h"

namespace airflow::tool {
namespace {

namespace commands = daemon::commands;
using testing::ElementsAre;
using testing::StartsWith;

TEST(TypedCommand, everyCommandCanBeTyped) {
    for (const std::string name : {"helperVersion", "shutdownForUpgrade", "fullBlast", "automatic",
                                   "restoreAuto", "heartbeat", "readState"}) {
        const auto typed = parseCommand({name});
        ASSERT_TRUE(typed) << name;
        EXPECT_EQ(daemon::nameOf(typed->command), name);
        EXPECT_EQ(parseCommand({name, "0"}).error(), name + " takes no arguments");
    }
    EXPECT_EQ(parseCommand({"setManualRPM", "1", "3000"})->command,
              daemon::Command(commands::SetManualRPM{.fan = 1, .rpm = 3000}));
    EXPECT_EQ(parseCommand({"setPercent", "0", "62.5"})->command,
              daemon::Command(commands::SetPercent{.fan = 0, .percent = 62.5}));
    const auto plan = parseCommand({"applyConfig", "quiet.json"});
    EXPECT_EQ(plan->command, daemon::Command(commands::ApplyConfig{}));
    EXPECT_EQ(plan->planPath, "quiet.json");
}

TEST(TypedCommand, theHelpNamesEveryCommand) {
    for (const std::string name :
         {"helperVersion", "shutdownForUpgrade", "setManualRPM FAN RPM", "setPercent FAN PERCENT",
          "fullBlast", "automatic", "applyConfig PLAN", "restoreAuto", "heartbeat", "readState"}) {
        EXPECT_NE(commandsHelp().find("  " + name + " "), std::string::npos) << name;
    }
}

TEST(TypedCommand, whetherNumbersMakeSenseIsForTheDaemonToSay) {
    EXPECT_EQ(parseCommand({"setPercent", "9", "-1e3"})->command,
              daemon::Command(commands::SetPercent{.fan = 9, .percent = -1000}));
    EXPECT_EQ(parseCommand({"setManualRPM", "0", "9223372036854775807"})->command,
              daemon::Command(commands::SetManualRPM{.fan = 0, .rpm = 9223372036854775807}));
}

TEST(TypedCommand, whatIsNoCommandIsRefusedWithAReason) {
    const auto why = [](const std::vector<std::string>& words) {
        return parseCommand(words).error();
    };
    EXPECT_EQ(why({}), "a method is missing");
    EXPECT_EQ(why({"fly\x1B"}), "there is no method \"fly\uFFFD\"");
    EXPECT_EQ(why({"setPercent"}), "setPercent takes: FAN PERCENT");
    EXPECT_EQ(why({"setPercent", "0"}), "setPercent takes: FAN PERCENT");
    EXPECT_EQ(why({"setPercent", "0", "1", "2"}), "setPercent takes: FAN PERCENT");
    EXPECT_EQ(why({"setManualRPM"}), "setManualRPM takes: FAN RPM");
    EXPECT_EQ(why({"applyConfig"}), "applyConfig takes: PLAN");
    EXPECT_EQ(why({"setPercent", "0.5", "1"}), "FAN has to be a whole number, not \"0.5\"");
    EXPECT_EQ(why({"setPercent", "", "1"}), "FAN has to be a whole number, not \"\"");
    EXPECT_EQ(why({"setManualRPM", "0", "9223372036854775808"}),
              "RPM has to be a whole number, not \"9223372036854775808\"");
    for (const std::string number : {"", " 5", "5 ", "5%", "nan", "inf", "1e999", "five"}) {
        EXPECT_EQ(why({"setPercent", "0", number}),
                  "PERCENT has to be a number, not \"" + number + "\"");
    }
}

TEST(TypedCommand, aFanThatNoMachineCanHaveIsRefused) {
    for (const std::string fan : {"-1", "10", "9223372036854775807"}) {
        EXPECT_EQ(parseCommand({"setPercent", fan, "50"}).error(), "FAN has to be from 0 to 9");
        EXPECT_EQ(parseCommand({"setManualRPM", fan, "3000"}).error(), "FAN has to be from 0 to 9");
    }
    EXPECT_TRUE(parseCommand({"setManualRPM", "0", "3000"}));
    EXPECT_TRUE(parseCommand({"setManualRPM", "9", "10"}));
}

TEST(TypedCommand, aMethodThatIsMistypedIsNamedWithTheOneThatMayHaveBeenMeant) {
    EXPECT_EQ(parseCommand({"fulblast"}).error(),
              "there is no method \"fulblast\"; did you mean \"fullBlast\"?");
}

TEST(TypedCommand, blanksPartWordsAndQuotesKeepThem) {
    EXPECT_THAT(wordsOf("").value(), ElementsAre());
    EXPECT_THAT(wordsOf("  setPercent\t0   55\r").value(), ElementsAre("setPercent", "0", "55"));
    EXPECT_THAT(wordsOf("applyConfig \"my plan.json\"").value(),
                ElementsAre("applyConfig", "my plan.json"));
    EXPECT_THAT(wordsOf("a \"\" b").value(), ElementsAre("a", "", "b"));
    EXPECT_EQ(wordsOf("applyConfig \"x").error(), "a quotation mark is missing");
}

TEST(TypedCommand, aNumberSignBeginsACommentWhereAWordWould) {
    EXPECT_THAT(wordsOf("# setPercent 0 55").value(), ElementsAre());
    EXPECT_THAT(wordsOf("state # now").value(), ElementsAre("state"));
    EXPECT_THAT(wordsOf("a#b \"#c\"").value(), ElementsAre("a#b", "#c"));
}

TEST(TypedCommand, secondsAreFromZeroToAMillion) {
    EXPECT_EQ(parseSeconds("0"), 0.0);
    EXPECT_EQ(parseSeconds("0.25"), 0.25);
    EXPECT_EQ(parseSeconds("1000000"), 1e6);
    EXPECT_EQ(parseSeconds("-0.1").error(), "SECONDS has to be from 0 to 1000000");
    EXPECT_EQ(parseSeconds("1000000.5").error(), "SECONDS has to be from 0 to 1000000");
    EXPECT_EQ(parseSeconds("soon").error(), "SECONDS has to be a number, not \"soon\"");
}

TEST(TypedCommand, aPlanComesFromItsFileOrFromStandardInput) {
    const ScratchFolder folder;
    const auto path = folder.write("plan.json", "{\"a\":\n1}");
    std::istringstream in("[2]");
    const auto planOf = [&in](const std::vector<std::string>& words) {
        auto typed = parseCommand(words).value();
        EXPECT_TRUE(readPlan(typed, in));
        const auto* const applied = std::get_if<commands::ApplyConfig>(&typed.command);
        return applied ? applied->plan : "no plan";
    };
    EXPECT_EQ(planOf({"applyConfig", path}), "{\"a\":\n1}");
    EXPECT_EQ(planOf({"applyConfig", "-"}), "[2]");
    EXPECT_EQ(planOf({"fullBlast"}), "no plan");
}

TEST(TypedCommand, aPlanThatCannotBeSentIsNamed) {
    std::istringstream in("{");
    const auto why = [&in](const std::vector<std::string>& words) {
        auto typed = parseCommand(words).value();
        return readPlan(typed, in).error();
    };
    EXPECT_THAT(why({"applyConfig", "-"}), StartsWith("standard input:1:"));
    EXPECT_EQ(why({"applyConfig", "/no/plan"}),
              "/no/plan: cannot be read: No such file or directory");
}

TEST(TypedCommand, whatIsWrongWithAPlanCanBeTold) {
    const TypedCommand typed{.command = commands::ApplyConfig{.plan = "{}"},
                             .planPath = "plan.json"};
    EXPECT_EQ(whyNoPlan(typed), "plan.json: The required key \"fans\" is missing.");
    EXPECT_EQ(whyNoPlan(parseCommand({"fullBlast"}).value()), "");
}

}  // namespace
}  // namespace airflow::tool
