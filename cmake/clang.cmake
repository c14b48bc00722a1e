# Finds clang 19, wherever the system's packages put it.
find_program(AIRFLOW_CLANG NAMES clang++-19 clang++
             HINTS /opt/homebrew/opt/llvm@19/bin /usr/local/opt/llvm@19/bin /usr/lib/llvm-19/bin
             REQUIRED)
set(CMAKE_CXX_COMPILER "${AIRFLOW_CLANG}")
