#include "plan/FanControlModePlan.h"

#include <string_view>

namespace airflow::plan {

namespace {

FanControlModePlan decodePayload(std::string_view name, const json::Decoder& payload) {
    if (name == "fixedRPM") return FanControlModePlan::fixedRPM(payload.required<double>("_0"));
    if (name == "fixedPercent") {
        return FanControlModePlan::fixedPercent(payload.required<double>("_0"));
    }
    if (name == "curve") return FanControlModePlan::curve(payload.required<FanCurve>("_0"));
    payload.anyObject();
    return FanControlModePlan::automatic();
}

struct PayloadEncoder {
    json::Writer& writer;

    void operator()(const FixedRPM& fixed) const { encode("fixedRPM", fixed.rpm); }
    void operator()(const FixedPercent& fixed) const { encode("fixedPercent", fixed.percent); }
    void operator()(const FanCurve& curve) const { encode("curve", curve); }
    void operator()(const Automatic&) const { writer.emptyCase("automatic"); }

    template <typename Payload>
    void encode(std::string_view name, const Payload& payload) const {
        writer.object([&] { writer.objectMember(name, [&] { writer.member("_0", payload); }); });
    }
};

}  // namespace

FanControlModePlan FanControlModePlan::decode(const json::Decoder& decoder) {
    const auto name = decoder.soleCase({"fixedRPM", "fixedPercent", "curve", "automatic"});
    FanControlModePlan result;
    if (!name) return result;
    decoder.member(*name, [&result, name](const json::Decoder& payload) {
        result = decodePayload(*name, payload);
    });
    return result;
}

void FanControlModePlan::encode(json::Writer& writer) const {
    std::visit(PayloadEncoder{writer}, mode);
}

}  // namespace airflow::plan
