// What is done when Core Foundation makes no object. macOS only.
#pragma once

namespace airflow::platform {

/// Stops the process with a line on standard error.
[[noreturn]] void stopWithoutMemory() noexcept;

/// `object`; stops the process if that is nothing, which is how Core Foundation answers running out
/// of memory. Going on could be worse: a connection might ask no signature of its client.
template <typename Reference>
Reference required(Reference object) {
    if (!object) stopWithoutMemory();
    return object;
}

}  // namespace airflow::platform
