// ScriptedUserClient: an SMC driver made of a list of keys, with switches for what can go wrong.
//
// It knows the records by their byte offsets only, so that it cannot share a mistake with the
// code under test.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "smc/SMCUserClient.h"

namespace airflow::smc::test {

using Record = std::array<std::uint8_t, 80>;

/// The 80 bytes written in `hexadecimal`; blanks and line ends do not count.
[[nodiscard]] Record record(std::string_view hexadecimal);
[[nodiscard]] Record recordOf(const SMCParamStruct& structure);

struct Key {
    std::string name;
    std::string type;
    std::vector<std::uint8_t> bytes;
    std::optional<std::uint32_t> claimedSize = std::nullopt;  ///< instead of the true one
    std::uint8_t infoResult = 0;
    std::uint8_t readResult = 0;
    std::uint8_t writeResult = 0;
};

/// What the driver does with one call, instead of what it would do.
struct Answer {
    KernelReturn code = 0;
    std::optional<Record> reply = std::nullopt;  ///< nothing leaves the reply as it is
};

class ScriptedUserClient final : public SMCUserClient {
public:
    // The machine.
    std::set<std::string> classes{"AppleSMC"};
    std::vector<Key> keys;
    KernelReturn openReturn = 0;
    KernelReturn callReturn = 0;              ///< of every call, unless 0
    std::map<std::uint32_t, Answer> atIndex;  ///< instead of a key, while keys are enumerated
    std::deque<Answer> script;                ///< comes before everything else

    // What was done to it.
    std::set<std::uint32_t> services;     ///< handed out and not released
    std::set<std::uint32_t> connections;  ///< opened and not closed
    std::uint32_t releases = 0;
    std::uint32_t closes = 0;
    std::uint64_t calls = 0;
    std::deque<Record> requests;  ///< the latest thousand
    std::vector<std::string> misuse;

    [[nodiscard]] std::uint32_t findService(const std::string& className) override;
    [[nodiscard]] KernelReturn open(std::uint32_t service, std::uint32_t type,
                                    std::uint32_t& connection) override;
    void release(std::uint32_t service) override;
    [[nodiscard]] KernelReturn call(std::uint32_t connection, std::uint32_t method,
                                    const SMCParamStruct& request, SMCParamStruct& reply) override;
    void close(std::uint32_t connection) override;

    [[nodiscard]] Key& key(std::string_view name);

private:
    Answer answer(const Record& request);
    Answer answerAboutKey(const Record& request);
    Answer answerAboutIndex(const Record& request);

    std::uint32_t nextHandle = 0x1F03;
};

}  // namespace airflow::smc::test
