#include <gmock/gmock.h>

#include <deque>
#include <sstream>

#include "ToolRun.h"
#include "client/FakeHelper.h"
#include "tool/client/Session.h"

namespace airflow::tool {
namespace {

using client::FakeHelper;
using testing::ElementsAre;
using testing::HasSubstr;
using namespace std::chrono_literals;

constexpr std::string_view heldState =
    R"({"perFanMode":{"0":{"manual":{}}},"targets":{"0":3000},"isHolding":true})";

/// Lines that are there at once; "^C" interrupts. Attends in virtual time.
class TypedLines : public SessionInput {
public:
    TypedLines(std::deque<std::string> typed, FakeHelper& clock)
        : lines(std::move(typed)), clock(clock) {}

    std::optional<std::string> nextLine(const Attend& attend) override {
        attend();
        interrupted = !lines.empty() && lines.front() == "^C";
        if (interrupted || lines.empty()) return std::nullopt;
        std::string line = std::move(lines.front());
        lines.pop_front();
        return line;
    }
    void pause(concurrency::Instant until, const Attend& attend) override {
        for (auto due = attend(); clock.now() < until; due = attend()) {
            clock.sleepUntil(std::min(due, until));
        }
    }
    bool isInterrupted() const override { return interrupted; }

private:
    std::deque<std::string> lines;
    FakeHelper& clock;
    bool interrupted = false;
};

class SessionTest : public testing::Test {
protected:
    ToolRun run(std::deque<std::string> lines, Session::Kind kind = Session::Kind::script) {
        std::ostringstream out;
        std::ostringstream err;
        client::HelperClient client(helper, helper);
        TypedLines input(std::move(lines), helper);
        Session session(client, helper, input, out, err, kind);
        const int status = session.run();
        return {.status = status, .out = out.str(), .err = err.str()};
    }
    void answer(const std::string& method, const std::string& rest) {
        helper.answers = [=](const std::string& asked,
                             const std::string& id) -> FakeHelper::Replies {
            if (asked != method) return {};
            return {{"{\"id\":" + id + "," + rest + "}\n"}};
        };
    }

