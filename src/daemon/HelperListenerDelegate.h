// HelperListenerDelegate: who may talk to the daemon, and what the end of a connection does.
#pragma once

#include <string_view>

#include "daemon/Connection.h"
#include "daemon/FanHelperService.h"

namespace airflow::daemon {

/// Only the client application, signed by its developers' team.
inline constexpr std::string_view codeSigningRequirement =
    R"(anchor apple generic and identifier "com.brisquell.app" and certificate leaf[subject.OU] = "K3QZ7T1VXB")";

class HelperListenerDelegate {
public:
    /// The service outlives the delegate.
    explicit HelperListenerDelegate(FanHelperService& exported) : service(exported) {}

    /// Configures and resumes the connection: the client may call the one service, and the end of
    /// the connection, whatever ended it, gives all fans back. With two clients the end of either
    /// releases what the other set: to release is always safe. Returns true: the requirement is
    /// what keeps untrusted peers out. May be called from any thread.
    bool shouldAccept(Connection& connection);

private:
    FanHelperService& service;
};

}  // namespace airflow::daemon
