// FanHelperService: the commands that clients can give, as they arrive and as they are answered.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "concurrency/Runtime.h"
#include "control/LocalFanController.h"
#include "daemon/Attendance.h"
#include "daemon/DaemonProcess.h"
#include "numbers/Units.h"

namespace airflow::daemon {

/// Turns each message into one call of the controller and its outcome into the reply.
///
/// Operations may be called from any thread and return at once: the work runs in a task of its own,
/// on the shared pool. Never on the controller's executor: a task there that ended the process
/// would wait for a restoration that waits for the task. Each reply is called exactly once, from
/// the task's thread, and must not block. Arguments are passed on as received; whether they make
/// sense is for the controller to say.
///
/// A command whose clients are all gone when its turn comes is answered as rejected, and does
/// nothing; its heartbeat is not counted. Their end has released the fans already.
class FanHelperService {
public:
    using Acknowledgement = std::function<void()>;
    using CodeReply = std::function<void(std::int64_t code)>;  ///< ControlResult::xpcCode()
    using TextReply = std::function<void(std::string_view text)>;
    using DataReply = std::function<void(std::string_view bytes)>;

    /// Runtime, process and attendance outlive the service, which outlives its tasks. Without an
    /// attendance every command counts as one whose client is there.
    FanHelperService(concurrency::Runtime& runtime, DaemonProcess& process,
                     std::shared_ptr<control::LocalFanController> controller,
                     Attendance* attendance = nullptr);
    FanHelperService(const FanHelperService&) = delete;
    FanHelperService& operator=(const FanHelperService&) = delete;

    /// Replies with the build identity before it returns, however busy the controller is.
    void helperVersion(const TextReply& reply) const;
    /// Gives the fans back, acknowledges, and ends the process 200 ms later with status 0.
    void shutdownForUpgrade(Acknowledgement reply);
    void setManualRPM(numbers::FanIndex fan, numbers::WholeRPM rpm, CodeReply reply);
    void setPercent(numbers::FanIndex fan, numbers::Percent percent, CodeReply reply);
    void fullBlast(CodeReply reply);
    void automatic(CodeReply reply);
    /// `plan` is a plan document (JSON). One that cannot be decoded is answered with 7 and changes
    /// nothing.
    void applyConfig(std::string plan, CodeReply reply);
    void restoreAuto(Acknowledgement reply);
    /// Has no reply.
    void heartbeat();
    /// Replies with the published state as JSON; with nothing at all if it has no JSON form.
    void readState(DataReply reply);

    [[nodiscard]] const std::shared_ptr<control::LocalFanController>& fanController() const {
        return controller;
    }
    [[nodiscard]] Attendance* clients() const { return attendance; }
    /// Where the work of connections runs, too.
    [[nodiscard]] concurrency::Runtime& taskRuntime() const { return runtime; }

private:
    using Task = concurrency::Task<void>;
    using Result = concurrency::Task<control::ControlResult>;

    using Arrival = Attendance::Arrival;

    [[nodiscard]] Arrival arrival() const { return attendance ? attendance->now() : 0; }
    [[nodiscard]] bool isOver(Arrival arrived) const {
        return attendance && attendance->isOver(arrived);
    }
    void noteHeard() const {
        if (attendance) attendance->heard();
    }

    static Task answer(const FanHelperService& service, Arrival arrived, Result command,
                       CodeReply reply);
    static Task decodeAndApply(const FanHelperService& service, Arrival arrived, std::string plan,
                               CodeReply reply);
    static Task restoreAndAcknowledge(const FanHelperService& service, Arrival arrived,
                                      Acknowledgement reply);
    static Task restoreAndExit(const FanHelperService& service, Acknowledgement reply);
    static Task beat(const FanHelperService& service, Arrival arrived);
    static Task replyState(const FanHelperService& service, DataReply reply);

    concurrency::Runtime& runtime;
    DaemonProcess& process;
    const std::shared_ptr<control::LocalFanController> controller;
    Attendance* const attendance;
};

}  // namespace airflow::daemon
