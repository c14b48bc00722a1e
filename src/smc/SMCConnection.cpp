#include "smc/SMCConnection.h"

namespace airflow::smc {

using concurrency::Task;

SMCConnection::SMCConnection(concurrency::Runtime& runtime, SMCUserClient& client)
    : Actor(runtime.makeExecutor("smc")), requests(client) {}

Task<std::expected<void, SMCError>> SMCConnection::open() {
    co_return requests.open();
}

Task<void> SMCConnection::close() {
    requests.close();
    co_return;
}

Task<std::expected<SMCValue, SMCError>> SMCConnection::readValue(std::string key) {
    co_return requests.readValue(key);
}

Task<std::optional<SMCValue>> SMCConnection::tryReadValue(std::string key) {
    co_return requests.tryReadValue(key);
}

Task<SMCWriting::WriteResult> SMCConnection::writeUInt8(std::string key, std::uint8_t value) {
    co_return requests.writeUInt8(key, value);
}

Task<SMCWriting::WriteResult> SMCConnection::writeFloat(std::string key, double value) {
    co_return requests.writeFloat(key, value);
}

Task<std::vector<std::string>> SMCConnection::discoverTempKeys() {
    co_return requests.discoverTempKeys();
}

}  // namespace airflow::smc
