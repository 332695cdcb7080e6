// Splits a trace file into runs.
#pragma once

#include <deque>

#include "reader_log.h"

// The records of one run, with a question mark for every byte that is neither printable ASCII nor a line end.
struct RunText {
    std::uint64_t number = 0;  // of the run in the file, from 1
    bool isWhole = true;       // false: records are missing, at the beginning or between
    bool isRefused = false;    // it did nothing
    std::string text;
};

enum class RunPhase {
    Started,     // only its start is recorded
    LockFailed,  // only its refusal can follow
    Refused,     // it is over
    Working,     // it holds the lock
    Over,
};

struct OpenRun {
    RunText run;
    std::int32_t expected = 1;  // sequence number of its next record
    RunPhase phase = RunPhase::Started;
};

// A file whose runs are being read. Initialised with the file, which the caller owns.
struct RunStream {
    LogStream log;
    std::deque<OpenRun> open;  // in the order of their numbers
    std::uint64_t count = 0;   // runs that have begun
    std::size_t kept = 0;      // bytes of the records of those that are open
};

// Reads until the next run is over, in the order of their starts. A run without an end is over when another one works,
// since only one can hold the lock. Returns false if there is no further run.
[[nodiscard]] bool READER_NextRun(RunStream &runs, RunText &run);