    FakeHelper helper;
};

TEST_F(SessionTest, answersComeInTheOrderOfTheCommandsOverOneConnection) {
    const auto session =
        run({"# a script", "", "helperVersion", "setPercent 0 55", "state", "automatic"});
    EXPECT_EQ(session.status, 0);
    EXPECT_EQ(session.out, "1.0.3+6\napplied\nnot held\napplied\n");
    EXPECT_EQ(session.err, "");
    EXPECT_EQ(helper.connections, 1);
    EXPECT_EQ(helper.openConnections, 0);
}

TEST_F(SessionTest, waitingSendsHeartbeatsAndLooksAtWhatIsHeld) {
    answer("readState", "\"state\":" + std::string(heldState));
    EXPECT_EQ(run({"fullBlast", "wait 12.5"}).status, 0);
    EXPECT_THAT(helper.methods(),
                ElementsAre("helperVersion", "fullBlast", "readState", "heartbeat", "readState",
                            "heartbeat", "readState", "readState"));
    EXPECT_EQ(helper.now().time_since_epoch(), 12500ms);
}

TEST_F(SessionTest, quitEndsIt) {
    EXPECT_EQ(run({"quit", "fullBlast"}).status, 0);
    EXPECT_EQ(helper.countOf("fullBlast"), 0u);
}

TEST_F(SessionTest, aCommandThatFailsIsNamedWithItsReasonAndTheRestGoesOn) {
    helper.answers = [](const std::string& method, const std::string& id) -> FakeHelper::Replies {
        if (method == "setPercent") return {{"{\"id\":" + id + ",\"code\":4}\n"}};
        if (method != "readState") return {};
        return {{"{\"id\":" + id +
                 ",\"state\":{\"perFanMode\":{},\"targets\":{},\"isHolding\":false,"
                 "\"lastError\":\"no fan 9\"}}\n"}};
    };
    const auto session = run({"setPercent 9 55", "automatic"});
    EXPECT_EQ(session.status, 1);
    EXPECT_EQ(session.out, "rejected: no fan 9\napplied\n");
}

TEST_F(SessionTest, aLineThatIsNoCommandIsNamedByItsNumberAndNothingIsSent) {
    const auto session = run({"", "fly", "wait", "wait -1", "applyConfig -", "quit now", "\""});
    EXPECT_EQ(session.status, 1);
    EXPECT_EQ(session.out, "");
    EXPECT_EQ(session.err,
              "line 2: there is no method \"fly\"\n"
              "line 3: wait takes: SECONDS\n"
              "line 4: SECONDS has to be from 0 to 1000000\n"
              "line 5: the plan has to be in a file here\n"
              "line 6: there is no method \"quit\"\n"
              "line 7: a quotation mark is missing\n");
    EXPECT_THAT(helper.methods(), ElementsAre("helperVersion", "readState"));
}

TEST_F(SessionTest, aPersonIsToldTheSameAndTheStatusIsZero) {
    const auto session = run({"fly", "fullBlast", "quit"}, Session::Kind::conversation);
    EXPECT_EQ(session.status, 0);
    EXPECT_EQ(session.err, "there is no method \"fly\"\n");
    EXPECT_EQ(session.out,
              "Connected. Fans stay under control until this session ends. Type help for a list of "
              "commands.\napplied\n");
}

TEST_F(SessionTest, helpListsTheMethodsAndItsOwnCommands) {
    const auto session = run({"help"});
    for (const std::string command : {"setManualRPM FAN RPM", "wait SECONDS", "state ", "quit "}) {
        EXPECT_THAT(session.out, HasSubstr("  " + command));
    }
}

TEST_F(SessionTest, aPlanIsReadFromItsFile) {
    const ScratchFolder folder;
    const auto path = folder.write("my plan.json", "{\n}");
    answer("applyConfig", "\"code\":7");
    const auto session = run({"applyConfig \"" + path + "\""});
    EXPECT_EQ(session.out, "failed: " + path + ": The required key \"fans\" is missing.\n");
    EXPECT_EQ(helper.lines.at(1), "{\"id\":2,\"method\":\"applyConfig\",\"plan\":\"{\\n}\"}");
}

TEST_F(SessionTest, endingWhileFansAreHeldIsSaid) {
    answer("readState", "\"state\":" + std::string(heldState));
    const auto session = run({"setManualRPM 0 3000"});
    EXPECT_EQ(session.status, 0);
    EXPECT_EQ(session.err, "Disconnected: all fans return to Auto.\n");
}

/// Held at first, and after a while no longer.
std::function<FakeHelper::Replies(const std::string&, const std::string&)> heldUntil(
    FakeHelper& helper, std::chrono::seconds end, std::string after) {
    return [&helper, end, after](const std::string& method, const std::string& id) {
        FakeHelper::Replies replies;
        if (method != "readState") return replies;
        const bool isHeld = helper.now().time_since_epoch() < end;
        replies = {
            {"{\"id\":" + id + ",\"state\":" + (isHeld ? std::string(heldState) : after) + "}\n"}};
        return replies;
    };
}

TEST_F(SessionTest, fansThatWereGivenBackAreReportedWithTheReasonAtTheNextHeartbeat) {
    helper.answers = heldUntil(
        helper, 7s,
        R"({"perFanMode":{},"targets":{},"isHolding":false,"lastError":"97°C exceeded"})");
    const auto session =
        run({"setManualRPM 0 3000", "wait 9", "helperVersion", "wait 2", "wait 60"});
    EXPECT_EQ(session.status, 1);
    EXPECT_EQ(session.err, "The daemon gave the fans back: 97°C exceeded\n");
    EXPECT_EQ(helper.countOf("readState"), 4u) << "nothing is held that could be lost any more";
}

TEST_F(SessionTest, fansThatAnotherClientGaveBackAreReported) {
    helper.answers = heldUntil(helper, 7s, R"({"perFanMode":{},"targets":{},"isHolding":false})");
    const auto session = run({"fullBlast", "wait 11"}, Session::Kind::conversation);
    EXPECT_EQ(session.status, 0);
    EXPECT_EQ(session.err,
              "\nThe fans are back in Auto: another client gave a command or ended.\n");
}

TEST_F(SessionTest, fansThatItsOwnCommandGaveBackAreNotReported) {
    helper.answers = heldUntil(helper, 7s, R"({"perFanMode":{},"targets":{},"isHolding":false})");
    const auto session = run({"fullBlast", "wait 7", "automatic", "wait 20"});
    EXPECT_EQ(session.status, 0);
    EXPECT_EQ(session.err, "");
}

TEST_F(SessionTest, aNewErrorIsReportedWhileFansAreHeld) {
    helper.answers = heldUntil(
        helper, 7s,
        R"({"perFanMode":{"0":{"manual":{}}},"targets":{},"isHolding":true,"lastError":"fan 1"})");
    const auto session = run({"fullBlast", "wait 21"});
    EXPECT_EQ(session.status, 0);
    EXPECT_EQ(session.err, "The daemon reports: fan 1\nDisconnected: all fans return to Auto.\n");
}

TEST_F(SessionTest, withoutADaemonItEndsAtOnce) {
    helper.refusals = 1;
    const auto session = run({"fullBlast"});
    EXPECT_EQ(session.status, 1);
    EXPECT_EQ(session.out, "noHelper: /run/helper.sock: nobody listens there\n");
    EXPECT_EQ(helper.lines.size(), 0u);
}

TEST_F(SessionTest, aConnectionThatEndsIsAFailureAndTheNextCommandConnectsAgain) {
    helper.answers = [this](const std::string& method, const std::string& id) {
        FakeHelper::Replies replies;
        if (method == "fullBlast" && helper.connections == 1) {
            replies = {{"{\"id\":" + id + ",\"code\":0}\n"}, {std::string(FakeHelper::hangUp), 3s}};
        }
        return replies;
    };
    const auto session = run({"fullBlast", "wait 6", "fullBlast"});
    EXPECT_EQ(session.status, 1);
    EXPECT_EQ(session.out, "applied\napplied\n");
    EXPECT_EQ(session.err,
              "The connection to the daemon was lost: all fans return to Auto. The next "
              "command reconnects.\n");
    EXPECT_EQ(helper.connections, 2);
}

TEST_F(SessionTest, anInterruptionEndsIt) {
    const auto session = run({"fullBlast", "^C"});
    EXPECT_EQ(session.status, 130);
    EXPECT_EQ(session.err, "Interrupted: all fans return to Auto.\n");
    EXPECT_THAT(helper.methods(), ElementsAre("helperVersion", "fullBlast", "readState"));
}

}  // namespace
}  // namespace airflow::tool
