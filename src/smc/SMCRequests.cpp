#include "smc/SMCRequests.h"

#include <algorithm>
#include <utility>

#include "smc/FourCharCode.h"

namespace airflow::smc {

namespace {

using Selector = SMCParamStruct::Selector;
using ResultCode = SMCParamStruct::ResultCode;

SMCParamStruct requestFor(Selector selector, std::uint32_t key) {
    SMCParamStruct request;
    request.key = key;
    request.data8 = std::to_underlying(selector);
    return request;
}

bool answeredWith(const SMCParamStruct& reply, ResultCode code) {
    return reply.result == std::to_underlying(code);
}

}  // namespace

std::expected<void, SMCError> SMCRequests::open() {
    const std::uint32_t service = client.findService("AppleSMC");
    if (service == 0) return std::unexpected(SMCError::driverNotFound());
    std::uint32_t opened = 0;
    const KernelReturn code = client.open(service, 0, opened);
    client.release(service);
    if (code != kernelSuccess) return std::unexpected(SMCError::openFailed(code));
    close();
    handle = opened;
    return {};
}

void SMCRequests::close() {
    if (handle == 0) return;
    client.close(std::exchange(handle, 0));
}

std::expected<SMCParamStruct, SMCError> SMCRequests::call(const SMCParamStruct& request) {
    SMCParamStruct reply;
    const KernelReturn code =
        client.call(handle, std::to_underlying(Selector::ypcEvent), request, reply);
    if (code == kernelNotPrivileged) return std::unexpected(SMCError::notPrivileged());
    if (code != kernelSuccess) {
        return std::unexpected(
            SMCError::ioReturn("IOConnectCallStructMethod", static_cast<std::uint32_t>(code)));
    }
    return reply;
}

std::expected<SMCKeyInfoData, SMCError> SMCRequests::getKeyInfo(std::uint32_t key) {
    const auto reply = call(requestFor(Selector::getKeyInfo, key));
    if (!reply) return std::unexpected(reply.error());
    if (answeredWith(*reply, ResultCode::success)) return reply->keyInfo;
    if (answeredWith(*reply, ResultCode::keyNotFound)) {
        return std::unexpected(SMCError::keyNotFound(toString(key)));
    }
    return std::unexpected(SMCError::smcError(toString(key), reply->result));
}

std::expected<SMCValue, SMCError> SMCRequests::readValue(std::string_view key) {
    const std::uint32_t code = fourCharCode(key);
    const auto info = getKeyInfo(code);
    if (!info) return std::unexpected(info.error());

    SMCParamStruct request = requestFor(Selector::readKey, code);
    request.keyInfo.dataSize = info->dataSize;
    const auto reply = call(request);
    if (!reply) return std::unexpected(reply.error());
    // The key was there a moment ago, so even "not found" is an error of the SMC now.
    if (!answeredWith(*reply, ResultCode::success)) {
        return std::unexpected(SMCError::smcError(std::string(key), reply->result));
    }
    return decodeSMCValue(reply->bytes, info->dataSize, info->dataType);
}

std::optional<SMCValue> SMCRequests::tryReadValue(std::string_view key) {
    const auto value = readValue(key);
    if (!value) return std::nullopt;
    return *value;
}

std::expected<std::uint8_t, SMCError> SMCRequests::writeUInt8(std::string_view key,
                                                              std::uint8_t value) {
    return write(key, encodeUInt8(value));
}

std::expected<std::uint8_t, SMCError> SMCRequests::writeFloat(std::string_view key, double value) {
    return write(key, encodeFloat(value));
}

std::expected<std::uint8_t, SMCError> SMCRequests::write(std::string_view key,
                                                         const SMCBytes& bytes) {
    const std::uint32_t code = fourCharCode(key);
    const auto info = getKeyInfo(code);
    if (!info) return std::unexpected(info.error());

    SMCParamStruct request = requestFor(Selector::writeKey, code);
    request.keyInfo.dataSize = info->dataSize;
    request.keyInfo.dataType = info->dataType;
    request.bytes = bytes;
    const auto reply = call(request);
    if (!reply) return std::unexpected(reply.error());
    return reply->result;
}

std::vector<std::string> SMCRequests::discoverTempKeys() {
    std::vector<std::string> keys;
    const std::uint32_t count = keyCount();
    for (std::uint32_t index = 0; index < count; ++index) {
        auto key = keyAt(index);
        if (key && holdsTemperature(*key)) keys.push_back(std::move(*key));
    }
    return keys;
}

std::uint32_t SMCRequests::keyCount() {
    const double claimed = tryReadValue("#KEY").value_or(SMCValue::raw()).numeric().value_or(0);
    const bool countsAny = claimed > 0;  // a claim that is not a number does not
    if (!countsAny) return 0;
    return static_cast<std::uint32_t>(std::min(claimed, double{enumerationLimit}));
}

std::optional<std::string> SMCRequests::keyAt(std::uint32_t index) {
    SMCParamStruct request = requestFor(Selector::getKeyByIndex, 0);
    request.data32 = index;
    const auto reply = call(request);
    if (!reply || !answeredWith(*reply, ResultCode::success)) return std::nullopt;
    return toString(reply->key);
}

bool SMCRequests::holdsTemperature(const std::string& key) {
    if (!key.starts_with('T')) return false;
    const auto value = tryReadValue(key);
    return value && !value->isRaw();
}

}  // namespace airflow::smc
