#include "sensors/RawReading.h"

#include <algorithm>
#include <numeric>

namespace airflow::sensors {

double RawReading::celsius() const {
    if (samples.empty()) return 0;
    return std::accumulate(samples.begin(), samples.end(), 0.0) /
           static_cast<double>(samples.size());
}

bool RawReading::isConstant() const {
    return std::ranges::all_of(samples,
                               [this](double sample) { return sample == samples.front(); });
}

}  // namespace airflow::sensors
