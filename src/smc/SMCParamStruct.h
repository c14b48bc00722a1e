// SMCParamStruct: the record that every request to the SMC's driver and every reply is made of.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "smc/SMCBytes.h"

namespace airflow::smc {

/// Zero in requests.
struct SMCVersion {
    std::uint8_t major = 0;
    std::uint8_t minor = 0;
    std::uint8_t build = 0;
    std::uint8_t reserved = 0;
    std::uint16_t release = 0;
};

/// Zero in requests.
struct SMCPLimitData {
    std::uint16_t version = 0;
    std::uint16_t length = 0;
    std::uint32_t cpuPLimit = 0;
    std::uint32_t gpuPLimit = 0;
    std::uint32_t memPLimit = 0;
};

/// What the SMC says about a key. Nine bytes; the three after them fill the record up to its
/// `result` and are zero in requests.
struct SMCKeyInfoData {
    std::uint32_t dataSize = 0;  ///< of the value, in bytes; as claimed, so possibly above 32
    std::uint32_t dataType = 0;  ///< four-character code
    std::uint8_t dataAttributes = 0;
    std::uint8_t gap = 0;
    std::uint16_t padding = 0;
};

/// A binary interface of the kernel: 80 bytes in host order, both ways. Every byte is a declared
/// field, so that a request carries no leftovers of memory.
struct SMCParamStruct {
    /// What is asked for, stored in `data8`.
    enum class Selector : std::uint8_t {
        ypcEvent = 2,  ///< never stored: the number of the driver method that takes every request
        readKey = 5,
        writeKey = 6,
        getKeyByIndex = 8,
        getKeyInfo = 9,
    };

    /// The results with a meaning of their own. The SMC answers with many other bytes.
    enum class ResultCode : std::uint8_t {
        success = 0,
        keyNotFound = 132,
    };

    std::uint32_t key = 0;  ///< four-character code
    SMCVersion vers;
    std::uint16_t versionGap = 0;
    SMCPLimitData pLimitData;
    SMCKeyInfoData keyInfo;
    std::uint8_t result = 0;  ///< of the operation, in replies
    std::uint8_t status = 0;
    std::uint8_t data8 = 0;  ///< a Selector, in requests
    std::uint8_t selectorGap = 0;
    std::uint32_t data32 = 0;  ///< the index, for getKeyByIndex
    SMCBytes bytes{};          ///< the value
};

static_assert(std::endian::native == std::endian::little, "the driver's records are little-endian");
static_assert(std::has_unique_object_representations_v<SMCParamStruct>, "no undeclared bytes");
static_assert(std::is_trivially_copyable_v<SMCParamStruct>);
static_assert(std::is_standard_layout_v<SMCParamStruct>);

static_assert(sizeof(SMCVersion) == 6);
static_assert(offsetof(SMCVersion, major) == 0);
static_assert(offsetof(SMCVersion, minor) == 1);
static_assert(offsetof(SMCVersion, build) == 2);
static_assert(offsetof(SMCVersion, reserved) == 3);
static_assert(offsetof(SMCVersion, release) == 4);

static_assert(sizeof(SMCPLimitData) == 16);
static_assert(offsetof(SMCPLimitData, version) == 0);
static_assert(offsetof(SMCPLimitData, length) == 2);
static_assert(offsetof(SMCPLimitData, cpuPLimit) == 4);
static_assert(offsetof(SMCPLimitData, gpuPLimit) == 8);
static_assert(offsetof(SMCPLimitData, memPLimit) == 12);

static_assert(sizeof(SMCKeyInfoData) == 12);
static_assert(offsetof(SMCKeyInfoData, dataSize) == 0);
static_assert(offsetof(SMCKeyInfoData, dataType) == 4);
static_assert(offsetof(SMCKeyInfoData, dataAttributes) == 8);

static_assert(sizeof(SMCParamStruct) == 80);
static_assert(alignof(SMCParamStruct) == 4);
static_assert(offsetof(SMCParamStruct, key) == 0);
static_assert(offsetof(SMCParamStruct, vers) == 4);
static_assert(offsetof(SMCParamStruct, pLimitData) == 12);
static_assert(offsetof(SMCParamStruct, keyInfo) == 28);
static_assert(offsetof(SMCParamStruct, keyInfo) + offsetof(SMCKeyInfoData, padding) == 38);
static_assert(offsetof(SMCParamStruct, result) == 40);
static_assert(offsetof(SMCParamStruct, status) == 41);
static_assert(offsetof(SMCParamStruct, data8) == 42);
static_assert(offsetof(SMCParamStruct, data32) == 44);
static_assert(offsetof(SMCParamStruct, bytes) == 48);

}  // namespace airflow::smc
