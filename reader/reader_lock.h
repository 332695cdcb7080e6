// Finds out whether a run is at work on this host.
#pragma once

#include <optional>
#include <string>

#include "reader_model.h"

// The lock that each run holds from its start to its end.
struct RunLock {
    bool isHeld = false;
    std::string since;  // local time as in records; empty if nobody holds it
    long process = 0;   // ID of the holder
};

// Asks the kernel who holds the lock of this host, which requires read access to root's pid file. Returns nothing if it
// cannot ask.
[[nodiscard]] std::optional<RunLock> READER_AskLock();

// Sets the run's `isAtWork`. The run holds the lock if it has no end and wrote a record since the lock was taken; a run
// that was killed earlier has no such record.
void READER_MarkAtWork(Run &run, const RunLock &lock);
