#include "simulation/machine/Fault.h"

#include "simulation/machine/Decoding.h"

namespace airflow::simulation {

using namespace decoding;

namespace {

Fault::Operation decodeOperation(const Decoder& decoder) {
    const std::string name = decoder.text();
    if (name == "read") return Fault::Operation::read;
    if (name == "information") return Fault::Operation::information;
    if (name == "enumeration") return Fault::Operation::enumeration;
    if (name != "write") {
        decoder.fail("Expected \"read\", \"write\", \"information\" or \"enumeration\".");
    }
    return Fault::Operation::write;
}

Fault::Effect decodeEffect(const Decoder& decoder) {
    const std::string name = decoder.text();
    if (name == "ignored") return Fault::Effect::ignored;
    if (name == "applied") return Fault::Effect::applied;
    if (name != "natural") decoder.fail("Expected \"natural\", \"ignored\" or \"applied\".");
    return Fault::Effect::natural;
}

}  // namespace

Fault Fault::decode(const Decoder& decoder) {
    decoder.onlyKeys({"from", "until", "key", "operation", "value", "result", "kernelReturn",
                      "latency", "reading", "size", "type", "effect", "access"});
    Fault fault;
    fault.from = optionalSeconds(decoder, "from", fault.from);
    fault.until = optionalSeconds(decoder, "until", fault.until);
    fault.latency = optionalSeconds(decoder, "latency", fault.latency);
    fault.value = decoder.optional<double>("value");
    ifPresent(decoder, "access", [&](const Decoder& member) {
        fault.access = bounded<std::uint64_t>(member, 1, INT64_MAX);
    });
    ifPresent(decoder, "reading",
              [&](const Decoder& member) { fault.reading = anyNumber(member); });
    ifPresent(decoder, "key", [&](const Decoder& member) {
        fault.key = member.text();
        if (fault.key != "*") fault.key = fourCharacters(member);
    });
    ifPresent(decoder, "operation",
              [&](const Decoder& member) { fault.operation = decodeOperation(member); });
    ifPresent(decoder, "effect",
              [&](const Decoder& member) { fault.effect = decodeEffect(member); });
    ifPresent(decoder, "result",
              [&](const Decoder& member) { fault.result = bounded<std::uint8_t>(member, 0, 255); });
    ifPresent(decoder, "kernelReturn", [&](const Decoder& member) {
        fault.kernelReturn = bounded<std::int32_t>(member, INT32_MIN, UINT32_MAX);
    });
    ifPresent(decoder, "size", [&](const Decoder& member) {
        fault.size = bounded<std::uint32_t>(member, 0, UINT32_MAX);
    });
    ifPresent(decoder, "type", [&](const Decoder& member) { fault.type = fourCharacters(member); });
    return fault;
}

}  // namespace airflow::simulation
