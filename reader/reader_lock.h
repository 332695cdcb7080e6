// Whether a run is at work on this host now.
#pragma once

#include <optional>
#include <string>

#include "reader_model.h"

// The lock that each run holds from its start to its end.
struct RunLock {
    bool isHeld = false;
    std::string since;  // local time as in records; empty where nobody holds it
};

// Asks the kernel for the lock of this host; that takes the right to read the pid file, which is root's. Returns
// nothing where it cannot be asked.
[[nodiscard]] std::optional<RunLock> READER_AskLock();

// Notes in the run whether it is the one that holds the lock: it has not ended, and wrote a record since the lock was
// taken, which a run that was killed earlier cannot have done.
void READER_MarkAtWork(Run &run, const RunLock &lock);
