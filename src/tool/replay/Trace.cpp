#include "tool/replay/Trace.h"

#include <fmt/format.h>

#include <string_view>
#include <utility>

#include "text/Text.h"

namespace airflow::tool {

namespace {

sensors::Fan decodeFan(const json::Decoder& decoder) {
    sensors::Fan fan;
    fan.id = decoder.required<std::int64_t>("id");
    fan.minRPM = decoder.required<std::int64_t>("minRPM");
    fan.maxRPM = decoder.required<std::int64_t>("maxRPM");
    fan.currentRPM = decoder.optional<std::int64_t>("currentRPM").value_or(0);
    fan.mode = decoder.optional<std::int64_t>("mode");
    auto name = decoder.optional<std::string>("name");
    fan.name = name ? std::move(*name) : fmt::format("Fan {}", fan.id);
    return fan;
}

sensors::SensorSource decodeSource(const json::Decoder& decoder) {
    const auto source = sensors::sourceFromRawValue(decoder.text());
    if (!source) decoder.fail("Expected \"HID\" or \"SMC\".");
    return source.value_or(sensors::SensorSource::hid);
}

sensors::SensorCategory decodeCategory(const json::Decoder& temp) {
    const auto text = temp.optional<std::string>("category");
    if (!text) return sensors::SensorCategory::sensor;
    const auto category = sensors::categoryFromRawValue(*text);
    if (!category) {
        temp.member("category", [](const json::Decoder& member) {
            member.fail("Expected \"CPU\", \"GPU\", \"SSD\", \"Battery\" or \"Sensor\".");
        });
    }
    return category.value_or(sensors::SensorCategory::sensor);
}

sensors::TempSensor decodeTemp(const json::Decoder& decoder) {
    sensors::TempSensor temp;
    temp.key = decoder.required<std::string>("key");
    decoder.member("source",
                   [&temp](const json::Decoder& source) { temp.source = decodeSource(source); });
    temp.celsius = decoder.required<double>("celsius");
    auto name = decoder.optional<std::string>("name");
    temp.name = name ? std::move(*name) : temp.key;
    temp.category = decodeCategory(decoder);
    return temp;
}

struct EncodedFan {
    const sensors::Fan& fan;

    void encode(json::Writer& writer) const {
        writer.object([&] {
            writer.member("id", fan.id);
            writer.member("minRPM", fan.minRPM);
            writer.member("maxRPM", fan.maxRPM);
            writer.member("currentRPM", fan.currentRPM);
            writer.member("mode", fan.mode);
            writer.member("name", fan.name);
        });
    }
};

struct EncodedTemp {
    const sensors::TempSensor& temp;

    void encode(json::Writer& writer) const {
        writer.object([&] {
            writer.member("key", temp.key);
            writer.member("source", rawValue(temp.source));
            writer.member("celsius", temp.celsius);
            writer.member("name", temp.name);
            writer.member("category", rawValue(temp.category));
        });
    }
};

}  // namespace

TraceTick TraceTick::decode(const json::Decoder& decoder) {
    TraceTick tick;
    tick.time = decoder.required<double>("time");
    tick.snapshot.timestamp = concurrency::Date(concurrency::Seconds(tick.time));
    decoder.member("fans", [&tick](const json::Decoder& fans) {
        fans.forEachElement(
            [&tick](const json::Decoder& fan) { tick.snapshot.fans.push_back(decodeFan(fan)); });
    });
    decoder.member("temps", [&tick](const json::Decoder& temps) {
        temps.forEachElement([&tick](const json::Decoder& temp) {
            tick.snapshot.temps.push_back(decodeTemp(temp));
        });
    });
    return tick;
}

void TraceTick::encode(json::Writer& writer) const {
    const std::vector<EncodedFan> fans(snapshot.fans.begin(), snapshot.fans.end());
    const std::vector<EncodedTemp> temps(snapshot.temps.begin(), snapshot.temps.end());
    writer.object([&] {
        writer.member("time", time);
        writer.member("fans", fans);
        writer.member("temps", temps);
    });
}

std::expected<std::string, std::string> traceLine(const TraceTick& tick) {
    auto text = json::encode(tick);
    if (text) return std::move(*text);
    return std::unexpected(
        fmt::format("{}: {}", text.error().codingPath, text.error().description));
}

TraceReader::TraceReader(std::istream& input, std::string name)
    : input(input), name(std::move(name)), buffer(limits.bytes + 2) {}

std::expected<std::optional<TraceTick>, std::string> TraceReader::next() {
    input.getline(buffer.data(), static_cast<std::streamsize>(buffer.size()));
    const auto count = static_cast<std::size_t>(input.gcount());
    if (input.bad())
        return std::unexpected(fmt::format("{}: cannot be read", text::printable(name)));
    if (input.eof() && count == 0) return std::optional<TraceTick>{};
    ++line;
    // The end of the line is counted, unless the line ended with the input or filled the buffer.
    const bool endCounted = input.good();
    const std::string_view text(buffer.data(), endCounted ? count - 1 : count);
    if (const auto parsed = document.parse(text, limits); !parsed) {
        return std::unexpected(describe(parsed.error()));
    }
    auto tick = json::decode<TraceTick>(document);
    if (!tick) return std::unexpected(describe(tick.error()));
    return std::move(*tick);
}

std::string TraceReader::place() const {
    return text::printable(line == 0 ? name : fmt::format("{}:{}", name, line));
}

std::string TraceReader::describe(const json::DecodingError& error) const {
    if (!error.position) return text::printable(error.describe(fmt::format("{}:{}", name, line)));
    return text::printable(
        fmt::format("{}:{}:{}: {}", name, line, error.position->column, error.description));
}

}  // namespace airflow::tool
