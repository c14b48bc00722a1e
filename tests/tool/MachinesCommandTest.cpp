#include <gmock/gmock.h>

#include "ToolRun.h"

namespace airflow::tool {
namespace {

TEST(MachinesCommand, listsEveryMachineWithALine) {
    const auto run = runTool({"machines"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out,
              "laptop          two fans, forced mode accepted at once, HID temperatures\n"
              "forty-sensors   two fans and forty HID temperatures\n"
              "unlock          forced mode refused (0x86) until Ftst has been on for 0.3 s\n"
              "busy            answers busy (0x82) for 3 s when forced mode is asked for\n"
              "lower-case      names its mode keys F0md and F1md\n"
              "no-mode-key     has fans whose mode nobody can set\n"
              "reclaiming      the firmware takes forced fans back (mode 3) after 20 s\n"
              "no-hid          no HID sensor hub: temperatures come from SMC keys\n"
              "no-hid-symbols  the HID functions do not resolve on this system\n"
              "fanless         a machine without fans\n"
              "left-forced     a crashed daemon left both fans forced at their minimum\n");
}

TEST(MachinesCommand, takesNoArguments) {
    EXPECT_EQ(runTool({"machines", "laptop"}).status, 2);
    EXPECT_EQ(runTool({"machines", "--format", "json"}).status, 2);
}

}  // namespace
}  // namespace airflow::tool
