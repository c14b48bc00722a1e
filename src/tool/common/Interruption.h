// Interruption: lets a long command end by itself when somebody wants it to.
#pragma once

namespace airflow::tool {

/// While it lives, the first SIGINT or SIGTERM of the process is only noted; the next one ends the
/// process. A signal that the process was started to ignore stays ignored. One at a time.
class Interruption {
public:
    Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;
    ~Interruption();

    /// The signal's number; 0 while none has come. Any thread may ask.
    [[nodiscard]] int signal() const;

private:
    using Handler = void (*)(int);

    Handler interrupt;  ///< as they were before
    Handler terminate;
};

}  // namespace airflow::tool
