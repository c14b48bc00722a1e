#include <gmock/gmock.h>

#include <sstream>

#include "ToolRun.h"
#include "tool/client/TypedCall.h"

namespace airflow::tool {
namespace {

using client::Method;
using testing::ElementsAre;
using testing::StartsWith;

TEST(TypedCall, everyMethodCanBeTyped) {
    for (const std::string name : {"helperVersion", "shutdownForUpgrade", "fullBlast", "automatic",
                                   "restoreAuto", "heartbeat", "readState"}) {
        const auto call = parseCall({name});
        ASSERT_TRUE(call) << name;
        EXPECT_EQ(daemon::nameOf(call->request.method), name);
        EXPECT_EQ(parseCall({name, "0"}).error(), name + " takes no arguments");
    }
    const auto manual = parseCall({"setManualRPM", "1", "3000"});
    EXPECT_EQ(manual->request.method, Method::setManualRPM);
    EXPECT_EQ(manual->request.fan, 1);
    EXPECT_EQ(manual->request.rpm, 3000);
    const auto percent = parseCall({"setPercent", "0", "62.5"});
    EXPECT_EQ(percent->request.method, Method::setPercent);
    EXPECT_EQ(percent->request.percent, 62.5);
    const auto plan = parseCall({"applyConfig", "quiet.json"});
    EXPECT_EQ(plan->request.method, Method::applyConfig);
    EXPECT_EQ(plan->planPath, "quiet.json");
}

TEST(TypedCall, theHelpNamesEveryMethod) {
    for (const std::string name :
         {"helperVersion", "shutdownForUpgrade", "setManualRPM FAN RPM", "setPercent FAN PERCENT",
          "fullBlast", "automatic", "applyConfig PLAN", "restoreAuto", "heartbeat", "readState"}) {
        EXPECT_NE(methodsHelp().find("  " + name + " "), std::string_view::npos) << name;
    }
}

TEST(TypedCall, whetherNumbersMakeSenseIsForTheDaemonToSay) {
    EXPECT_EQ(parseCall({"setPercent", "-7", "-1e3"})->request.fan, -7);
    EXPECT_EQ(parseCall({"setPercent", "-7", "-1e3"})->request.percent, -1000);
    EXPECT_EQ(parseCall({"setManualRPM", "0", "9223372036854775807"})->request.rpm,
              9223372036854775807);
}

TEST(TypedCall, whatIsNoCallIsRefusedWithAReason) {
    const auto why = [](const std::vector<std::string>& words) { return parseCall(words).error(); };
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

TEST(TypedCall, blanksPartWordsAndQuotesKeepThem) {
    EXPECT_THAT(wordsOf("").value(), ElementsAre());
    EXPECT_THAT(wordsOf("  setPercent\t0   55\r").value(), ElementsAre("setPercent", "0", "55"));
    EXPECT_THAT(wordsOf("applyConfig \"my plan.json\"").value(),
                ElementsAre("applyConfig", "my plan.json"));
    EXPECT_THAT(wordsOf("a \"\" b").value(), ElementsAre("a", "", "b"));
    EXPECT_EQ(wordsOf("applyConfig \"x").error(), "a quotation mark is missing");
}

TEST(TypedCall, aNumberSignBeginsACommentWhereAWordWould) {
    EXPECT_THAT(wordsOf("# setPercent 0 55").value(), ElementsAre());
    EXPECT_THAT(wordsOf("state # now").value(), ElementsAre("state"));
    EXPECT_THAT(wordsOf("a#b \"#c\"").value(), ElementsAre("a#b", "#c"));
}

TEST(TypedCall, secondsAreFromZeroToAMillion) {
    EXPECT_EQ(parseSeconds("0"), 0.0);
    EXPECT_EQ(parseSeconds("0.25"), 0.25);
    EXPECT_EQ(parseSeconds("1000000"), 1e6);
    EXPECT_EQ(parseSeconds("-0.1").error(), "SECONDS has to be from 0 to 1000000");
    EXPECT_EQ(parseSeconds("1000000.5").error(), "SECONDS has to be from 0 to 1000000");
    EXPECT_EQ(parseSeconds("soon").error(), "SECONDS has to be a number, not \"soon\"");
}

TEST(TypedCall, aPlanComesFromItsFileOrFromStandardInput) {
    const ScratchFolder folder;
    const auto path = folder.write("plan.json", "{\"a\":\n1}");
    std::istringstream in("[2]");
    EXPECT_EQ(withPlan(parseCall({"applyConfig", path}).value(), in)->plan, "{\"a\":\n1}");
    EXPECT_EQ(withPlan(parseCall({"applyConfig", "-"}).value(), in)->plan, "[2]");
    EXPECT_EQ(withPlan(parseCall({"fullBlast"}).value(), in)->plan, "");
}

TEST(TypedCall, aPlanThatCannotBeSentIsNamed) {
    std::istringstream in("{");
    EXPECT_THAT(withPlan(parseCall({"applyConfig", "-"}).value(), in).error(),
                StartsWith("standard input:1:"));
    EXPECT_EQ(withPlan(parseCall({"applyConfig", "/no/plan"}).value(), in).error(),
              "/no/plan: cannot be read: No such file or directory");
}

TEST(TypedCall, whatIsWrongWithAPlanCanBeTold) {
    auto call = parseCall({"applyConfig", "plan.json"}).value();
    call.request.plan = "{}";
    EXPECT_EQ(whyNoPlan(call, call.request), "plan.json: The required key \"fans\" is missing.");
    const auto other = parseCall({"fullBlast"}).value();
    EXPECT_EQ(whyNoPlan(other, other.request), "");
}

}  // namespace
}  // namespace airflow::tool
