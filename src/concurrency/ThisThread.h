// Running a task on a thread that belongs to nobody's executor, such as one that is ending the
// process.
#pragma once

#include "concurrency/Task.h"

namespace airflow::concurrency {

/// Runs `task` to its end on the calling thread, which waits wherever the task does. The thread may
/// be running a job of an executor, which then waits too; so the task must not need that executor.
/// An exception that leaves the task ends the process.
void runOnThisThread(Task<void> task);

}  // namespace airflow::concurrency
