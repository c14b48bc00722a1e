// MachineStream: both ends of the protocol between daemon and machine, under any bytes.
#pragma once

#include <string_view>

#include "Input.h"

namespace airflow::fuzz {

/// A session of a simulated machine is given requests: some that make sense, and any bytes. Stops
/// the process when its end does not give back everything that it was given.
void playMachineStream(Input input);

/// Any bytes as the answer of a machine. Stops the process when an answer that was understood is
/// not what would have been sent to say so.
void readMachineAnswers(std::string_view bytes);

}  // namespace airflow::fuzz
