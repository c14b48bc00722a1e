// FanPreset: a plan with a name, kept by the client.
#pragma once

#include <string>

#include "plan/FanControlPlan.h"
#include "plan/UUID.h"

namespace airflow::plan {

struct FanPreset {
    UUID id;
    std::string name;
    bool isBuiltIn = false;  ///< shipped, not made by the user
    FanControlPlan plan;

    bool operator==(const FanPreset&) const = default;

    static FanPreset decode(const json::Decoder& decoder);
    void encode(json::Writer& writer) const;
};

}  // namespace airflow::plan
