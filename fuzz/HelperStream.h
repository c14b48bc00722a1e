// HelperStream: the daemon's side of the local socket, under any stream of bytes.
#pragma once

#include "Input.h"

namespace airflow::fuzz {

/// One client sends the input's text to a whole daemon over a simulated machine, in pieces, between
/// which time passes, and ends as the input says. Stops the process unless every message is
/// answered once, and unless all fans are back in the end.
///
/// A pair of sockets lies between the two, but one thread serves both ends, in virtual time: the
/// same input gives the same run.
void playHelperStream(Input input);

}  // namespace airflow::fuzz
