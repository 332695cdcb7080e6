// Orders of fault_test to fault_double, one for each run of the command.
#pragma once

#include <fcntl.h>

#include <cstdio>

// One platform call of the run fails.
struct FaultOrder {
    int call;   // its number, from 1; 0: none fails, and the run appends a line for each call to /run/calls
    int error;  // errno of the failure, or one of the values below
};

inline constexpr int kShort = 0;  // read gets half, write writes nothing, system returns exit status 1
inline constexpr int kKill = -1;  // the process is killed there

inline constexpr int kTakeOver = -2;  // nothing fails, but others take over the places below just before the call

// Exchanged by kTakeOver: the names of two generic nodes with all their answers, and the directories of a disk and of a
// newcomer.
inline constexpr const char *kTakenOver[][2] = {
    {"/dev/sg2", "/dev/sg6"},
    {"/dev/sg2.12", "/dev/sg6.12"},
    {"/dev/sg2.a0", "/dev/sg6.a0"},
    {"/sys/devices/platform/host2/session1/target2:0:0/2:0:0:2", "/sys/devices/newcomer/2:0:0:2"}};

inline void FAULT_TakeOver()
{
    for (const auto &[one, other] : kTakenOver) {
        (void)renameat2(AT_FDCWD, one, AT_FDCWD, other, RENAME_EXCHANGE);
    }
}

// fault_double writes this to kResultFd after each run.
struct FaultResult {
    int status;  // wait status
    int leaked;  // allocations that the run did not free
};
inline constexpr int kResultFd = 3;
