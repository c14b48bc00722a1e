// RecordingPlatform: seams of the daemon that write down what they are asked for, and do little.
#pragma once

#include <fmt/format.h>

#include <array>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "daemon/Connection.h"
#include "daemon/DaemonProcess.h"

namespace airflow::daemon {

using Journal = std::vector<std::string>;

/// Never ends.
class RecordingProcess final : public DaemonProcess {
public:
    explicit RecordingProcess(Journal& kept) : journal(kept) {}

    void atExit(Handler handler) override {
        journal.push_back("atExit");
        exitHandlers.push_back(std::move(handler));
    }
    void handle(Signal signal, Handler handler) override {
        journal.push_back(signal == Signal::terminate ? "handle SIGTERM" : "handle SIGINT");
        signalHandlers.at(static_cast<std::size_t>(signal)) = std::move(handler);
    }
    void announceExit(int status) override {
        journal.push_back(fmt::format("announce exit {}", status));
    }
    concurrency::Task<void> exit(int status) override {
        journal.push_back(fmt::format("exit {}", status));
        co_return;
    }

    std::vector<Handler> exitHandlers;
    std::array<Handler, 2> signalHandlers;

private:
    Journal& journal;
};

class RecordingListener final : public Listener {
public:
    explicit RecordingListener(Journal& kept) : journal(kept) {}

    void resume(HelperListenerDelegate& accepting) override {
        journal.push_back("listen");
        delegate = &accepting;
    }

    HelperListenerDelegate* delegate = nullptr;

private:
    Journal& journal;
};

class RecordingConnection final : public Connection {
public:
    void exportService(FanHelperService& service) override {
        exported = &service;
        journal.push_back("export");
    }
    void setCodeSigningRequirement(std::string_view requirement) override {
        journal.push_back("require " + std::string(requirement));
    }
    void setInvalidationHandler(std::function<void()> handler) override {
        journal.push_back("invalidation handler");
        invalidated = std::move(handler);
    }
    void setInterruptionHandler(std::function<void()> handler) override {
        journal.push_back("interruption handler");
        interrupted = std::move(handler);
    }
    void resume() override { journal.push_back("resume"); }

    Journal journal;
    FanHelperService* exported = nullptr;
    std::function<void()> invalidated;
    std::function<void()> interrupted;
};

}  // namespace airflow::daemon
