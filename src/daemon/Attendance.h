// Attendance: which clients there are, and when one was last heard.
#pragma once

#include <atomic>

#include "guard/FanGuard.h"
#include "guard/SMCGate.h"

namespace airflow::daemon {

/// Commands of clients that are all gone are not carried out: between the end of the last
/// connection and their turn nobody has asked for anything any more. Any thread may call.
class Attendance {
public:
    /// When a message arrived.
    using Arrival = guard::SMCGate::Epoch;

    /// Both outlive the attendance.
    Attendance(guard::SMCGate& smcGate, guard::FanGuard& fanGuard)
        : gate(smcGate), guard(fanGuard) {}

    [[nodiscard]] Arrival now() const { return gate.epoch(); }
    /// Whether every client that was there then is gone, or the process has begun to end.
    [[nodiscard]] bool isOver(Arrival arrival) const { return arrival != gate.epoch(); }
    void heard() { guard.heard(); }

    /// A connection, from its acceptance up to its end, however often that is told.
    class Visit {
    public:
        explicit Visit(Attendance& noted) : attendance(noted) { attendance.gate.enter(); }
        Visit(const Visit&) = delete;
        Visit& operator=(const Visit&) = delete;

        void end() {
            if (!hasEnded.exchange(true)) (void)attendance.gate.leave();
        }
        /// The client is gone, and its connection could be taken up again.
        void interrupt() {
            if (!hasEnded) attendance.gate.interrupt();
        }

    private:
        Attendance& attendance;
        std::atomic<bool> hasEnded = false;
    };

private:
    guard::SMCGate& gate;
    guard::FanGuard& guard;
};

}  // namespace airflow::daemon
