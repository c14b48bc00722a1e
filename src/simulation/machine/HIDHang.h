// HIDHang: a span in which the HID hub does not answer.
#pragma once

#include "concurrency/Clock.h"
#include "json/Decoder.h"

namespace airflow::simulation {

/// Whoever asks the hub in this span waits for its end. What is answered then was read at the time
/// of the question.
struct HIDHang {
    concurrency::Duration from{};                                ///< since the machine's start
    concurrency::Duration until = concurrency::Duration::max();  ///< no longer, from here on

    bool operator==(const HIDHang&) const = default;

    static HIDHang decode(const json::Decoder& decoder);
};

}  // namespace airflow::simulation
