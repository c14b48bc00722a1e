// StandardDescriptors: makes sure that nothing else becomes standard input, output or error.
#pragma once

namespace airflow::platform {

/// Opens /dev/null on each of the descriptors 0, 1 and 2 that is closed. Comes before anything
/// opens a descriptor: the next one would get such a number, and the log would go into it.
void openStandardDescriptors();

}  // namespace airflow::platform
