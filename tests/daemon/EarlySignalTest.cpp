#include <gmock/gmock.h>

#include <memory>
#include <vector>

#include "DaemonHarness.h"
#include "RecordingPlatform.h"
#include "concurrency/ThisThread.h"
#include "daemon/Daemon.h"
#include "simulation/daemon/SimulatedSystem.h"

namespace airflow::daemon {
namespace {

/// Keeps every job and runs none but those that the test runs itself; nothing takes time.
class IdleRuntime final : public concurrency::Runtime {
public:
    ~IdleRuntime() override { abandon(); }

    std::shared_ptr<concurrency::Executor> makeExecutor(std::string_view name) override {
        executors.push_back(std::make_shared<IdleExecutor>(name));
        return executors.back();
    }
    concurrency::Instant now() const noexcept override { return {}; }
    concurrency::Date date() const noexcept override { return {}; }

    /// Runs the first job of the executor that was made last.
    void runNewest() const {
        const auto newest = executors.back();
        newest->runJob(*newest->jobs.front());
    }

private:
    struct IdleExecutor final : concurrency::Executor {
        using Executor::Executor;
        void post(concurrency::Job& job) noexcept override { jobs.push_back(&job); }
        std::vector<concurrency::Job*> jobs;
    };

    concurrency::TimerQueue::Key addSleeper(concurrency::Instant, concurrency::Suspended) override {
        return {};
    }
    concurrency::Suspended removeSleeper(concurrency::TimerQueue::Key) override { return {}; }
    std::optional<concurrency::TimerQueue::Key> block(concurrency::Duration,
                                                      const concurrency::CancelToken&,
                                                      concurrency::Suspended) override {
        return std::nullopt;
    }
    void stop() noexcept override {}

    std::vector<std::shared_ptr<IdleExecutor>> executors;
};

/// Both signals arrive in the very moment in which their handlers stand.
class ImpatientProcess final : public DaemonProcess {
public:
    explicit ImpatientProcess(Journal& kept) : journal(kept) {}

    void atExit(Handler) override {}
    void handle(Signal, Handler handler) override { concurrency::runOnThisThread(handler()); }
    void announceExit(int) override {}
    concurrency::Task<void> exit(int status) override {
        journal.push_back(fmt::format("exit {}", status));
        co_return;
    }

private:
    Journal& journal;
};

class OpenHardware final : public Hardware {
public:
    explicit OpenHardware(simulation::SimulatedSystem& below) : system(below) {}

    concurrency::Task<std::expected<void, smc::SMCError>> open() override { co_return {}; }
    guard::SMCGate& smc() override { return gate; }
    sensors::SnapshotSource& sensors() override { return system.sensors; }

private:
    simulation::SimulatedSystem& system;
    guard::SMCGate gate{system.smc.executor(), system.smc, system.smc};
};

TEST(EarlySignal, aSignalThatArrivesAsItsHandlerIsInstalledFindsTheControllerArmed) {
    Journal journal;
    simulation::SimulatedSystem system{*simulation::machinePreset("laptop")};
    ImpatientProcess process(journal);
    RecordingListener listener(journal);
    OpenHardware hardware(system);
    IdleRuntime runtime;
    Daemon daemon({.runtime = runtime,
                   .hardware = hardware,
                   .process = process,
                   .listener = listener,
                   .standardError = system.standardError,
                   .effectiveUserID = [] { return 0U; }});
    runtime.detach("start-up", daemon.startUp());
    runtime.runNewest();
    EXPECT_THAT(system.standardError.lines, testing::ElementsAre(sigtermLine));
    EXPECT_THAT(journal, testing::ElementsAre("exit 143", "exit 130"));
    runtime.abandon();
}

}  // namespace
}  // namespace airflow::daemon
