// Follows the run at work.
#pragma once

#include <set>
#include <string>

#include "reader_lock.h"
#include "reader_model.h"

// What was shown of a run. Initialised empty.
struct Progress {
    std::string waitsFor;             // the path that the run waited for at the last look
    long long since = 0;              // when it began to, in seconds since the epoch
    std::string shown;                // what the last line said, without times
    std::set<std::string> deletions;  // addresses of the disks whose deletion was shown
    std::size_t lines = 0;            // of the terminal that show the text above the bar; 0 without a bar
};

// Shows how far the run with this lock is: on a terminal, replaces the line and the bar that it has shown; elsewhere,
// prints a line if it says something new. Prints each new deletion.
void READER_ShowProgress(std::FILE *out, const Run &run, const RunLock &lock, Progress &progress);

// Removes the line and the bar from a terminal, and prints the deletions of the finished run that were not shown yet.
void READER_EndProgress(std::FILE *out, const Run &run, Progress &progress);
