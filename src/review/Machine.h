// Machine: what a plan can be held against.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace airflow::review {

struct SpeedRange {
    std::int64_t minRPM = 0;
    std::int64_t maxRPM = 0;

    bool operator==(const SpeedRange&) const = default;
};

struct Machine {
    std::string name;                         ///< in a sentence, such as "the machine laptop"
    std::map<std::int64_t, SpeedRange> fans;  ///< by number
    std::set<std::string> sensorIDs;          ///< such as "SMC-TCMz"
};

}  // namespace airflow::review
