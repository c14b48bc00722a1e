// FanControlPlan: the document a client sends to say, fan by fan, what the fans are to do.
#pragma once

#include <cstdint>
#include <vector>

#include "json/Decoder.h"
#include "json/Writer.h"
#include "plan/ControlTuning.h"
#include "plan/FanControlModePlan.h"
#include "plan/FanRule.h"

namespace airflow::plan {

struct FanPlan {
    std::int64_t fanID = 0;  ///< the SMC's zero-based fan number
    FanControlModePlan mode;

    bool operator==(const FanPlan&) const = default;

    static FanPlan decode(const json::Decoder& decoder);
    void encode(json::Writer& writer) const;
};

struct FanControlPlan {
    std::vector<FanPlan> fans;
    std::vector<FanRule> rules;  ///< in priority order: the earlier wins
    ControlTuning tuning;

    bool operator==(const FanControlPlan&) const = default;

    /// No fans, no rules: the plan in force when no client's is.
    [[nodiscard]] static const FanControlPlan& allAutomatic();

    static FanControlPlan decode(const json::Decoder& decoder);
    void encode(json::Writer& writer) const;
};

}  // namespace airflow::plan
