#include "remote/MachineProtocol.h"

#include <span>

namespace airflow::remote {

std::optional<std::string_view> MessageBuffer::next() {
    const std::string_view rest = std::string_view(bytes).substr(start);
    std::uint32_t length = 0;
    if (rest.size() >= sizeof length) {
        std::memcpy(&length, rest.data(), sizeof length);
        isBroken = length > longestMessage;
        if (!isBroken && rest.size() - sizeof length >= length) {
            start += sizeof length + length;
            return rest.substr(sizeof length, length);
        }
    }
    bytes.erase(0, std::exchange(start, 0));
    if (bytes.empty()) bytes.shrink_to_fit();  // a peer that says nothing costs nothing
    return std::nullopt;
}

bool sendMessage(const platform::FileDescriptor& connection, MessageWriter& message) {
    const std::string_view bytes = message.framed();
    return !isTooLong(bytes) && platform::sendAll(connection, bytes);
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
