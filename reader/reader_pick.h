// Picks the runs of a log that the arguments ask for.
#pragma once

#include <cstdio>
#include <optional>
#include <vector>

#include "reader_lock.h"
#include "reader_model.h"
#include "reader_options.h"
#include "reader_split.h"

struct PickedRuns {
    std::optional<RunText> before;   // the last but one that was not refused
    std::optional<RunText> last;     // the last one that was not refused, or the one of --run
    std::optional<RunText> refused;  // the last one, where it was refused
    std::optional<RunLock> lock;     // of this host, if the log is the host's and the kernel can be asked
    bool isOutdated = false;         // after the run of --run, another one was not refused
    int error = 0;                   // errno of a failed read
    std::vector<Run> runs;           // to print or judge; they refer to the texts above
};

// Reads the log to its end and picks the run of --run, or the last run. A run at work comes with the run before it if
// there is --check, which judges that one in its place. A run that has not ended comes with a copy that was refused
// after it; with --check, every run does.
void READER_PickRuns(std::FILE *file, const Settings &settings, PickedRuns &picked);
