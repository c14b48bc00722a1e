// ProcessHarness: a machine, a daemon and clients, each at its own end of a real socket, in a
// folder of their own. The truth about the fans is asked of the machine.
#pragma once

#include <gmock/gmock.h>
#include <signal.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Child.h"
#include "platform/linux/LocalSocket.h"
#include "remote/MachineStatus.h"
#include "support/ApplyConfig.h"
#include "tool/ToolRun.h"

namespace airflow::process {

using namespace std::chrono_literals;
using Seconds = std::chrono::duration<double>;

inline constexpr std::string_view listening =
    "[com.brisquell.helper] listening on com.brisquell.helper (build 1.0.3+6)";
inline constexpr std::string_view terminating =
    "[com.brisquell.helper] SIGTERM: restoring Auto...\n";
inline constexpr std::string_view interrupting =
    "[com.brisquell.helper] SIGINT: restoring Auto...\n";
inline constexpr std::string_view exiting =
    "[com.brisquell.helper] process exit: restoring Auto...\n";

/// A client that writes what it likes and says nothing by itself, not even a heartbeat.
class RawClient {
public:
    explicit RawClient(const std::string& path);

    void send(const std::string& message);
    /// False when the connection has ended.
    [[nodiscard]] bool trySend(const std::string& message);
    /// The next answer; nothing when the connection has ended, or after ten seconds.
    [[nodiscard]] std::optional<std::string> receive();
    /// Sends a message and returns its answer.
    [[nodiscard]] std::string ask(const std::string& message);

private:
    platform::FileDescriptor connection;
    std::string received;
};

class ProcessHarness : public testing::Test {
protected:
    /// Returns when it can be reached.
    void startMachine(const std::string& preset = "laptop");
    /// Starts it and does not wait.
    void spawnHelper(const std::vector<std::string>& options = {},
                     StandardError error = StandardError::read);
    /// Returns when it serves.
    void startHelper(const std::vector<std::string>& options = {});

    [[nodiscard]] std::string machineSocket() const { return (folder.path / "m").string(); }
    [[nodiscard]] std::string helperSocket() const { return (folder.path / "h").string(); }
    [[nodiscard]] RawClient connect() const { return RawClient(helperSocket()); }

    /// Asks the machine.
    [[nodiscard]] remote::MachineStatus status() const;
    [[nodiscard]] std::vector<std::int64_t> modes() const;
    [[nodiscard]] std::int64_t writesOf(const std::string& key) const;
    void inject(const std::string& fault) const;
    void clearFaults() const;

    /// Whether it becomes true within five seconds.
    [[nodiscard]] static bool eventually(const std::function<bool()>& claim);

    tool::ScratchFolder folder;
    std::unique_ptr<Child> machine;
    std::unique_ptr<Child> helper;

private:
    [[nodiscard]] tool::ToolRun askMachine(std::vector<std::string> words) const;
};

/// What modes() says of a machine with two fans.
inline const std::vector<std::int64_t> bothAutomatic{0, 0};
inline const std::vector<std::int64_t> bothForced{1, 1};
inline const std::vector<std::int64_t> firstForced{1, 0};

inline const std::string holdFirst = R"({"id":1,"method":"setPercent","fan":0,"percent":55})";
inline const std::string holdBoth = R"({"id":2,"method":"fullBlast"})";
/// Holds the first fan, too.
inline std::string holdFirstByPlan() {
    return tests::applyConfig(1, R"({"fans":[{"fanID":0,"mode":{"fixedPercent":{"_0":70}}}],)"
                                 R"("rules":[],"tuning":{"emaAlpha":0.3,"hysteresisCelsius":2,)"
                                 R"("maxDeltaRPMPerTick":400,"minDwellSeconds":3}})");
}

}  // namespace airflow::process
