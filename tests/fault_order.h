// What fault_test tells fault_double to do in a run of the command.
#pragma once

// One platform call of the run fails.
struct FaultOrder {
    int call;   // its number, counted from 1; 0: none, and the run appends a line for each call to /run/calls
    int error;  // the errno that it fails with, or one of these
};

inline constexpr int kShort = 0;  // half is read, nothing is written, a program that is run ends with 1
inline constexpr int kKill = -1;  // the process is killed there

inline constexpr int kStatusFd = 3;  // where fault_double writes the wait status of a run, an int
