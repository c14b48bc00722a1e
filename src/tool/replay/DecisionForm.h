// DecisionForm: a decision of the evaluator in JSON.
#pragma once

#include "evaluation/FanDecision.h"
#include "json/Writer.h"

namespace airflow::tool {

/// {"target":{"rpm":1800}}, {"releaseToAuto":{}} or {"idleStopped":{}}.
struct EncodedDecision {
    const evaluation::FanDecision& decision;

    void encode(json::Writer& writer) const {
        if (const auto* const target = std::get_if<evaluation::Target>(&decision)) {
            writer.object(
                [&] { writer.objectMember("target", [&] { writer.member("rpm", target->rpm); }); });
            return;
        }
        const bool isReleased = std::holds_alternative<evaluation::ReleaseToAuto>(decision);
        writer.emptyCase(isReleased ? "releaseToAuto" : "idleStopped");
    }
};

}  // namespace airflow::tool
