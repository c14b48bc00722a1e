#include "smc/ScriptedUserClient.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <stdexcept>

namespace airflow::smc::test {

namespace {

constexpr auto badArgument = static_cast<KernelReturn>(0xE00002C2);
constexpr auto unsupported = static_cast<KernelReturn>(0xE00002C7);
constexpr KernelReturn invalidDestination = 0x10000003;

void put32(Record& record, std::size_t offset, std::uint32_t value) {
    for (std::size_t byte = 0; byte < 4; ++byte) {
        record.at(offset + byte) = static_cast<std::uint8_t>(value >> 8 * byte);
    }
}

// A code's four characters, which lie in memory from the last to the first.
void putCode(Record& record, std::size_t offset, std::string_view text) {
    for (std::size_t byte = 0; byte < 4; ++byte) {
        record.at(offset + byte) = static_cast<std::uint8_t>(text.at(3 - byte));
    }
}

std::string codeAt(const Record& record, std::size_t offset) {
    std::string text;
    for (std::size_t byte = 4; byte-- > 0;) text += static_cast<char>(record.at(offset + byte));
    return text;
}

std::uint32_t read32(const Record& record, std::size_t offset) {
    std::uint32_t value = 0;
    for (std::size_t byte = 4; byte-- > 0;) value = value << 8 | record.at(offset + byte);
    return value;
}

std::uint8_t digit(char character) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    const auto position = digits.find(character);
    if (position == std::string_view::npos) throw std::invalid_argument("no hexadecimal digit");
    return static_cast<std::uint8_t>(position);
}

Answer keyInfo(const Key& key) {
    Record reply{};
    put32(reply, 28, key.claimedSize.value_or(static_cast<std::uint32_t>(key.bytes.size())));
    putCode(reply, 32, key.type);
    reply[36] = 0xD4;
    reply[40] = key.infoResult;
    return {.reply = reply};
}

Answer value(const Key& key) {
    Record reply{};
    std::ranges::copy(key.bytes, reply.begin() + 48);
    reply[40] = key.readResult;
    return {.reply = reply};
}

Answer result(std::uint8_t code) {
    Record reply{};
    reply[40] = code;
    return {.reply = reply};
}

}  // namespace

Record record(std::string_view hexadecimal) {
    std::string digits(hexadecimal);
    std::erase_if(digits, [](char character) { return character == ' ' || character == '\n'; });
    if (digits.size() != 160) throw std::invalid_argument("a record has 80 bytes");
    Record record{};
    for (std::size_t byte = 0; byte < record.size(); ++byte) {
        record[byte] =
            static_cast<std::uint8_t>(digit(digits[2 * byte]) << 4 | digit(digits[2 * byte + 1]));
    }
    return record;
}

Record recordOf(const SMCParamStruct& structure) {
    return std::bit_cast<Record>(structure);
}

std::uint32_t ScriptedUserClient::findService(const std::string& className) {
    if (!classes.contains(className)) return 0;
    services.insert(++nextHandle);
    return nextHandle;
}

KernelReturn ScriptedUserClient::open(std::uint32_t service, std::uint32_t type,
                                      std::uint32_t& connection) {
    if (!services.contains(service)) misuse.emplace_back("opened a service that nobody holds");
    if (type != 0) return badArgument;
    if (openReturn != 0) return openReturn;
    connection = ++nextHandle;
    connections.insert(connection);
    return 0;
}

void ScriptedUserClient::release(std::uint32_t service) {
    ++releases;
    if (services.erase(service) == 0) misuse.emplace_back("released a service twice");
}

void ScriptedUserClient::close(std::uint32_t connection) {
    ++closes;
    if (connections.erase(connection) == 0) misuse.emplace_back("closed a connection twice");
}

KernelReturn ScriptedUserClient::call(std::uint32_t connection, std::uint32_t method,
                                      const SMCParamStruct& request, SMCParamStruct& reply) {
    ++calls;
    requests.push_back(recordOf(request));
    if (requests.size() > 1000) requests.pop_front();
    if (recordOf(reply) != Record{}) misuse.emplace_back("gave a reply that is not zero");
    if (!connections.contains(connection)) return invalidDestination;
    if (method != 2) return badArgument;
    const Answer given = answer(recordOf(request));
    if (given.reply) reply = std::bit_cast<SMCParamStruct>(*given.reply);
    return given.code;
}

Answer ScriptedUserClient::answer(const Record& request) {
    if (!script.empty()) {
        const Answer scripted = script.front();
        script.pop_front();
        return scripted;
    }
    if (callReturn != 0) return {.code = callReturn};
    return request[42] == 8 ? answerAboutIndex(request) : answerAboutKey(request);
}

Answer ScriptedUserClient::answerAboutKey(const Record& request) {
    const auto found = std::ranges::find(keys, codeAt(request, 0), &Key::name);
    if (found == keys.end()) return result(0x84);
    switch (request[42]) {
        case 5: return value(*found);
        case 6:
            if (found->writeResult == 0) {
                const auto size = static_cast<std::ptrdiff_t>(read32(request, 28));
                found->bytes.assign(request.begin() + 48, request.begin() + 48 + size);
            }
            return result(found->writeResult);
        case 9: return keyInfo(*found);
        default: return {.code = unsupported};
    }
}

Answer ScriptedUserClient::answerAboutIndex(const Record& request) {
    const std::uint32_t index = read32(request, 44);
    if (const auto fault = atIndex.find(index); fault != atIndex.end()) return fault->second;
    if (index >= keys.size()) return result(0x84);
    Record reply{};
    putCode(reply, 0, keys[index].name);
    return {.reply = reply};
}

Key& ScriptedUserClient::key(std::string_view name) {
    return *std::ranges::find(keys, name, &Key::name);
}

}  // namespace airflow::smc::test
