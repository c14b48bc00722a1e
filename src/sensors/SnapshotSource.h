// SnapshotSource: where a controller of fans gets its snapshots from.
#pragma once

#include "concurrency/Task.h"
#include "sensors/SensorSnapshot.h"

namespace airflow::sensors {

/// The machine's sensors, or a recording of them.
class SnapshotSource {
public:
    SnapshotSource() = default;
    SnapshotSource(const SnapshotSource&) = delete;
    SnapshotSource& operator=(const SnapshotSource&) = delete;
    virtual ~SnapshotSource() = default;

    /// A fresh reading of everything. Never fails: what cannot be read is missing. Other operations
    /// of the caller may run meanwhile.
    virtual concurrency::Task<SensorSnapshot> snapshot() = 0;
};

}  // namespace airflow::sensors
