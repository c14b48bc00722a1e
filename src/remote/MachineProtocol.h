// MachineProtocol: what a daemon and a simulated machine in another process say to each other.
//
// A message is its length (four bytes) and so many bytes. Both ends are of this project and on one
// machine, so numbers are as this processor has them. A request begins with its operation; what the
// machine answers depends on that alone, and operations without an answer get none.
#pragma once

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/linux/LocalSocket.h"
#include "sensors/hid/HIDObjects.h"
#include "smc/SMCParamStruct.h"
#include "smc/SMCUserClient.h"

namespace airflow::remote {

/// The fields of each request, in their order, and of its answer. An object is eight bytes that
/// mean something to the machine only; 0 is none. A text or list is its count (four bytes) and so
/// many bytes or elements.
enum class MachineOperation : std::uint8_t {
    findService = 1,     ///< class name → service
    openService = 2,     ///< service, type → what the kernel returns, connection
    releaseService = 3,  ///< service; no answer
    call = 4,            ///< connection, method, record → what the kernel returns, record
    closeService = 5,    ///< connection; no answer

    hidFunctions = 16,        ///< → whether the machine has them
    makeDictionary = 17,      ///< names and numbers → object
    makeText = 18,            ///< text → object
    elements = 19,            ///< object → objects
    text = 20,                ///< object → whether it is a text, and the text
    retain = 21,              ///< object; no answer
    release = 22,             ///< object; no answer
    clientCreate = 23,        ///< → object
    clientSetMatching = 24,   ///< client, dictionary; no answer
    clientCopyServices = 25,  ///< client → object
    copyProperty = 26,        ///< service, name → object
    copyEvent = 27,           ///< service, event type, options, time stamp → object
    eventLevel = 28,          ///< event, field → number

    control = 64,  ///< text → text: what a person asks of the machine, in JSON
};

/// The answer to openService.
struct OpeningAnswer {
    smc::KernelReturn code = smc::kernelSuccess;
    std::uint32_t connection = 0;  ///< 0 unless the code is success
};

/// The answer to call.
struct CallAnswer {
    smc::KernelReturn code = smc::kernelSuccess;
    smc::SMCParamStruct record;
};

/// Longer messages are neither sent nor read.
inline constexpr std::size_t longestMessage = 1024 * 1024;

/// What is sent as the bytes that it consists of.
template <typename T>
concept isPlain = std::is_arithmetic_v<T> || std::is_enum_v<T> || std::same_as<T, OpeningAnswer> ||
                  std::same_as<T, CallAnswer> || std::same_as<T, smc::SMCParamStruct>;
static_assert(sizeof(CallAnswer) == 84, "no undeclared bytes");

/// Makes one message.
class MessageWriter {
public:
    MessageWriter() : bytes(sizeof(std::uint32_t), '\0') {}

    template <typename T>
        requires isPlain<T>
    void put(const T& value) {
        bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
    }
    // A template, as is the optional text, so that nothing is converted to it: a literal is a text.
    template <std::same_as<sensors::HIDObject> Object>
    void put(Object object) {
        put(std::bit_cast<std::uint64_t>(object));
    }
    void put(std::string_view text) {
        putCount(text.size());
        bytes.append(text);
    }
    template <std::same_as<std::optional<std::string>> Text>
    void put(const Text& text) {
        put(std::uint8_t{text.has_value()});
        put(text ? std::string_view(*text) : std::string_view());
    }
    void put(const sensors::HIDObjects::Entry& entry) {
        put(entry.name);
        put(entry.value);
    }
    template <typename T>
    void put(const std::vector<T>& elements) {
        putCount(elements.size());
        for (const T& element : elements) put(element);
    }

    [[nodiscard]] bool isEmpty() const { return bytes.size() == sizeof(std::uint32_t); }
    /// The message with its length in front.
    [[nodiscard]] std::string_view framed() {
        const auto length = static_cast<std::uint32_t>(bytes.size() - sizeof(std::uint32_t));
        std::memcpy(bytes.data(), &length, sizeof length);
        return bytes;
    }

private:
    // A count that four bytes cannot hold belongs to a message that is too long to be sent.
    void putCount(std::size_t count) { put(static_cast<std::uint32_t>(count)); }

    std::string bytes;
};

/// Takes one message apart. Whatever is missing is zero or empty, and the message then counts as
/// broken for good.
class MessageReader {
public:
    /// `message`, without its length, outlives the reader and the texts taken from it.
    explicit MessageReader(std::string_view message) : rest(message) {}

    template <typename T>
    T take() {
        T value{};
        read(value);
        return value;
    }

    /// Whether everything that was taken was there, and nothing is left over.
    [[nodiscard]] bool isComplete() const { return !isBroken && rest.empty(); }

private:
    template <typename T>
        requires isPlain<T>
    void read(T& value) {
        if (const auto bytes = next(sizeof value)) std::memcpy(&value, bytes->data(), sizeof value);
    }
    void read(sensors::HIDObject& object) {
        object = std::bit_cast<sensors::HIDObject>(take<std::uint64_t>());
    }
    void read(bool& boolean) {
        const auto byte = take<std::uint8_t>();
        isBroken |= byte > 1;
        boolean = byte == 1;
    }
    void read(std::string_view& text) {
        const auto length = take<std::uint32_t>();
        text = next(length).value_or(std::string_view());
    }
    void read(std::string& text) { text = take<std::string_view>(); }
    void read(std::optional<std::string>& text) {
        const bool isThere = take<bool>();
        text = take<std::string>();
        if (!isThere) text.reset();
    }
    void read(sensors::HIDObjects::Entry& entry) {
        entry.name = take<std::string_view>();
        entry.value = take<std::int64_t>();
    }
    /// Stops at the first element that is missing, so that a wrong count costs no memory.
    template <typename T>
    void read(std::vector<T>& elements) {
        const auto count = take<std::uint32_t>();
        for (std::uint32_t i = 0; i < count && !isBroken; ++i) elements.push_back(take<T>());
    }

    std::optional<std::string_view> next(std::size_t count) {
        if (isBroken || count > rest.size()) {
            isBroken = true;
            return std::nullopt;
        }
        const std::string_view taken = rest.substr(0, count);
        rest.remove_prefix(count);
        return taken;
    }

    std::string_view rest;
    bool isBroken = false;
};

/// Cuts a stream of bytes into messages.
class MessageBuffer {
public:
    void append(std::string_view received) { bytes += received; }
    /// The next complete message, without its length; valid until the next call. Nothing while
    /// there is none, and for good once one is too long.
    [[nodiscard]] std::optional<std::string_view> next();
    /// Whether the next message is longer than one may be.
    [[nodiscard]] bool isTooLong() const { return isBroken; }

private:
    std::string bytes;
    std::size_t start = 0;  ///< of the next message's length
    bool isBroken = false;
};

/// Whether a message, given with its length in front, is longer than one may be.
[[nodiscard]] inline bool isTooLong(std::string_view framed) {
    return framed.size() > sizeof(std::uint32_t) + longestMessage;
}

/// Waits until the message is sent; false when it is too long or the other end is gone.
[[nodiscard]] bool sendMessage(const platform::FileDescriptor& connection, MessageWriter& message);
/// Waits for a message and gives what follows its length; nothing when the connection ends before
/// that is there, or when the message is longer than one may be.
[[nodiscard]] std::optional<std::string> receiveMessage(const platform::FileDescriptor& connection);

}  // namespace airflow::remote
