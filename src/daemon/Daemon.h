// Daemon: everything that lives as long as the process, and the order in which it comes to life.
//
// The process must never end, nor begin to serve, while a fan may still be forced: so the handlers
// stand before the first fan is touched, and the fans are in Auto before the first client is heard.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "concurrency/Runtime.h"
#include "control/LocalFanController.h"
#include "daemon/Attendance.h"
#include "daemon/Connection.h"
#include "daemon/DaemonProcess.h"
#include "daemon/FanHelperService.h"
#include "daemon/Hardware.h"
#include "daemon/HelperListenerDelegate.h"
#include "daemon/SafetyHandlers.h"
#include "guard/FanGuard.h"
#include "sensors/LogSink.h"

namespace airflow::daemon {

/// Owned by nobody: whoever makes one lets it live until the process is gone, because exit handlers
/// and tasks refer to it to the very end. (Simulated processes end by abandoning their runtime;
/// only then may it be destroyed.)
class Daemon {
public:
    /// What the platform provides. All of it outlives the daemon.
    struct Platform {
        concurrency::Runtime& runtime;
        Hardware& hardware;
        DaemonProcess& process;
        Listener& listener;
        sensors::LogSink& standardError;
        control::LocalFanController::UserID effectiveUserID{};
        /// Told of every state that the controller publishes; empty: nobody is.
        std::function<void(const control::ControlState&)> published{};
        /// Called whenever the guard gives fans back.
        std::function<void()> guarded{};
        /// Told whenever a plan is about to be evaluated; empty: nobody is.
        control::LocalFanController::Evaluating evaluating{};
    };

    explicit Daemon(Platform platform);
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    /// Opens the SMC, installs the safety handlers, gives every fan back, and starts to listen.
    /// Ends the process with status 1 when it cannot do so. Awaited once.
    concurrency::Task<void> startUp();

private:
    concurrency::Task<void> fail(std::string reason);
    void buildController();
    void listen();
    static concurrency::Task<void> tellStates(
        std::shared_ptr<control::LocalFanController> controller,
        std::function<void(const control::ControlState&)> published);

    Platform platform;
    SafetyHandlers safetyHandlers;
    std::shared_ptr<control::LocalFanController> controller;
    std::optional<guard::FanGuard> guard;
    std::optional<Attendance> attendance;
    std::optional<FanHelperService> service;
    std::optional<HelperListenerDelegate> delegate;
};

}  // namespace airflow::daemon
