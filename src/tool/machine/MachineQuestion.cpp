#include "tool/machine/MachineQuestion.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <chrono>

#include "platform/linux/Waiting.h"
#include "remote/MachineProtocol.h"

namespace airflow::tool {

namespace {

/// A machine that stops in the middle of a message is not waited for longer than one that never
/// begins.
void limitWaiting(const platform::FileDescriptor& connection, concurrency::Duration timeout) {
    const auto seconds = std::chrono::ceil<std::chrono::seconds>(timeout);
    const timeval limit{.tv_sec = seconds.count(), .tv_usec = 0};
    for (const int option : {SO_RCVTIMEO, SO_SNDTIMEO}) {
        (void)setsockopt(connection.get(), SOL_SOCKET, option, &limit, sizeof limit);
    }
}

}  // namespace

std::expected<std::string, std::string> askMachine(const std::string& path,
                                                   std::string_view request,
                                                   concurrency::Duration timeout,
                                                   int interruption) {
    const auto connection = platform::connectTo(path);
    if (!connection) return std::unexpected(connection.error());
    limitWaiting(*connection, timeout);
    remote::MessageWriter question;
    question.put(remote::MachineOperation::control);
    question.put(request);
    const auto none = [&path] { return std::unexpected(path + ": no machine answers there"); };
    if (!remote::sendMessage(*connection, question)) return none();
    const auto woken =
        platform::waitForAny({interruption, connection->get()}, platform::bootTime() + timeout);
    if (!woken) {
        return std::unexpected(fmt::format("{}: the machine did not answer within {} s", path,
                                           concurrency::inSeconds(timeout)));
    }
    const auto message = *woken == 1 ? remote::receiveMessage(*connection) : std::nullopt;
    if (!message) return none();
    remote::MessageReader reader(*message);
    auto answer = reader.take<std::string>();
    if (!reader.isComplete()) return none();
    return answer;
}

}  // namespace airflow::tool
