#include <gmock/gmock.h>

#include <sstream>

#include "ToolRun.h"
#include "client/FakeHelper.h"
#include "tool/client/CallCommand.h"

namespace airflow::tool {
namespace {

using client::FakeHelper;
using testing::ElementsAre;
using testing::HasSubstr;
using namespace std::chrono_literals;

constexpr std::string_view note =
    "Disconnected: all fans return to Auto.\n"
    "To hold them, keep a connection: airflow session\n";

class CallCommand : public testing::Test {
protected:
    ToolRun call(const std::vector<std::string>& words, AnswerFormat format = AnswerFormat::text) {
        std::ostringstream out;
        std::ostringstream err;
        const auto typed = parseCommand(words).value();
        const int status = callHelper(typed, 30s, format, helper, helper, out, err);
        return {.status = status, .out = out.str(), .err = err.str()};
    }
    /// The daemon answers a command with `code`, and has this state behind it.
    void answer(int code, const std::string& state) {
        helper.answers = [=](const std::string& method, const std::string& id) {
            FakeHelper::Replies replies;
            if (method == "readState")
                replies = {{"{\"id\":" + id + ",\"state\":" + state + "}\n"}};
            if (method == "setPercent") {
                replies = {{"{\"id\":" + id + ",\"code\":" + std::to_string(code) + "}\n"}};
            }
            return replies;
        };
    }

    const std::string held =
        R"({"perFanMode":{"0":{"manual":{}}},"targets":{"0":3000},"isHolding":true})";
    const std::string released =
        R"({"perFanMode":{},"targets":{},"isHolding":false,"lastError":"F0Md=1 rejected"})";
    FakeHelper helper;
};

TEST_F(CallCommand, aCommandThatHoldsSaysThatItsEndReleases) {
    answer(0, held);
    const auto run = call({"setPercent", "0", "55"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "applied\n");
    EXPECT_EQ(run.err, note);
    EXPECT_THAT(helper.methods(), ElementsAre("helperVersion", "setPercent", "readState"));
    EXPECT_EQ(helper.openConnections, 0);
}

TEST_F(CallCommand, askingEndsWhatOthersHoldAndSaysSo) {
    answer(0, held);
    EXPECT_EQ(call({"readState"}).err, note);
    EXPECT_EQ(call({"helperVersion"}).err, note);
    EXPECT_EQ(call({"heartbeat"}).err, note);
}

TEST_F(CallCommand, withoutAHoldThereIsNothingToSay) {
    for (const std::string method : {"automatic", "restoreAuto", "shutdownForUpgrade", "readState",
                                     "helperVersion", "heartbeat"}) {
        const auto run = call({method});
        EXPECT_EQ(run.status, 0) << method;
        EXPECT_EQ(run.err, "") << method;
    }
}

TEST_F(CallCommand, aFailureIsNamedWithTheLastErrorAndTheStatusIsOne) {
    for (const auto& [code, name] : std::vector<std::pair<int, std::string>>{{1, "acquiring"},
                                                                             {2, "timedOut"},
                                                                             {3, "reclaimed"},
                                                                             {4, "rejected"},
                                                                             {5, "notPrivileged"},
                                                                             {7, "failed"},
                                                                             {8, "failed"}}) {
        answer(code, released);
        const auto run = call({"setPercent", "0", "55"});
        EXPECT_EQ(run.status, 1) << code;
        EXPECT_EQ(run.out, name + ": F0Md=1 rejected\n") << code;
    }
}

TEST_F(CallCommand, theJSONFormIsOneObject) {
    answer(2, released);
    EXPECT_EQ(call({"setPercent", "0", "55"}, AnswerFormat::json).out,
              "{\"method\":\"setPercent\",\"result\":\"timedOut\",\"reason\":\"F0Md=1 rejected\","
              "\"lastError\":\"F0Md=1 rejected\",\"endsHold\":false}\n");
}

TEST_F(CallCommand, aDaemonThatDiesIsNotCalledAgainForAReason) {
    helper.answers = [](const std::string& method, const std::string&) -> FakeHelper::Replies {
        if (method != "setPercent") return {};
        return {{std::string(FakeHelper::hangUp)}};
    };
    const auto run = call({"setPercent", "0", "55"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "failed: the connection ended before an answer came\n");
    EXPECT_EQ(helper.connections, 1);
}

TEST_F(CallCommand, askingDoesNotShutDownADaemonOfAnotherBuild) {
    helper.version = "1.0.3+5";
    const auto state = call({"readState"});
    EXPECT_EQ(state.status, 1);
    EXPECT_EQ(state.out,
              "noHelper: the daemon is build 1.0.3+5; this client is made for 1.0.3+6\n");
    EXPECT_EQ(call({"helperVersion"}).out, "1.0.3+5\n");
    EXPECT_EQ(helper.countOf("shutdownForUpgrade"), 0u);
}

TEST_F(CallCommand, aCommandDoes) {
    helper.version = "1.0.3+5";
    EXPECT_EQ(call({"fullBlast"}).status, 1);
    EXPECT_EQ(helper.countOf("shutdownForUpgrade"), 3u);
}

TEST(CallCommandLine, badArgumentsAreWrongUsageBeforeAnythingIsConnected) {
    for (const std::vector<std::string>& words :
         std::vector<std::vector<std::string>>{{"call"},
                                               {"call", "fly"},
                                               {"call", "setPercent", "0"},
                                               {"call", "setPercent", "x", "5"},
                                               {"call", "setPercent", "10", "5"},
                                               {"call", "setPercent", "-1", "5"},
                                               {"call", "fullBlast", "1"},
                                               {"call", "fullBlast", "--timeout", "0"},
                                               {"call", "fullBlast", "--format", "xml"},
                                               {"session", "--timeout", "x"},
                                               {"session", "fullBlast"},
                                               {"watch", "--count", "0"},
                                               {"watch", "--interval", "0.01"}}) {
        const auto run = runTool(words);
        EXPECT_EQ(run.status, 2) << words.back();
        EXPECT_EQ(run.out, "") << words.back();
        EXPECT_NE(run.err, "") << words.back();
    }
}

TEST(CallCommandLine, anUnreachableDaemonIsNamed) {
    const ScratchFolder folder;
    const auto socket = (folder.path / "helper.sock").string();
    const auto run = runTool({"call", "setPercent", "1", "-5", "--helper-socket", socket});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "noHelper: " + socket + ": nobody listens there\n");
}

TEST(CallCommandLine, aPlanThatIsNotJSONIsNotSent) {
    const auto run = runTool({"call", "applyConfig", "-", "--helper-socket", "/no/socket"}, "{");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run.err, HasSubstr("standard input:1:"));
}

TEST(CallCommandLine, theHelpSaysWhatTheEndOfAConnectionDoes) {
    for (const std::string command : {"call", "session", "watch"}) {
        const auto run = runTool({command, "--help"});
        EXPECT_EQ(run.status, 0);
        EXPECT_THAT(run.out, HasSubstr("give the fans back")) << command;
    }
}

}  // namespace
}  // namespace airflow::tool
