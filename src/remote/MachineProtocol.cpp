#include "remote/MachineProtocol.h"

#include <span>

namespace airflow::remote {

bool sendMessage(const platform::FileDescriptor& connection, MessageWriter& message) {
    const std::string_view bytes = message.framed();
    return bytes.size() - sizeof(std::uint32_t) <= longestMessage &&
           platform::sendAll(connection, bytes);
}

std::optional<std::string> receiveMessage(const platform::FileDescriptor& connection) {
    std::uint32_t length = 0;
    if (!platform::receiveExactly(connection, std::as_writable_bytes(std::span(&length, 1))) ||
        length > longestMessage) {
        return std::nullopt;
    }
    std::string message(length, '\0');
    if (!platform::receiveExactly(connection, std::as_writable_bytes(std::span(message)))) {
        return std::nullopt;
    }
    return message;
}

}  // namespace airflow::remote
